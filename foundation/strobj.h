#ifndef QUILLON_FOUNDATION_STROBJ_H_
#define QUILLON_FOUNDATION_STROBJ_H_

#include <climits>
#include <string_view>
#include <utility>

#include "foundation/pool.h"

/// A byte string, NUL-terminated, without an encoding of its own. Copies share one representation, which is freed with
/// the last of them; most editing operations take a private copy first. All lengths and positions are bytes. Texts
/// longer than about 1 GB count as memory exhaustion (the installed new-handler runs, then std::bad_alloc).
///
/// The null string has no text at all. It equals another null string and a null text, and differs from "".
///
/// Copies of a string count on one counter, so all of them belong to one thread at a time. Null strings, cleared ones
/// and copies of a permanent() one are free of that.
///
/// A text made by constant() or permanent() is not written to while others hold it: who asks for it in order to write,
/// through a member that is not const, gets a copy of his own first. Other texts are written to where they are, for all
/// that hold them, except where an editing operation says that it takes a private copy.
class qlStrobj : public quillon::Pooled {
 public:
  qlStrobj();
  qlStrobj(const char* text);           // NOLINT(google-explicit-constructor): null gives the null string
  qlStrobj(const unsigned char* text);  // NOLINT(google-explicit-constructor)
  explicit qlStrobj(std::string_view text);
  qlStrobj(const qlStrobj& other);
  /// Leaves `other` without a representation: it may be assigned to and destroyed, and equals nothing.
  qlStrobj(qlStrobj&& other) noexcept;
  virtual ~qlStrobj();

  /// A string with no more room than `text` needs, for texts that are kept by the million, and shared without their
  /// holders' knowledge.
  static qlStrobj constant(std::string_view text);
  /// The same for texts that live as long as the process: any thread may copy it.
  static qlStrobj permanent(std::string_view text);

  /// Both assignments return a copy of this string, which shares its text.
  qlStrobj operator=(const char* text);       // NOLINT(misc-unconventional-assign-operator)
  qlStrobj operator=(const qlStrobj& other);  // NOLINT(misc-unconventional-assign-operator)

  /// Empties the text to "". A private buffer is kept for the next text; otherwise all empty strings share one.
  void clear();

  /// Character `i`; `i` equal to the length is the terminator. A negative `i`, or one beyond the terminator, is
  /// complained about on standard error, but the reference is returned all the same and must not be used.
  char& operator[](int i);

  /// The text itself, not a copy; null for the null string.
  operator const char*() const { return getString(); }  // NOLINT(google-explicit-constructor)
  operator char*() { return getString(); }              // NOLINT(google-explicit-constructor)
  operator const unsigned char*() const {               // NOLINT(google-explicit-constructor)
    return reinterpret_cast<const unsigned char*>(getString());
  }
  const char* getString() const { return rep ? rep->str() : nullptr; }
  char* getString() {
    if (rep && rep->refs < 0) claim();
    return rep ? rep->str() : nullptr;
  }
  /// The text without its terminator; empty for the null string.
  std::string_view view() const { return {isNull() ? "" : getString(), static_cast<std::size_t>(len)}; }

  int size() const { return len; }
  bool isNull() const { return !rep || rep->room == 0; }
  /// The bytes asked for by the constructors, assignments and appends so far (see growth()). Editing operations leave
  /// it as it was, so it may differ from the room there is.
  int allocated() const { return capacity; }

  /// Copies `text` over the present text, whose length stays as it was: the caller knows that it is as long. What does
  /// not fit into a text that others hold is not checked.
  char* setString(const char* text);

  /// Appends and returns this string. Null and empty texts change nothing. A text that grows piece by piece is copied
  /// a constant number of times on average.
  qlStrobj& append(const char* text);
  qlStrobj& append(std::string_view text);
  qlStrobj& operator<<(const char* text) { return append(text); }
  qlStrobj& operator<<(const qlStrobj& text) { return append(text.view()); }

  /// Remove the characters of `set` from the start, the end, or both (end first). The first character is never taken
  /// from the end, and a string of nothing but `set` keeps its start: three blanks trimmed give one blank.
  void ltrim(const char* set);
  void rtrim(const char* set);
  void trim(const char* set);

  /// Pad with blanks to `n` characters, after removing blanks and tabs on the padded side's far end: ljust() at the
  /// start, rjust() at the end. A text longer than `n` is not cut (ljust() then leaves it untouched).
  void ljust(int n);
  void rjust(int n);
  /// Trims, then gives the same text as ljust(): ljust() trims the padding that rjust() just put in front, so centred
  /// text ends up on the left. Existing output depends on it.
  void center(int n);

  /// Removes the first `n` characters. 0, a negative number or all of them: nothing happens. Does not take a private
  /// copy first.
  void remove(int n);

  /// Convert every character with the toupper/tolower of the current locale.
  void upper();
  void lower();

  /// Writes the text to standard output.
  void print() const;

  bool operator==(const char* text) const;
  bool operator!=(const char* text) const;
  bool operator==(const qlStrobj& other) const {
    return rep && other.rep && len == other.len && (rep == other.rep || sameText(other));
  }
  bool operator!=(const qlStrobj& other) const;

 private:
  /// The shared representation: this header, then `room` bytes of text in the same block. The null string's has none.
  struct srep {
    int refs;  ///< Negative when the text is constant; kPermanent when its holders are not counted.
    int room;
    char* str() { return room > 0 ? reinterpret_cast<char*>(this + 1) : nullptr; }
  };

  static constexpr int kPermanent = INT_MIN;

  static std::size_t repSize(int room);
  static srep* makeRep(int room);
  static srep* sharedNull();
  static srep* sharedEmpty();
  static srep* retained(srep* shared);

  bool sameText(const qlStrobj& other) const;
  /// True when nobody else holds the text. A constant is then a text like any other from now on.
  bool isPrivate() {
    if (rep && rep->refs == -1) rep->refs = 1;
    return rep && rep->refs == 1;
  }
  void letGo();
  void claim();
  void adopt(srep* fresh, int length);
  void assign(std::string_view text);
  void unshare();
  void resize(int room);
  void measure();

  srep* rep;
  int len;
  int capacity;
};

#endif  // QUILLON_FOUNDATION_STROBJ_H_
