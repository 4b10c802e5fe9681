#ifndef QUILLON_FOUNDATION_LIST_H_
#define QUILLON_FOUNDATION_LIST_H_

#include <utility>

#include "foundation/pool.h"

template <class T>
class qlList;

/// One link of a qlList. Never touches what its element points to.
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

  qlNode* next = nullptr;
  T data = nullptr;
};

/// A singly linked list of pointers that carries its own cursor. The list object is itself the first link ("position
/// 0"), so the list is empty exactly when its own element is null; a null element further on ends counting and
/// iteration there. The list owns its links and never what the elements point to.
///
/// A reference to an element stays valid until the element is removed, except that removing the first element moves
/// all others one position towards the front, and inserting at the front moves the first one.
///
/// Classic iteration uses the cursor: `list[0]; while (list.has()) { use(list()); list++; }`. Range-`for` visits the
/// same elements and leaves the cursor alone.
template <class T>
class qlList : public qlNode<T> {
 public:
  class Iterator {
   public:
    Iterator() = default;  ///< The end of any list.
    explicit Iterator(const qlNode<T>* node) : node_(node && node->data ? node : nullptr) {}
    T operator*() const { return node_->data; }
    Iterator& operator++() {
      *this = Iterator(node_->next);
      return *this;
    }
    bool operator==(const Iterator&) const = default;

   private:
    const qlNode<T>* node_ = nullptr;
  };

  qlList() = default;
  explicit qlList(const T& e) : qlNode<T>(e) {}

  /// Copies the links, not what they point to. Walks `other` with its cursor, which is null afterwards; the cursor of
  /// the copy stands on position 0.
  qlList(qlList& other) : qlNode<T>() { *this = other; }
  qlList& operator=(qlList& other) {
    if (this == &other) return *this;
    clear();
    for (other[0]; other.has(); other++) (*this)(other());
    other.cursor = nullptr;
    cursor = this;
    return *this;
  }

  ~qlList() override { clear(); }

  /// Removes all elements; the cursor returns to position 0.
  void clear() {
    while (this->next) delete std::exchange(this->next, this->next->next);
    this->data = nullptr;
    cursor = tail = this;
  }

  /// Appends `e` and returns a reference to its place. The cursor moves to it, but stays where it was when the list
  /// was empty. Takes constant time.
  T& operator()(const T& e) {
    if (!this->data) return this->data = e;
    linkAfter(tail, e);
    return cursor->data;
  }

  /// Inserts `e` at position `pos`, or at the end of a shorter list, and returns a reference to its place, where the
  /// cursor then stands. At position 0 both the cursor and the result are instead on the former first element, which
  /// has become the second.
  T& operator()(const T& e, unsigned pos) {
    if (!this->data) return (*this)(e);
    if (pos == 0) {
      linkAfter(this, e);
      std::swap(this->data, cursor->data);
      return cursor->data;
    }
    qlNode<T>* before = this;
    while (--pos > 0 && before->next) before = before->next;
    linkAfter(before, e);
    return cursor->data;
  }

  /// Puts `e` in the place of the first element equal to `old` and returns `e`, or `old` when there is none. The cursor
  /// stays where it was.
  T& operator()(T& old, T& e) {
    for (qlNode<T>* node = this; node; node = node->next) {
      if (node->data == old) {
        node->data = e;
        return e;
      }
    }
    return old;
  }

  /// The element under the cursor; that of position 0 when the cursor is null.
  T& operator()() { return cursor ? cursor->data : this->data; }

  /// True when the cursor stands on an element.
  bool has() const { return cursor && cursor->data; }

  /// Moves the cursor to the next position and returns its element. At the end the cursor becomes null and the result
  /// is position 0's element.
  T& operator++(int) {
    cursor = cursor ? cursor->next : nullptr;
    return (*this)();
  }

  /// Sets the cursor to position `i` (0 when negative). At or beyond the count the cursor may be null: ask has() before
  /// using the result.
  T& operator[](int i) {
    cursor = this;
    while (i-- > 0 && cursor) cursor = cursor->next;
    return (*this)();
  }

  /// Sets the cursor to the first element equal to `e` and returns it. When there is none the cursor is null and the
  /// result is position 0's element: compare the result with `e`.
  T& operator[](const T& e) {
    for (cursor = this; cursor && cursor->data != e;) cursor = cursor->next;
    return (*this)();
  }

  /// Takes the first element equal to `e` out and returns it; null when there is none. Reset the cursor before it is
  /// used again: it may stand on a link that is gone.
  T remove(const T& e) {
    const T removed = e;  // `e` may be a reference into this list
    if (this->data == removed) {
      removeFirst();
      return removed;
    }
    for (cursor = this; cursor->next; cursor = cursor->next) {
      if (cursor->next->data == removed) {
        dropNext(cursor);
        return removed;
      }
    }
    cursor = nullptr;
    return nullptr;
  }

  /// The number of elements up to the first null one. Walks with the cursor, which is null afterwards.
  int count() {
    int n = 0;
    for ((*this)[0]; has(); (*this)++) ++n;
    cursor = nullptr;
    return n;
  }

  Iterator begin() const { return Iterator(this); }
  Iterator end() const { return Iterator(); }

 private:
  /// Links a new node holding `e` after `node` and sets the cursor to it.
  void linkAfter(qlNode<T>* node, const T& e) {
    cursor = new qlNode<T>(e);
    cursor->next = node->next;
    node->next = cursor;
    if (node == tail) tail = cursor;
  }

  void dropNext(qlNode<T>* node) {
    if (node->next == tail) tail = node;
    delete std::exchange(node->next, node->next->next);
  }

  /// The first link is the list object itself and cannot be unlinked: every later element moves one position forward.
  void removeFirst() {
    cursor = this;
    if (!this->next) {
      this->data = nullptr;
      return;
    }
    qlNode<T>* node = this;
    for (; node->next != tail; node = node->next) node->data = node->next->data;
    node->data = tail->data;
    dropNext(node);
  }

  qlNode<T>* cursor = this;  ///< Null after a walk off the end.
  qlNode<T>* tail = this;    ///< The last link, so that appending does not walk.
};

#endif  // QUILLON_FOUNDATION_LIST_H_
