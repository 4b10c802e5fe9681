#ifndef QUILLON_FOUNDATION_BOUNDED_QUEUE_H_
#define QUILLON_FOUNDATION_BOUNDED_QUEUE_H_

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace quillon {

/// Hands elements from some threads to others, in order, and makes those that are ahead wait: a pipeline's memory stays
/// within bounds. Any number of threads may push and pop; closing wakes all that wait. Elements are moved, and a queue
/// that is made takes no more memory. It must outlive every call on it.
///
///     BoundedQueue<Block> queue(8);
///     std::jthread reader([&] { while (auto block = read()) if (!queue.push(*block)) break; queue.close(); });
///     while (std::optional<Block> block = queue.pop()) bind(*block);
template <class T>
class BoundedQueue {
 public:
  /// For `capacity` elements, at least 1, at a time.
  explicit BoundedQueue(std::size_t capacity)
      : capacity_(capacity > 0 ? capacity : 1), places_(std::make_unique<std::optional<T>[]>(capacity_)) {}
  BoundedQueue(const BoundedQueue&) = delete;
  BoundedQueue& operator=(const BoundedQueue&) = delete;

  /// Moves `element` to the end, when there is room for it. False when the queue is closed, also while this waits:
  /// `element` is then as it was.
  [[nodiscard]] bool push(T& element) {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [this] { return size_ < capacity_ || closed_; });
    if (closed_) return false;
    places_[(first_ + size_++) % capacity_].emplace(std::move(element));
    lock.unlock();
    filled_.notify_one();
    return true;
  }
  [[nodiscard]] bool push(T&& element) { return push(element); }

  /// The first element, when there is one; nothing when the queue is closed and all its elements are gone.
  [[nodiscard]] std::optional<T> pop() {
    std::unique_lock lock(mutex_);
    filled_.wait(lock, [this] { return size_ > 0 || closed_; });
    if (size_ == 0) return std::nullopt;
    std::optional<T> element = std::exchange(places_[first_], std::nullopt);
    first_ = (first_ + 1) % capacity_;
    --size_;
    lock.unlock();
    room_.notify_one();
    return element;
  }

  /// From now on nothing can be pushed. What is in the queue can still be popped.
  void close() {
    {
      const std::lock_guard lock(mutex_);
      closed_ = true;
    }
    room_.notify_all();
    filled_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable room_;    ///< There may be room, or the queue was closed.
  std::condition_variable filled_;  ///< There may be an element, or the queue was closed.
  const std::size_t capacity_;
  const std::unique_ptr<std::optional<T>[]> places_;  ///< A ring.
  std::size_t first_ = 0;
  std::size_t size_ = 0;
  bool closed_ = false;
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_BOUNDED_QUEUE_H_
