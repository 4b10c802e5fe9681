#ifndef QUILLON_TESTS_SERVER_PROCESSES_H_
#define QUILLON_TESTS_SERVER_PROCESSES_H_

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "delivery/Record.h"

namespace quillon {

/// A process that is gone when this object is.
class Process {
 public:
  /// Runs `work` in it, whose result is its exit status; `killAt` is a checkpoint at which it ends by SIGKILL when it
  /// comes there for the so manieth time. The caller has no other threads.
  Process(const std::function<int()>& work, const std::string& killAt, int killAfter);
  /// Runs the program quillon-server. What it says is appended to `log`.
  Process(const std::filesystem::path& config, const std::filesystem::path& log);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  void signal(int number) const;
  bool runs();
  /// Waits for its end, for 30 s at most. What waitpid() says of it.
  int wait();

 private:
  pid_t id_;
  int status_ = 0;
  bool hasEnded_ = false;
};

/// The event server in this process; its exit status.
int runServer(const std::filesystem::path& config);

/// Waits until it holds, for 30 s at most. Whether it does.
bool waitUntil(const std::function<bool()>& holds);

/// What a cache holds, in order,
std::vector<std::string> bytesIn(const std::filesystem::path& cache);
/// and each record as JSON.
std::vector<std::string> recordsIn(const std::filesystem::path& cache);

/// The bytes of an event that can be told from others by its number.
std::string eventBytes(int number);
/// Of attributes for the class 0 of this set.
std::string attributeBytes(const delivery::SetId& set, int number);

/// A TCP port that was free a moment ago.
int freePort();

}  // namespace quillon

#endif  // QUILLON_TESTS_SERVER_PROCESSES_H_
