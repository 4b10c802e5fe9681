#ifndef QUILLON_TOOLS_QUILLON_CODESET_TABLE_BUILDER_H_
#define QUILLON_TOOLS_QUILLON_CODESET_TABLE_BUILDER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "codeset/image.h"
#include "tools/quillon-codeset/charset.h"

namespace quillon {

/// Makes the table file of a charset, as doc/codeset-tables.md describes it.
class TableBuilder {
 public:
  explicit TableBuilder(const Charset& charset) : charset_(charset) {}

  /// Asks for every code and makes the file; `name` stands in its header, cut to the room there. Returns an empty
  /// string, or why there can be no table of the charset at all.
  std::string build(const std::string& name);

  /// The file.
  const std::string& image() const { return image_; }

  /// How many of its characters the library does not convert with the table as the charset does: those beyond U+FFFF,
  /// those of several codes, codes of several characters, and bytes below 0x80 that are not ASCII. And the first, as
  /// hexadecimal bytes.
  int leftOut() const { return left_out_; }
  const std::string& firstLeftOut() const { return first_left_out_; }

 private:
  using Row = std::array<std::uint16_t, kRowEntries>;
  using Page = std::array<std::uint32_t, kPageEntries>;

  std::string chooseKind();
  std::string whyTooLong() const;
  std::uint16_t entryOf(const std::string& bytes, Charset::Answer answer, char32_t c);
  std::uint16_t ask(const std::string& bytes) const;
  std::size_t walk(const std::string& prefix, Row& row);
  std::size_t enterRow(const std::string& prefix, std::uint16_t& entry);
  void askDoubleBytes();
  void askFourBytes();
  std::string askPages();
  void makeImage(const std::string& name);
  std::string countDifferences();
  void leaveOut(const std::string& bytes);

  const Charset& charset_;
  int kind_ = 0;
  int left_out_ = 0;
  std::string first_left_out_;
  std::size_t longest_ = 1;
  std::string too_long_;  ///< A character longer than a table can have, or its beginning.
  Row single_ = {};
  std::vector<Row> rows_ = {Row()};
  std::vector<std::uint16_t> four_;
  std::array<std::uint16_t, 256> page_index_ = {};
  std::vector<Page> pages_;
  std::string image_;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CODESET_TABLE_BUILDER_H_
