#ifndef QUILLON_FOUNDATION_LIST_H_
#define QUILLON_FOUNDATION_LIST_H_

#include <algorithm>
#include <cstddef>
#include <utility>

#include "foundation/pool.h"

template <class T>
class qlList;

/// The place of one element, which it never touches. A list is itself the place of its first one.
template <class T>
class qlNode : public quillon::Pooled {
 public:
  qlNode() = default;
  explicit qlNode(T element) : data(element) {}
  qlNode(const qlNode&) = delete;
  qlNode& operator=(const qlNode&) = delete;
  virtual ~qlNode() = default;

 private:
  friend class qlList<T>;

  T data = nullptr;
};

/// A list of pointers that carries its own cursor. Its elements stand at positions from 0 on. The list object is itself
/// the place of the first one, so the list is empty exactly when that is null; a null element further on ends counting
/// and iteration there. The list never owns what the elements point to.
///
/// A reference to an element is good until the next one is added or removed. Appending takes constant time on average,
/// finding an element and inserting in front of others a walk; positions are reached at once.
///
/// Classic iteration uses the cursor: `list[0]; while (list.has()) { use(list()); list++; }`. Range-`for` visits the
/// same elements and leaves the cursor alone.
///
/// For one thread at a time; constant members, range-`for` among them, for any number while nobody changes the list.
template <class T>
class qlList : public qlNode<T> {
 public:
  /// Goes on as it should when elements are appended meanwhile.
  class Iterator {
   public:
    Iterator() = default;  ///< The end of any list.
    Iterator(const qlList* list, int position) {
      if (position < list->size_ && list->at(position)) list_ = list, position_ = position;
    }
    T operator*() const { return list_->at(position_); }
    Iterator& operator++() {
      *this = Iterator(list_, position_ + 1);
      return *this;
    }
    bool operator==(const Iterator&) const = default;

   private:
    const qlList* list_ = nullptr;
    int position_ = 0;
  };

  qlList() = default;
  explicit qlList(const T& e) : qlNode<T>(e) {}

  /// Copies the places, not what the elements point to. Walks `other` with its cursor, which is null afterwards; the
  /// cursor of the copy stands on position 0.
  qlList(qlList& other) : qlNode<T>() { *this = other; }
  qlList& operator=(qlList& other) {
    if (this == &other) return *this;
    clear();
    for (other[0]; other.has(); other++) (*this)(other());
    other.cursor_ = kNowhere;
    cursor_ = 0;
    return *this;
  }

  ~qlList() override { clear(); }

  /// Removes all elements; the cursor returns to position 0.
  void clear() {
    if (more_) quillon::Pool::deallocate(more_, bytes(room_));
    more_ = nullptr;
    room_ = 0;
    size_ = 1;
    this->data = nullptr;
    cursor_ = 0;
  }

  /// Appends `e` and returns a reference to its place. The cursor moves to it, but stays where it was when the list
  /// was empty.
  T& operator()(const T& e) { return this->data ? insert(size_, e) : this->data = e; }

  /// Inserts `e` at position `pos`, or at the end of a shorter list, and returns a reference to its place, where the
  /// cursor then stands. At position 0 both the cursor and the result are instead on the former first element, which
  /// has become the second.
  T& operator()(const T& e, unsigned pos) {
    if (!this->data) return (*this)(e);
    if (pos > 0) return insert(static_cast<int>(std::min(pos, static_cast<unsigned>(size_))), e);
    const T second = std::exchange(this->data, T(e));
    return insert(1, second);
  }

  /// Puts `e` in the place of the first element equal to `old` and returns `e`, or `old` when there is none. The cursor
  /// stays where it was.
  T& operator()(T& old, T& e) {
    const int position = find(old);
    return position == kNowhere ? old : (at(position) = e, e);
  }

  /// The element under the cursor; that of position 0 when the cursor is null.
  T& operator()() { return at(std::max(cursor_, 0)); }

  /// True when the cursor stands on an element.
  bool has() const { return cursor_ != kNowhere && at(cursor_); }

  /// Moves the cursor to the next position and returns its element. At the end the cursor becomes null and the result
  /// is position 0's element.
  T& operator++(int) {
    cursor_ = cursor_ != kNowhere && cursor_ + 1 < size_ ? cursor_ + 1 : kNowhere;
    return (*this)();
  }

  /// Sets the cursor to position `i` (0 when negative). At or beyond the count the cursor may be null: ask has() before
  /// using the result.
  T& operator[](int i) {
    cursor_ = i < size_ ? std::max(i, 0) : kNowhere;
    return (*this)();
  }

  /// Sets the cursor to the first element equal to `e` and returns it. When there is none the cursor is null and the
  /// result is position 0's element: compare the result with `e`.
  T& operator[](const T& e) {
    cursor_ = find(e);
    return (*this)();
  }

  /// Takes the first element equal to `e` out and returns it; null when there is none. Those behind it move one
  /// position forward. Reset the cursor before it is used again.
  T remove(const T& e) {
    const T removed = e;  // `e` may be a reference into this list
    cursor_ = find(removed);
    if (cursor_ == kNowhere) return nullptr;
    for (int i = cursor_; i + 1 < size_; ++i) at(i) = at(i + 1);
    if (size_ > 1) {
      --size_;
    } else {
      this->data = nullptr;
    }
    cursor_ = std::max(cursor_ - 1, 0);
    return removed;
  }

  /// The number of elements up to the first null one. Walks with the cursor, which is null afterwards.
  int count() {
    int n = 0;
    for ((*this)[0]; has(); (*this)++) ++n;
    cursor_ = kNowhere;
    return n;
  }

  Iterator begin() const { return Iterator(this, 0); }
  Iterator end() const { return Iterator(); }

 private:
  static constexpr int kNowhere = -1;  ///< Where the cursor is behind a walk off the end: it is null.

  // NOLINTNEXTLINE(bugprone-sizeof-expression): elements are pointers
  static std::size_t bytes(int room) { return static_cast<std::size_t>(room) * sizeof(T); }

  T& at(int position) { return position == 0 ? this->data : more_[position - 1]; }
  const T& at(int position) const { return position == 0 ? this->data : more_[position - 1]; }

  /// The first position of `e`; kNowhere when it is not in the list.
  int find(const T& e) const {
    if (this->data == e) return 0;
    const T* const begin = more_;
    const T* const end = begin + (size_ - 1);
    const T* const found = std::find(begin, end, e);
    return found == end ? kNowhere : static_cast<int>(found - begin) + 1;
  }

  /// Inserts `e` at `position`, 1 to the size, and sets the cursor to it.
  T& insert(int position, T e) {
    if (size_ > room_) grow();
    T* const place = more_ + (position - 1);
    std::copy_backward(place, more_ + (size_ - 1), more_ + size_);
    ++size_;
    cursor_ = position;
    return *place = e;
  }

  void grow() {
    const int room = room_ < 8 ? std::max(2 * room_, 2) : room_ < 32 ? room_ + 8 : room_ + room_ / 2;
    T* const larger = static_cast<T*>(quillon::Pool::allocate(bytes(room)));
    std::copy_n(more_, room_, larger);
    if (more_) quillon::Pool::deallocate(more_, bytes(room_));
    more_ = larger;
    room_ = room;
  }

  T* more_ = nullptr;  ///< The elements from position 1 on.
  int room_ = 0;       ///< How many of those there is room for.
  int size_ = 1;       ///< Positions, the first among them also when the list is empty.
  int cursor_ = 0;
};

#endif  // QUILLON_FOUNDATION_LIST_H_
