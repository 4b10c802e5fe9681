#ifndef QUILLON_ADAPTER_RELOADER_H_
#define QUILLON_ADAPTER_RELOADER_H_

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "adapter/Setup.h"
#include "foundation/descriptor.h"

namespace quillon {

/// Reads the configuration again in a thread of its own, while the adapter goes on. Requests that come while it reads
/// make it read once more and forget what it had, so that the last one wins. For one thread, besides its own.
class Reloader {
 public:
  explicit Reloader(std::string path);
  Reloader(const Reloader&) = delete;
  Reloader& operator=(const Reloader&) = delete;
  ~Reloader();

  void request();

  /// What a reading came to; `setup` is null when something was wrong.
  struct Result {
    std::shared_ptr<const Setup> setup;
    std::vector<SetupReport> reports;
  };
  /// Readable, in the sense of poll(2), when take() has something.
  int descriptor() const { return ready_.get(); }
  std::optional<Result> take();

 private:
  void run();

  const std::string path_;
  Descriptor ready_;  ///< An eventfd.
  std::mutex mutex_;
  std::condition_variable wanted_;
  bool requested_ = false;
  bool stopping_ = false;
  std::optional<Result> result_;
  std::thread thread_;  ///< The last member: it uses the others.
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_RELOADER_H_
