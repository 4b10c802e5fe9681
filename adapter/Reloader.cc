#include "adapter/Reloader.h"

#include <sys/eventfd.h>

#include <cstdint>
#include <utility>

namespace quillon {

Reloader::Reloader(std::string path)
    : path_(std::move(path)), ready_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { run(); }) {}

Reloader::~Reloader() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wanted_.notify_one();
  thread_.join();
}

void Reloader::request() {
  {
    const std::lock_guard lock(mutex_);
    requested_ = true;
  }
  wanted_.notify_one();
}

std::optional<Reloader::Result> Reloader::take() {
  eventfd_t ignored = 0;
  eventfd_read(ready_.get(), &ignored);
  const std::lock_guard lock(mutex_);
  return std::exchange(result_, std::nullopt);
}

void Reloader::run() {
  std::unique_lock lock(mutex_);
  while (true) {
    wanted_.wait(lock, [this] { return requested_ || stopping_; });
    if (stopping_) return;
    requested_ = false;
    lock.unlock();
    Result result;
    result.setup = loadSetup(path_, result.reports);
    lock.lock();
    if (requested_) continue;  // somebody has changed the files since
    result_ = std::move(result);
    eventfd_write(ready_.get(), 1);
  }
}

}  // namespace quillon
