#ifndef QUILLON_FOUNDATION_REFCNT_H_
#define QUILLON_FOUNDATION_REFCNT_H_

#include <sys/single_threaded.h>

#include <atomic>
#include <utility>

#include "foundation/list.h"

/// Intrusive reference counts. A counted object has a member `int& refcnt()` that starts at 0; whoever keeps a pointer
/// to it holds one reference. No other file changes a count.
///
/// An object and all that is reached from it belong to one thread at a time. Only those with a member `isShared()` that
/// is true are counted on by several threads at once; these are never destroyed.
namespace quillon {

/// Adds `change` to the count of `object` and returns what it is then.
template <class T>
int count(T& object, int change) {
  if constexpr (requires { object.isShared(); }) {
    if (object.isShared() && !__libc_single_threaded) {
      return std::atomic_ref<int>(object.refcnt()).fetch_add(change, std::memory_order_relaxed) + change;
    }
  }
  return object.refcnt() += change;
}

/// Takes a reference on `object`, which may be null.
template <class T>
void retain(T* object) {
  if (object) count(*object, 1);
}

/// Gives a reference on `object` back and destroys the object when it was the last one. Null is allowed.
template <class T>
void release(T* object) {
  if (object && count(*object, -1) == 0) delete object;
}

/// Gives the list's reference on every element back and empties the list.
template <class T>
void releaseAll(qlList<T*>& list) {
  for (T* element : list) release(element);
  list.clear();
}

/// Holds one reference for as long as it lives.
template <class T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* object) : object_(object) { retain(object_); }
  Ref(const Ref& other) : Ref(other.object_) {}
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref() { release(object_); }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  T* object_ = nullptr;
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_REFCNT_H_
