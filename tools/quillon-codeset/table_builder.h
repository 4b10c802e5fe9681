#ifndef QUILLON_TOOLS_QUILLON_CODESET_TABLE_BUILDER_H_
#define QUILLON_TOOLS_QUILLON_CODESET_TABLE_BUILDER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/quillon-codeset/charset.h"

namespace quillon {

/// Makes the table file of a charset, as doc/codeset-tables.md describes it.
class TableBuilder {
 public:
  explicit TableBuilder(const Charset& charset) : charset_(charset) {}

  /// Asks for every code. Returns an empty string, or why the charset cannot be had as a table.
  std::string build();

  /// The file. `name` stands in its header, cut to the room there.
  std::string image(const std::string& name) const;

 private:
  std::string chooseKind();
  std::uint16_t ask(const std::string& bytes) const;
  std::size_t walk(const std::string& prefix, std::size_t row);
  std::size_t enterRow(const std::string& prefix, std::size_t row);
  void askDoubleBytes();
  void askFourBytes();
  std::string askPages();
  std::size_t addRow();

  const Charset& charset_;
  int kind_ = 0;
  std::size_t longest_ = 1;
  std::vector<std::uint16_t> single_;
  std::vector<std::uint16_t> rows_;
  std::vector<std::uint16_t> four_;
  std::vector<std::uint16_t> page_index_;
  std::vector<std::uint32_t> pages_;
};

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_CODESET_TABLE_BUILDER_H_
