#ifndef QUILLON_CDS_CDSREADER_H_
#define QUILLON_CDS_CDSREADER_H_

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cds/ClassSet.h"

struct nxl_cs;

namespace quillon {

/// What is wrong at one place of a text of class definitions.
struct CdsFault {
  std::size_t line;    ///< From 1,
  std::size_t column;  ///< and in it the byte, from 1.
  std::string text;
};

/// What readCds() has made of a text.
struct [[nodiscard]] CdsReading {
  std::shared_ptr<const ClassSet> classes;  ///< Null when there are faults.
  std::vector<CdsFault> faults;             ///< In their order; reading ends at the twentieth.
  explicit operator bool() const { return classes != nullptr; }
};

/// Reads class definitions as quillon writes them, blank for blank: names and texts may have nearly any byte in them,
/// so it is the layout that tells what is what. Names and texts become UTF-8 where the format file was in `codeset`;
/// null means that they stay as they are. Names of attributes always do: adapters send them as the format file has
/// them.
///
/// A backslash in a quoted text keeps the character behind it from ending it, and stays. But quillon also puts words
/// into quotes as they are, and they may end in a backslash: `"C:\"`. Where such a text can end, it is taken to end;
/// when the class makes no sense then, it goes on.
///
/// Time is linear in the text, which has at most 512 MiB, and PRINTFs can be within each other as deeply as one likes.
CdsReading readCds(std::string_view text, nxl_cs* codeset = nullptr);

}  // namespace quillon

#endif  // QUILLON_CDS_CDSREADER_H_
