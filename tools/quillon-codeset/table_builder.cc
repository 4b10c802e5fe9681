#include "tools/quillon-codeset/table_builder.h"

#include <algorithm>
#include <cstring>

#include "codeset/codeset.h"
#include "codeset/image.h"

namespace quillon {
namespace {

constexpr std::size_t kMostBytes = 4;            // of one character
constexpr std::size_t kFourByteNumbers = 39420;  // GB 18030's four-byte codes up to the one of U+FFFF
constexpr char kShiftOut = 0x0E;
constexpr char kShiftIn = 0x0F;
constexpr char kEscape = 0x1B;

void append(std::string& image, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i, value >>= 8) image += static_cast<char>(value & 0xFF);
}

void store(std::string& image, std::size_t offset, std::uint32_t value, int bytes) {
  std::string stored;
  append(stored, value, bytes);
  std::copy(stored.begin(), stored.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
}

void append16(std::string& image, const std::vector<std::uint16_t>& entries) {
  for (const std::uint16_t entry : entries) append(image, entry, 2);
}

std::string gb18030Code(std::size_t number) {
  return {static_cast<char>(0x81 + number / 12600), static_cast<char>(0x30 + number / 1260 % 10),
          static_cast<char>(0x81 + number / 10 % 126), static_cast<char>(0x30 + number % 10)};
}

// Double-byte text in mixed EBCDIC.
std::string shifted(const std::string& bytes) {
  std::string text(1, kShiftOut);
  text += bytes;
  text += kShiftIn;
  return text;
}

}  // namespace

std::string TableBuilder::build() {
  single_.assign(256, kUnmappable);
  addRow();
  std::string problem = chooseKind();
  if (!problem.empty()) return problem;
  longest_ = walk("", 0);
  if (kind_ == kMixedEbcdicKind) askDoubleBytes();
  if (kind_ == kGb18030Kind) askFourBytes();
  if (rows_.size() / kRowEntries > kLeadRow) return "has too many lead bytes";
  if (kind_ == 0) kind_ = longest_ == 1 ? kSingleByteKind : longest_ == 2 ? kDoubleByteKind : kMultiByteKind;
  return askPages();
}

// Settles the kinds that do not follow from the length of the characters.
std::string TableBuilder::chooseKind() {
  if (ask("A") == 'A') {
    if (ask(gb18030Code(0)) != kUnmappable) kind_ = kGb18030Kind;
    return "";
  }
  if (ask("\xC1") != 'A') return "is neither ASCII nor EBCDIC";
  kind_ = ask("\x0E\x40\x40\x0F") != kUnmappable ? kMixedEbcdicKind : kEbcdicKind;
  return "";
}

// The character that `bytes` are, kUnmappable for none in UCS-2. U+FFFF, which is no character, counts as none.
std::uint16_t TableBuilder::ask(const std::string& bytes) const {
  char32_t c = 0;
  if (charset_.decode(bytes, &c) != Charset::Answer::kCharacter || c > kUnmappable) return kUnmappable;
  return static_cast<std::uint16_t>(c);
}

// Asks for all characters that begin with `prefix` and enters them into `row`, the single bytes into their own place.
// Returns the bytes of the longest.
std::size_t TableBuilder::walk(const std::string& prefix, std::size_t row) {
  const bool doubled = kind_ == kMixedEbcdicKind && !prefix.empty();
  const bool leads = kind_ == kGb18030Kind ? prefix.empty() : prefix.size() + 1 < kMostBytes;
  std::size_t longest = 0;
  for (std::size_t byte = 0; byte < 256; ++byte) {
    const std::string bytes = prefix + static_cast<char>(byte);
    char32_t ignored = 0;
    if (leads && !doubled && charset_.decode(bytes, &ignored) == Charset::Answer::kIncomplete) {
      longest = std::max(longest, enterRow(bytes, row));
      continue;
    }
    const std::uint16_t c = ask(doubled ? shifted(bytes) : bytes);
    if (c == kUnmappable) continue;
    (prefix.empty() ? single_[byte] : rows_[row * kRowEntries + byte]) = c;
    longest = std::max(longest, bytes.size());
  }
  return longest;
}

// Makes a row for what begins with `prefix` and enters it into the row of its lead byte, unless it stays empty.
std::size_t TableBuilder::enterRow(const std::string& prefix, std::size_t row) {
  const std::size_t child = addRow();
  const std::size_t longest = walk(prefix, child);
  if (longest == 0) {
    rows_.resize(child * kRowEntries);
  } else {
    const std::size_t more = longest > prefix.size() + 1 ? kLeadRow : 0;
    rows_[row * kRowEntries + static_cast<unsigned char>(prefix.back())] = static_cast<std::uint16_t>(child | more);
  }
  return longest;
}

void TableBuilder::askDoubleBytes() {
  for (int lead = 0x40; lead <= 0xFE; ++lead) longest_ = std::max(longest_, enterRow({static_cast<char>(lead)}, 0));
}

void TableBuilder::askFourBytes() {
  longest_ = kMostBytes;
  four_.assign(kFourByteNumbers, kUnmappable);
  for (std::size_t number = 0; number < kFourByteNumbers; ++number) four_[number] = ask(gb18030Code(number));
}

std::string TableBuilder::askPages() {
  page_index_.assign(256, 0);
  for (char32_t c = 0; c < 0x10000; ++c) {
    std::string bytes = charset_.encode(c);
    if (bytes.size() > 1 && bytes.find(kEscape) != std::string::npos) return "switches by escapes";
    if (bytes.size() > 1 && bytes.front() == kShiftOut) bytes = bytes.substr(1, bytes.find(kShiftIn) - 1);
    if (bytes.empty() || bytes.size() > longest_) continue;
    std::uint16_t& page = page_index_[c >> 8];
    if (page == 0) {
      pages_.resize(pages_.size() + kPageEntries, kUnmappableCode);
      page = static_cast<std::uint16_t>(pages_.size() / kPageEntries);
    }
    std::uint32_t code = 0;
    for (const char byte : bytes) code = code << 8 | static_cast<unsigned char>(byte);
    pages_[(page - 1u) * kPageEntries + (c & 0xFF)] = code;
  }
  return "";
}

std::string TableBuilder::image(const std::string& name) const {
  std::string image(kMinTableBytes, '\0');
  std::memcpy(image.data() + kMagicOffset, "ucv", 3);
  std::memcpy(image.data() + kNameOffset, name.data(), std::min(name.size(), kNameBytes - 1));
  store(image, kKindOffset, static_cast<std::uint32_t>(kind_), 2);
  store(image, kFamilyOffset, kind_ == kEbcdicKind ? kEbcdicFamily : 0, 2);
  store(image, kParamAOffset, static_cast<std::uint32_t>(longest_), 2);
  store(image, kParamBOffset, 1, 2);
  for (std::size_t i = 0; i < 256; ++i) {
    store(image, kSingleOffset + 2 * i, single_[i], 2);
    store(image, kPageIndexOffset + 2 * i, page_index_[i], 2);
  }
  const auto position = [&image] { return static_cast<std::uint32_t>(image.size()); };
  if (longest_ > 1) {
    store(image, kRowsOffset, position(), 4);
    append16(image, rows_);
  }
  if (!four_.empty()) {
    store(image, kFourByteOffset, position(), 4);
    store(image, kFourByteCount, static_cast<std::uint32_t>(four_.size()), 4);
    append16(image, four_);
  }
  store(image, kPagesOffset, position(), 4);
  const int width = kind_ == kMultiByteKind || kind_ == kGb18030Kind ? 4 : 2;
  for (const std::uint32_t code : pages_) append(image, code, width);
  return image;
}

std::size_t TableBuilder::addRow() {
  rows_.resize(rows_.size() + kRowEntries, kUnmappable);
  return rows_.size() / kRowEntries - 1;
}

}  // namespace quillon
