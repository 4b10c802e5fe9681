#ifndef QUILLON_TESTS_ADAPTER_ADAPTER_PROCESS_H_
#define QUILLON_TESTS_ADAPTER_ADAPTER_PROCESS_H_

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>

namespace quillon {

/// An adapter at work in a process of its own, which is gone when this object is.
class AdapterProcess {
 public:
  struct Options {
    std::filesystem::path config;
    std::filesystem::path log;  ///< What it says is appended here.
    bool once = false;
    std::string killAt = {};  ///< A checkpoint at which it ends by SIGKILL,
    int killAfter = 1;        ///< when it comes there for the so manieth time.
  };

  explicit AdapterProcess(const Options& options);
  AdapterProcess(const AdapterProcess&) = delete;
  AdapterProcess& operator=(const AdapterProcess&) = delete;
  ~AdapterProcess();

  void signal(int number) const;
  /// True while it has not ended.
  bool runs();
  /// Waits for its end, for 30 s at most. What waitpid() says of it.
  int wait();

 private:
  pid_t id_;
  int status_ = 0;
  bool ended_ = false;
};

/// Waits until it holds, for 30 s at most. Whether it does.
bool waitUntil(const std::function<bool()>& holds);

}  // namespace quillon

#endif  // QUILLON_TESTS_ADAPTER_ADAPTER_PROCESS_H_
