#include "tools/quillon-codeset/table_builder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

#include "codeset/codeset.h"
#include "codeset/image.h"
#include "codeset/tables.h"
#include "tools/quillon-codeset/commands.h"

namespace quillon {
namespace {

constexpr std::size_t kMostBytes = 4;            // of one character
constexpr std::size_t kFourByteNumbers = 39420;  // GB 18030's four-byte codes up to the one of U+FFFF
constexpr char kShiftOut = 0x0E;
constexpr char kShiftIn = 0x0F;
constexpr char kEscape = 0x1B;

constexpr const char* kEscapes = "switches by escapes";
constexpr const char* kNoMemory = "needs more memory than there is";

void append(std::string& image, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i, value >>= 8) image += static_cast<char>(value & 0xFF);
}

void store(std::string& image, std::size_t offset, std::uint32_t value, int bytes) {
  std::string stored;
  append(stored, value, bytes);
  std::copy(stored.begin(), stored.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
}

void append16(std::string& image, std::span<const std::uint16_t> entries) {
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

std::string hexadecimal(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%s%02X", text.empty() ? "" : " ", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

std::string encodeWith(nxl_cs& cs, char32_t c) {
  const auto unit = static_cast<char16_t>(c);
  char bytes[2 * kMostBytes];
  return {bytes, static_cast<std::size_t>(nxl_from_ucs2(&cs, &unit, 1, bytes, sizeof bytes))};
}

char32_t decodeWith(nxl_cs& cs, const std::string& bytes) {
  char16_t c = 0;
  nxl_to_ucs2(&cs, bytes.data(), static_cast<int>(bytes.size()), &c, 1);
  return c;
}

}  // namespace

std::string TableBuilder::build(const std::string& name) {
  single_.fill(kUnmappable);
  std::string problem = chooseKind();
  if (!problem.empty()) return problem;
  Row first;
  longest_ = walk("", first);
  rows_[0] = first;
  if (kind_ == kMixedEbcdicKind) askDoubleBytes();
  if (kind_ == kGb18030Kind) askFourBytes();
  if (!too_long_.empty()) return whyTooLong();
  if (rows_.size() > kLeadRow) return "has too many lead bytes";
  if (kind_ == 0) kind_ = longest_ == 1 ? kSingleByteKind : longest_ == 2 ? kDoubleByteKind : kMultiByteKind;
  problem = askPages();
  if (!problem.empty()) return problem;
  makeImage(name);
  return countDifferences();
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

std::string TableBuilder::whyTooLong() const {
  if (too_long_.front() == kEscape) return kEscapes;
  return "has characters of more than " + std::to_string(kMostBytes) + " bytes, such as " + hexadecimal(too_long_);
}

// The entry for bytes of which the charset says so. U+FFFF, which is no character, counts as none.
std::uint16_t TableBuilder::entryOf(const std::string& bytes, Charset::Answer answer, char32_t c) {
  const bool beyond = answer == Charset::Answer::kCharacter && c > kUnmappable;
  if (beyond || answer == Charset::Answer::kSeveral) leaveOut(bytes);
  return answer == Charset::Answer::kCharacter && !beyond ? static_cast<std::uint16_t>(c) : kUnmappable;
}

// The character that `bytes` are, kUnmappable for none in UCS-2.
std::uint16_t TableBuilder::ask(const std::string& bytes) const {
  char32_t c = 0;
  if (charset_.decode(bytes, &c) != Charset::Answer::kCharacter || c > kUnmappable) return kUnmappable;
  return static_cast<std::uint16_t>(c);
}

// Asks for all characters that begin with `prefix` and enters them into `row`, the single bytes into their own place.
// Returns the bytes of the longest.
std::size_t TableBuilder::walk(const std::string& prefix, Row& row) {
  const bool doubled = kind_ == kMixedEbcdicKind && !prefix.empty();
  const bool leads = !doubled && (kind_ != kGb18030Kind || prefix.empty());
  row.fill(kUnmappable);
  std::size_t longest = 0;
  for (std::uint16_t& entry : row) {
    const std::string bytes = prefix + static_cast<char>(&entry - row.data());
    char32_t c = 0;
    const Charset::Answer answer = charset_.decode(doubled ? shifted(bytes) : bytes, &c);
    if (answer == Charset::Answer::kIncomplete && leads) {
      if (bytes.size() >= kMostBytes) too_long_ = bytes;
      if (!too_long_.empty()) return 0;
      longest = std::max(longest, enterRow(bytes, entry));
      continue;
    }
    const std::uint16_t found = entryOf(bytes, answer, c);
    if (found == kUnmappable) continue;
    (prefix.empty() ? single_[static_cast<unsigned char>(bytes.back())] : entry) = found;
    longest = std::max(longest, bytes.size());
  }
  return longest;
}

// Makes a row for what begins with `prefix` and enters it at the lead byte, unless it stays empty.
std::size_t TableBuilder::enterRow(const std::string& prefix, std::uint16_t& entry) {
  const std::size_t number = rows_.size();
  rows_.emplace_back();
  Row row;
  const std::size_t longest = walk(prefix, row);
  if (longest == 0) {
    rows_.resize(number);
  } else {
    const std::size_t more = longest > prefix.size() + 1 ? kLeadRow : 0;
    rows_[number] = row;
    entry = static_cast<std::uint16_t>(number | more);
  }
  return longest;
}

void TableBuilder::askDoubleBytes() {
  for (int lead = 0x40; lead <= 0xFE; ++lead) {
    const auto byte = static_cast<char>(lead);
    std::uint16_t entry = kUnmappable;
    longest_ = std::max(longest_, enterRow({byte}, entry));
    rows_[0][static_cast<unsigned char>(byte)] = entry;
  }
}

void TableBuilder::askFourBytes() {
  longest_ = kMostBytes;
  four_.assign(kFourByteNumbers, kUnmappable);
  for (std::size_t number = 0; number < kFourByteNumbers; ++number) four_[number] = ask(gb18030Code(number));
}

std::string TableBuilder::askPages() {
  for (std::uint16_t& index : page_index_) {
    Page page;
    page.fill(kUnmappableCode);
    bool empty = true;
    for (std::uint32_t& code : page) {
      std::string bytes =
          charset_.encode(static_cast<char32_t>((&index - page_index_.data()) << 8 | (&code - page.data())));
      if (bytes.size() > 1 && bytes.find(kEscape) != std::string::npos) return kEscapes;
      if (bytes.size() > 1 && bytes.front() == kShiftOut) bytes = bytes.substr(1, bytes.find(kShiftIn) - 1);
      if (bytes.size() > kMostBytes) too_long_ = bytes;
      if (!too_long_.empty()) return whyTooLong();
      if (bytes.empty() || bytes.size() > longest_) continue;
      code = 0;
      for (const char byte : bytes) code = code << 8 | static_cast<unsigned char>(byte);
      empty = false;
    }
    if (empty) continue;
    pages_.push_back(page);
    index = static_cast<std::uint16_t>(pages_.size());
  }
  return "";
}

// Counts the characters that the library with the table does not convert as the charset does.
std::string TableBuilder::countDifferences() {
  auto* table = static_cast<unsigned char*>(std::malloc(image_.size()));
  if (!table) return kNoMemory;
  std::memcpy(table, image_.data(), image_.size());
  const Codeset cs(codesetOf(table, static_cast<std::uint32_t>(image_.size())));
  if (!cs) return kNoMemory;
  for (char32_t c = 0; c < kUnmappable; ++c) {
    const std::string bytes = charset_.encode(c);
    char32_t back = 0;
    if (bytes.empty()) continue;
    const bool same = bytes == encodeWith(*cs, c) && (charset_.decode(bytes, &back) != Charset::Answer::kCharacter ||
                                                      back > kUnmappable || back == decodeWith(*cs, bytes));
    if (!same) leaveOut(bytes);
  }
  return "";
}

void TableBuilder::leaveOut(const std::string& bytes) {
  if (left_out_++ == 0) first_left_out_ = hexadecimal(bytes);
}

void TableBuilder::makeImage(const std::string& name) {
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
    for (const Row& row : rows_) append16(image, row);
  }
  if (!four_.empty()) {
    store(image, kFourByteOffset, position(), 4);
    store(image, kFourByteCount, static_cast<std::uint32_t>(four_.size()), 4);
    append16(image, four_);
  }
  store(image, kPagesOffset, position(), 4);
  const int width = kind_ == kMultiByteKind || kind_ == kGb18030Kind ? 4 : 2;
  for (const Page& page : pages_) {
    for (const std::uint32_t code : page) append(image, code, width);
  }
  image_ = std::move(image);
}

}  // namespace quillon
