#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_STATEFILE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_STATEFILE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/descriptor.h"
#include "src/adapters/logfile/source/LockFile.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Keeps the state of sources in a file: what Source::takeChanges() gives, to be handed back at the next start. One
/// process at a time has it, by a lock file beside it.
///
/// The file is text: a line "quillon-state 1", then batches, each "= BYTES CHECKSUM" and BYTES bytes of lines "SOURCE
/// KEY VALUE", the checksum being hashOf() them in hex. Batches are appended, and the file is written anew, aside, when
/// most of it is out of date. So a write that was cut short costs its own batch, and messages since then come again.
class StateFile {
 public:
  /// Opens the file or makes it. Null when that cannot be, with the reason in `error`. What is damaged in the file is
  /// passed over: `trouble` says so and where a copy of the file is, and the rest holds.
  [[nodiscard]] static std::unique_ptr<StateFile> open(const std::string& path, std::string& error,
                                                       std::string& trouble);

  /// What is kept for a source. Sources are told apart by name: without white space and never empty.
  std::vector<StateRecord> state(const std::string& source) const;
  /// The names of all sources that something is kept for.
  std::vector<std::string> sources() const;
  /// Forgets a source that is not there any more.
  [[nodiscard]] bool forget(const std::string& source);

  /// Keeps the changes, whole or not at all; with `sync` also through a loss of power. False with errno when they could
  /// not be written; the state is then what it was before.
  [[nodiscard]] bool keep(const std::string& source, const std::vector<StateRecord>& changes, bool sync);

  /// What a state file's text says, for those who only want to look. False when something in it is damaged.
  using Kept = std::map<std::string, std::map<std::string, std::string>>;
  [[nodiscard]] static bool parse(std::string_view text, Kept& kept);

 private:
  StateFile(std::string path, std::unique_ptr<LockFile> lock);

  static void apply(Kept& kept, std::string_view source, std::string_view key, std::string_view value);
  bool rewrite();
  bool append(const std::string& batch, bool sync);

  std::string path_;
  std::unique_ptr<LockFile> lock_;
  Descriptor file_;
  Kept kept_;
  std::uint64_t size_ = 0;       ///< Of the file, up to its last whole batch.
  std::uint64_t rewriteAt_ = 0;  ///< The size at which it is written anew.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_STATEFILE_H_
