#ifndef QUILLON_SERVER_CLASSSETS_H_
#define QUILLON_SERVER_CLASSSETS_H_

#include <sys/stat.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cds/EventMaker.h"
#include "delivery/Record.h"

struct nxl_cs;

namespace quillon {

/// The class definitions that are there: files, and what is in directories under a name that ends in ".cds". Each file
/// is a set, known by the hash of its bytes. What was once read good stays until the process ends, whatever becomes of
/// its file, so that a set never is known and then not. For one thread.
class ClassSets {
 public:
  /// Told a line each; faults have the file, line and column before them.
  using Report = std::function<void(bool isError, const std::string& text)>;

  ClassSets(std::vector<std::string> paths, nxl_cs* codeset, Report report);

  /// Reads what is new or has changed since the last time. False when something of it is no good, or not there; that
  /// was told, and is not told again while the file stays as it is.
  bool scan();

  /// What makes the events of a set; null when there is no such set.
  EventMaker* maker(const delivery::SetId& set);
  std::size_t size() const { return makers_.size(); }

 private:
  struct Seen {
    struct timespec changed {};
    off_t size = -1;  ///< Negative when the file could not be read.
    ino_t inode = 0;
    bool isGood = false;
  };

  void list(const std::string& path, std::vector<std::string>& files);
  void look(const std::string& file);
  bool read(const std::string& file);

  const std::vector<std::string> paths_;
  nxl_cs* const codeset_;
  const Report report_;
  std::map<std::string, Seen> seen_;
  std::map<delivery::SetId, std::unique_ptr<EventMaker>> makers_;
  delivery::SetId lastSet_{};   ///< What was asked for last,
  EventMaker* last_ = nullptr;  ///< and its answer, when there was one: most events are of the set of the one before.
};

}  // namespace quillon

#endif  // QUILLON_SERVER_CLASSSETS_H_
