#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILERECORD_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILERECORD_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "src/adapters/logfile/source/FileIdentity.h"

namespace quillon {

/// What a file source keeps of a file for its next start, as a StateRecord whose key is "file/ID". Also for whoever
/// wants to show it.
struct FileRecord {
  std::uint64_t id = 0;
  std::string path;   ///< The path that the file is followed by.
  std::string place;  ///< Where it is, as far as is known; another path once it was rotated.
  FileIdentity identity;
  std::uint32_t headLength = 0;  ///< The fingerprint of its beginning.
  std::uint64_t headHash = 0;
  std::uint64_t offset = 0;       ///< So many bytes have been taken care of.
  std::uint64_t tail = 0;         ///< tailHash() before `offset`.
  std::uint64_t size = 0;         ///< When it was last looked at,
  std::int64_t modified = 0;      ///< and its time.
  std::uint64_t predecessor = 0;  ///< The id of the file that comes before it; 0: none.
  std::uint64_t copyOf = 0;       ///< It is a copy of this file, and not read.
  bool away = false;              ///< It does not stand at `path` any more.
  bool passedOver = false;        ///< It is compressed, or was read elsewhere, and is not read.
  bool gone = false;              ///< It is not there any more, but not all that was read has been taken care of.
};

/// What a file source keeps of itself, under the key "source".
struct FileSourceRecord {
  std::int64_t lookedAt = 0;  ///< When it last looked at its files: fileClock().
  std::uint64_t lastId = 0;   ///< Ids up to here have been given.
};

/// The value of the state record: one line of text,
///
///     quillon-file 1 KEY=VALUE ... CHECKSUM
///
/// with blanks, control characters, '%' and '=' of paths as %XX; the checksum is hashOf() what stands before it, in
/// hex.
std::string encode(const FileRecord& record);
std::string encode(const FileSourceRecord& record);

/// The way back. Nothing when the text is damaged or of another version, with the reason in `error`; keys that are not
/// known are passed over.
std::optional<FileRecord> decodeFileRecord(std::string_view value, std::string& error);
std::optional<FileSourceRecord> decodeFileSourceRecord(std::string_view value, std::string& error);

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_FILERECORD_H_
