#ifndef QUILLON_TESTS_SOURCE_FILE_WORLD_H_
#define QUILLON_TESTS_SOURCE_FILE_WORLD_H_

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "src/adapters/logfile/source/FileSource.h"

namespace quillon {

namespace fs = std::filesystem;

/// A directory with logs, a file source that follows them, and a clock that moves only when told to. What is kept for a
/// restart stands in a map, as the program would keep it on disk.
class FileWorld : public SourceObserver {
 public:
  struct GapTold {
    std::string path;  ///< Relative to the directory.
    std::uint64_t from, to;
    bool open;
    std::string cause;
  };

  /// The directory must be empty. Paths of `options` are relative to it.
  FileWorld(fs::path directory, FileOptions options);

  /// Where `path`, relative to the directory, is.
  std::string at(const std::string& path) const { return (directory_ / path).string(); }
  void append(const std::string& path, const std::string& text);
  /// Gives the file a time of its own, as if some time had passed since the last one: steps take no time here.
  void stamp(const std::string& path);

  /// Starts the source with what was kept; stops it and keeps everything; drops it as SIGKILL does.
  void start();
  void stop();
  void kill() { source_.reset(); }
  bool isRunning() const { return source_ != nullptr; }

  /// Takes at most `most` messages at the present time, then after `wait`.
  void read(std::size_t most = SIZE_MAX);
  void wait(Duration time) { now_ += time; }
  /// Acknowledges all that was delivered and keeps it.
  void keep();
  /// Reads everything to its end; the source is gone then.
  void drain();

  struct Delivered {
    std::string path, text;
    std::uint64_t stream;
  };
  std::vector<Delivered> delivered;
  std::vector<GapTold> gaps;
  std::vector<std::string> notices;
  std::map<std::string, std::string> state;
  std::unique_ptr<FileSource> source_;

 private:
  void gap(const Gap& gap) override;
  void notice(Level level, std::string_view text) override;

  fs::path directory_;
  FileOptions options_;
  TimePoint now_ = TimePoint() + std::chrono::hours(1);
  std::vector<Position> unkept_;
  fs::file_time_type modified_ = fs::file_time_type::clock::now();
};

}  // namespace quillon

#endif  // QUILLON_TESTS_SOURCE_FILE_WORLD_H_
