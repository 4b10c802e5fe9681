#include "codeset/text.h"

#include <algorithm>

#include "codeset/ascii.h"
#include "codeset/ebcdic.h"

namespace quillon {
namespace {

constexpr int kMostBytes = 8;  // of a character, its shifts included

bool isShift(char byte) { return byte == kShiftOut || byte == kShiftIn; }

bool isContinuation(char byte) { return (byte & 0xC0) == 0x80; }

Step stepIn(nxl_cs& cs, const unsigned char* p, const unsigned char* end) {
  switch (cs.kind) {
    case kSingleByteKind:
      return SingleByteSource(cs).next(p, end);
    case kDoubleByteKind:
      return DoubleByteSource(cs).next(p, end);
    case kMultiByteKind:
      return MultiByteSource(cs).next(p, end);
    case kMixedEbcdicKind:
      return MixedEbcdicSource(cs).next(p, end);
    case kEbcdicKind:
    case kInternal37Kind:
      return EbcdicSource(cs).next(p, end);
    case kGb18030Kind:
      return Gb18030Source(cs).next(p, end);
    default:
      return Utf8Source(cs).next(p, end);
  }
}

bool isEbcdic(const nxl_cs& cs) {
  return cs.kind == kEbcdicKind || cs.kind == kInternal37Kind || cs.kind == kMixedEbcdicKind;
}

// Whether a "?" that a source gave stands in the text.
bool isQuestionMark(const nxl_cs& cs, const unsigned char* p, int size) {
  return size == 1 && *p == (isEbcdic(cs) ? kEbcdicSubstitute : kSubstitute);
}

Code strayCode(const unsigned char* p, int size) {
  Code code = 0;
  for (int i = 0; i < size; ++i) code = code << 8 | p[i];
  return kStray + code;
}

bool hasIdeographs(const nxl_cs& cs) {
  return cs.kind == kDoubleByteKind || cs.kind == kMultiByteKind || cs.kind == kMixedEbcdicKind;
}

// The bytes of a character, shifts included, and how many they are; 0 when the codeset does not have it.
int encode(const nxl_cs& cs, std::uint32_t c, char (&bytes)[kMostBytes]) {
  unsigned char utf8[4];
  const int size = Utf8Target(cs).put(c, utf8, utf8 + sizeof utf8);
  nxl_cs copy = cs;
  const int written = nxl_from_utf8(&copy, reinterpret_cast<const char*>(utf8), size, bytes, kMostBytes);
  const auto* first = reinterpret_cast<const unsigned char*>(bytes);
  return c != kSubstitute && isQuestionMark(cs, first, written) ? 0 : written;
}

}  // namespace

MbReader::MbReader(const nxl_cs& cs, Text<char> text, int at)
    : state_(cs), begin_(text.begin), at_(text.begin), end_(text.end) {
  state_.state1 = 0;
  if (cs.kind == kMixedEbcdicKind) {
    Character ignored;
    while (offset() < at && next(ignored)) {
    }
  } else {
    at_ += at;
  }
}

// Goes over shifts, all of them or those into the single-byte state.
void MbReader::skipShifts(bool in_only) {
  for (; at_ != end_ && (*at_ == kShiftIn || (*at_ == kShiftOut && !in_only)); ++at_) state_.state1 = *at_ == kShiftOut;
}

bool MbReader::next(Character& c) {
  const bool mixed = state_.kind == kMixedEbcdicKind;
  if (mixed) skipShifts(false);
  if (at_ == end_) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(at_);
  const Step step = stepIn(state_, p, reinterpret_cast<const unsigned char*>(end_));
  c.bytes = at_;
  c.size = step.length > 0 ? step.length : 1;
  c.shifted = shifted();
  c.wide = c.size > 1 && hasIdeographs(state_);
  const bool stray = step.length == 0 || (step.character == kSubstitute && !isQuestionMark(state_, p, c.size));
  c.code = stray ? strayCode(p, c.size) : step.character;
  at_ += c.size;
  if (mixed) skipShifts(!std::all_of(at_, end_, isShift));  // at the end of the text nothing else can take a shift-out
  return true;
}

int placeBefore(const nxl_cs& cs, const char* text, int at) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  int place = at - 1;
  switch (cs.kind) {
    case kMixedEbcdicKind:
      return 0;
    case kSingleByteKind:
    case kEbcdicKind:
    case kInternal37Kind:
      return place;
    case kDoubleByteKind:
    case kMultiByteKind:
    case kGb18030Kind: {
      const unsigned char last = cs.kind == kDoubleByteKind ? 0x7F : 0x2F;  // of those that always end a character
      while (place > 0 && bytes[place - 1] > last) --place;
      return place;
    }
    default:  // in UTF-8 a byte is alone when none of the last four begins a character
      for (int i = place; i >= 0 && i >= at - 4; --i) {
        if (!isContinuation(text[i])) return i;
      }
      return place;
  }
}

bool MbWriter::put(const Character& c) {
  const bool shift = c.shifted != shifted_;
  const int needed = shift + c.size + c.shifted;  // behind double-byte text stays room for the shift-in
  if (needed > room_ - used_) return false;
  if (dst_) {
    if (shift) dst_[used_] = static_cast<char>(c.shifted ? kShiftOut : kShiftIn);
    std::memmove(dst_ + used_ + shift, c.bytes, static_cast<std::size_t>(c.size));
  }
  used_ += shift + c.size;
  shifted_ = c.shifted;
  return true;
}

bool MbWriter::put(const std::uint32_t* codes, std::size_t count, bool* known) {
  *known = true;
  const MbWriter before = *this;
  for (std::size_t i = 0; i < count; ++i) {
    char bytes[kMostBytes];
    const int size = encode(cs_, codes[i], bytes);
    *known = size > 0;
    MbReader reader(cs_, Text<char>(bytes, size));
    Character c;
    if (size > 0 && reader.next(c) && put(c)) continue;
    resume(before.used_, before.shifted_);
    return false;
  }
  return true;
}

int MbWriter::finish() {
  if (shifted_ && used_ < room_) {
    if (dst_) dst_[used_] = static_cast<char>(kShiftIn);
    ++used_;
    shifted_ = false;
  }
  return used_;
}

}  // namespace quillon
