#ifndef QUILLON_ADAPTER_POSITIONS_H_
#define QUILLON_ADAPTER_POSITIONS_H_

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "delivery/cache/format.h"
#include "src/adapters/logfile/source/Source.h"
#include "src/adapters/logfile/source/StateFile.h"

namespace quillon {

/// What was kept of a source.
struct KeptState {
  std::vector<StateRecord> records;
  bool damaged = false;  ///< There may have been more, even if there is nothing.
};

/// Where reading has come to, of each source: for the next start in a state file, or without one at least for the
/// sources that a reload ends and begins again. For one thread.
class Positions {
 public:
  /// In the state file `path`, whose directory is made when it is not there; in memory when that is empty. Null when
  /// that cannot be, with the reason in `error`. What was damaged is told in `damage`, and the rest holds.
  [[nodiscard]] static std::unique_ptr<Positions> open(const std::string& path, std::string& error,
                                                       std::string& damage);

  /// Kept by somebody else: `kept` is what he has, under "SOURCE/KEY", and what is new goes to `batch`. With
  /// `isDamaged` there may have been more.
  [[nodiscard]] static std::unique_ptr<Positions> in(const delivery::Positions& kept, bool isDamaged,
                                                     delivery::Batch& batch);

  /// The same, apart by source.
  static StateFile::Kept bySource(const delivery::Positions& kept);

  /// What is known of a source.
  KeptState of(const std::string& source) const;

  /// Forgets files that are not there any more, of sources that are not among the `configured` ones: nobody else would.
  /// Those that are there go on where they ended if the source comes back.
  void forgetDeleted(const std::set<std::string>& configured);

  /// Keeps changes; with `sync` on the disk. 0, or the errno of what failed: then these are kept with the next ones.
  [[nodiscard]] int keep(const std::string& source, const std::vector<StateRecord>& changes, bool sync);

 private:
  std::vector<std::string> sources() const;

  bool damaged_ = false;
  std::unique_ptr<StateFile> file_;   ///< Null: in memory.
  delivery::Batch* batch_ = nullptr;  ///< Where changes go besides.
  StateFile::Kept kept_;              ///< What the file does not have: all, or what could not be written.
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_POSITIONS_H_
