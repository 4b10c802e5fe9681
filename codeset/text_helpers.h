#ifndef QUILLON_CODESET_TEXT_HELPERS_H_
#define QUILLON_CODESET_TEXT_HELPERS_H_

#include <cstddef>
#include <new>
#include <optional>
#include <vector>

#include "codeset/text.h"
#include "codeset/unicode.h"

/// The helpers of codeset/uls.h, over any reader and writer of codeset/text.h.
namespace quillon {

inline constexpr int kNotFound = -1;
inline constexpr int kNoMemory = -2;

inline std::uint32_t number(Code code) { return code < kStray ? static_cast<std::uint32_t>(code) : kReplacement; }

/// The codes by which the characters of a text compare: their own, or those they fold to.
template <class Reader>
class Codes {
 public:
  /// At most `most` characters of what `reader` reads.
  Codes(const Reader& reader, bool folded, int most = INT_MAX) : reader_(reader), most_(most) {
    if (folded) mapper_.emplace(CaseForm::kFold);
  }

  /// The next code; false at the end.
  bool next(Code& code) {
    if (used_ == count_ && !nextCharacter()) return false;
    code = codes_[used_++];
    return true;
  }

  bool first() const { return used_ == 1; }      ///< Whether the code is the first of its character.
  bool last() const { return used_ == count_; }  ///< Whether it is the last.
  int begin() const { return begin_; }           ///< Where its character begins,
  int end() const { return reader_.offset(); }   ///< and ends.

 private:
  bool nextCharacter() {
    typename Reader::Character c;
    begin_ = reader_.offset();
    if (most_-- <= 0 || !reader_.next(c)) return false;
    used_ = 0;
    count_ = 1;
    codes_[0] = c.code;
    if (mapper_ && c.code < kStray) {
      const Mapped mapped = mapper_->map(number(c.code), LookAhead());
      count_ = mapped.count;
      for (std::size_t i = 0; i < count_; ++i) codes_[i] = mapped.codes[i];
    }
    return true;
  }

  Reader reader_;
  std::optional<CaseMapper> mapper_;
  int most_;
  Code codes_[Mapped::kMost] = {};
  std::size_t used_ = 0;
  std::size_t count_ = 0;
  int begin_ = 0;
};

template <class Reader>
int compare(Codes<Reader> a, Codes<Reader> b) {
  for (;;) {
    Code x = 0;
    Code y = 0;
    const bool more_a = a.next(x);
    const bool more_b = b.next(y);
    if (!more_a || !more_b) return more_a - more_b;
    if (x != y) return x < y ? -1 : 1;
  }
}

template <class Reader>
int countCharacters(Reader reader) {
  typename Reader::Character c;
  int count = 0;
  while (reader.next(c)) ++count;
  return count;
}

/// The place of the first piece that is no character; the end when there is none.
template <class Reader>
int validUpTo(Reader& reader) {
  typename Reader::Character c;
  for (int at = 0;; at = reader.offset()) {
    if (!reader.next(c)) return at;
    if (c.code >= kStray) return at;
  }
}

template <class Reader>
int findCharacter(Reader reader, wchar_t wanted, bool last) {
  typename Reader::Character c;
  int found = kNotFound;
  for (int at = 0; (last || found == kNotFound) && reader.next(c); at = reader.offset()) {
    if (c.code == static_cast<Code>(wanted)) found = at;
  }
  return found;
}

template <class Reader>
bool contains(Reader set, Code code) {
  typename Reader::Character c;
  while (set.next(c)) {
    if (c.code == code) return true;
  }
  return false;
}

/// Units of the longest start whose characters are in `set`, or are not.
template <class Reader>
int span(Reader reader, const Reader& set, bool in) {
  typename Reader::Character c;
  int end = 0;
  while (reader.next(c) && contains(set, c.code) == in) end = reader.offset();
  return end;
}

/// Finds a text of codes, one after another (Knuth, Morris and Pratt).
class Pattern {
 public:
  void add(Code code) {
    border_.push_back(codes_.empty() ? 0 : next(border_.back(), code));
    codes_.push_back(code);
  }

  std::size_t size() const { return codes_.size(); }

  /// How many codes of the pattern stand at the end of a text, given how many did before `code` came.
  std::size_t next(std::size_t matched, Code code) const {
    while (matched > 0 && (matched == codes_.size() || codes_[matched] != code)) matched = border_[matched - 1];
    return matched + (codes_[matched] == code);
  }

 private:
  std::vector<Code> codes_;
  std::vector<std::size_t> border_;  ///< Of each beginning: its longest true end that is a beginning as well.
};

template <class Reader>
int search(Codes<Reader> text, Codes<Reader> part, int* found_len) {
  Pattern pattern;
  Code code = 0;
  while (part.next(code)) pattern.add(code);
  if (found_len) *found_len = 0;
  if (pattern.size() == 0) return 0;
  // Where the last codes' characters begin; kNotFound for those in the middle of theirs.
  std::vector<int> begins(pattern.size(), kNotFound);
  std::size_t slot = 0;
  for (std::size_t matched = 0; text.next(code);) {
    begins[slot] = text.first() ? text.begin() : kNotFound;
    slot = (slot + 1) % begins.size();
    matched = pattern.next(matched, code);
    if (matched < pattern.size() || !text.last() || begins[slot] == kNotFound) continue;
    if (found_len) *found_len = text.end() - begins[slot];
    return begins[slot];
  }
  return kNotFound;
}

template <class Reader>
int find(const Reader& text, const Reader& part, bool folded, int* found_len) {
  try {
    return search(Codes<Reader>(text, folded), Codes<Reader>(part, folded), found_len);
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

template <class Reader>
int width(Reader reader) {
  typename Reader::Character c;
  int result = 0;
  while (reader.next(c)) result += c.code < kStray ? columns(number(c.code), c.wide) : 1;
  return result;
}

template <class Reader, class Writer>
int copyText(Reader reader, Writer writer) {
  typename Reader::Character c;
  while (reader.next(c) && writer.put(c)) {
  }
  return writer.finish();
}

template <class Reader, class Writer>
int mapCase(Reader reader, Writer writer, CaseForm form) {
  CaseMapper mapper(form);
  typename Reader::Character c;
  while (reader.next(c)) {
    LookAhead ahead;
    if (mapper.looksAhead(number(c.code))) {
      Reader rest = reader;
      typename Reader::Character following;
      while (rest.next(following) && ahead.add(number(following.code))) {
      }
    }
    const Mapped mapped = mapper.map(number(c.code), ahead);
    bool known = c.code < kStray && !mapped.is(number(c.code));
    if (known && writer.put(mapped.codes, mapped.count, &known)) continue;
    if (known || !writer.put(c)) break;  // without a counterpart it stays as it is
  }
  return writer.finish();
}

/// Has `write`, which is given the room for it, write a text to `dst`; what it returns is what a helper does.
template <class Unit, class Write>
int deliver(Unit* dst, int dst_len, bool terminated, Write write) {
  if (dst && dst_len <= 0) return 0;
  const int used = write(dst_len - terminated);
  if (dst && terminated) dst[used] = 0;
  return used + terminated;
}

}  // namespace quillon

#endif  // QUILLON_CODESET_TEXT_HELPERS_H_
