#ifndef QUILLON_DELIVERY_CLIENT_BELL_H_
#define QUILLON_DELIVERY_CLIENT_BELL_H_

#include <sys/eventfd.h>

#include <atomic>

#include "foundation/descriptor.h"

namespace quillon::delivery {

/// Wakes a thread that waits in poll(2). However often it rings before that thread takes notice, it costs one call of
/// the system. ring() is for all threads, clear() for the one that is woken: it looks afterwards at what it was woken
/// for, so that nothing that was done before a ring is missed.
class Bell {
 public:
  Bell() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  void ring() {
    if (!isRung_.exchange(true)) eventfd_write(event_.get(), 1);
  }
  void clear() {
    eventfd_t ignored = 0;
    eventfd_read(event_.get(), &ignored);
    isRung_ = false;
  }
  /// Readable after a ring.
  int descriptor() const { return event_.get(); }

 private:
  const Descriptor event_;
  std::atomic<bool> isRung_ = false;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_BELL_H_
