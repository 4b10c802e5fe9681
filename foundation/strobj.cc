#include "foundation/strobj.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

namespace {

constexpr int kBlock = 108;
constexpr const char* kBlanks = " \t";

/// Room is handed out in whole blocks, with at least one byte for the terminator: 106 characters take one block, 107
/// take two.
constexpr int growth(int length) { return kBlock * ((length + 1) / kBlock + 1); }

/// The longest text whose growth() still fits an int twice over, which append() needs.
constexpr std::size_t kLongest = INT_MAX / 2 - 2 * kBlock;

/// `length` as an int; what does not fit is memory exhaustion.
int checkedLength(std::size_t length) {
  if (length > kLongest) {
    if (std::new_handler handler = std::get_new_handler()) handler();
    throw std::bad_alloc();
  }
  return static_cast<int>(length);
}

}  // namespace

std::size_t qlStrobj::repSize(int room) { return sizeof(srep) + static_cast<std::size_t>(room); }

qlStrobj::srep* qlStrobj::makeRep(int room) { return new (quillon::Pool::allocate(repSize(room))) srep{1, room}; }

/// One representation serves all null strings, another all cleared ones.
qlStrobj::srep* qlStrobj::sharedNull() {
  static constinit srep null{kPermanent, 0};
  return &null;
}

qlStrobj::srep* qlStrobj::sharedEmpty() {
  static constinit struct {
    srep rep{kPermanent, 1};
    char text[1] = "";
  } empty;
  return &empty.rep;
}

qlStrobj::srep* qlStrobj::retained(srep* shared) {
  if (shared && shared->refs != kPermanent) shared->refs += shared->refs > 0 ? 1 : -1;
  return shared;
}

qlStrobj qlStrobj::constant(std::string_view text) {
  qlStrobj made;
  const int length = checkedLength(text.size());
  made.rep = makeRep(length + 1);
  made.rep->refs = -1;
  made.len = length;
  made.capacity = growth(length);
  text.copy(made.rep->str(), text.size());
  made.rep->str()[length] = '\0';
  return made;
}

qlStrobj qlStrobj::permanent(std::string_view text) {
  qlStrobj made = constant(text);
  made.rep->refs = kPermanent;
  return made;
}

qlStrobj::qlStrobj() : rep(sharedNull()), len(0), capacity(0) {}

qlStrobj::qlStrobj(const char* text) : qlStrobj() {
  if (text) assign(text);
}

qlStrobj::qlStrobj(const unsigned char* text) : qlStrobj(reinterpret_cast<const char*>(text)) {}

qlStrobj::qlStrobj(std::string_view text) : qlStrobj() { assign(text); }

qlStrobj::qlStrobj(const qlStrobj& other) : rep(retained(other.rep)), len(other.len), capacity(other.capacity) {}

qlStrobj::qlStrobj(qlStrobj&& other) noexcept
    : rep(std::exchange(other.rep, nullptr)),
      len(std::exchange(other.len, 0)),
      capacity(std::exchange(other.capacity, 0)) {}

qlStrobj::~qlStrobj() { letGo(); }

qlStrobj qlStrobj::operator=(const char* text) {
  if (text) {
    assign(text);
  } else {
    adopt(sharedNull(), 0);
    capacity = 0;
  }
  return *this;
}

qlStrobj qlStrobj::operator=(const qlStrobj& other) {
  const int otherLen = other.len;
  const int otherCapacity = other.capacity;
  adopt(retained(other.rep), otherLen);
  capacity = otherCapacity;
  return *this;
}

void qlStrobj::clear() {
  if (isPrivate() && rep->room > 0) {
    *rep->str() = '\0';
    len = 0;
    return;
  }
  adopt(sharedEmpty(), 0);
  capacity = 0;
}

char& qlStrobj::operator[](int i) {
  if (i < 0 || (!isNull() && i > len)) std::fputs("index out of range", stderr);
  static thread_local char none;
  if (isNull()) return none = '\0';
  return getString()[i];
}

char* qlStrobj::setString(const char* text) {
  if (text && getString()) {
    const std::size_t needed = std::strlen(text) + 1;
    if (isPrivate() && needed > static_cast<std::size_t>(rep->room)) resize(std::max(capacity, checkedLength(needed)));
    std::strcpy(rep->str(), text);
  }
  return getString();
}

qlStrobj& qlStrobj::append(const char* text) { return text ? append(std::string_view(text)) : *this; }

qlStrobj& qlStrobj::append(std::string_view text) {
  if (text.empty()) return *this;
  if (isNull()) {
    assign(text);
    return *this;
  }
  const int total = checkedLength(static_cast<std::size_t>(len) + text.size());
  const int added = total - len;
  if (!isPrivate()) {
    capacity = growth(total);
  } else if (total >= capacity) {
    capacity += growth(added);
  }
  if (isPrivate() && total < rep->room) {
    std::memmove(rep->str() + len, text.data(), text.size());
  } else {
    // Half as much again as before, so that a text built from many pieces is not copied at each of them.
    srep* bigger = makeRep(std::max({capacity, total + 1, isPrivate() ? rep->room + rep->room / 2 : 0}));
    std::memcpy(bigger->str(), rep->str(), static_cast<std::size_t>(len));
    std::memcpy(bigger->str() + len, text.data(), text.size());
    adopt(bigger, len);
  }
  len = total;
  rep->str()[len] = '\0';
  return *this;
}

void qlStrobj::ltrim(const char* set) {
  if (isNull()) return;
  unshare();
  remove(static_cast<int>(std::strspn(rep->str(), set)));
}

void qlStrobj::rtrim(const char* set) {
  if (isNull() || len == 0) return;
  unshare();
  char* const text = rep->str();
  for (char* last = text + len - 1; last > text && std::strchr(set, *last); --last) *last = '\0';
  measure();
}

void qlStrobj::trim(const char* set) {
  rtrim(set);
  ltrim(set);
}

void qlStrobj::ljust(int n) {
  if (n < len) return;
  ltrim(kBlanks);
  srep* padded = makeRep(checkedLength(static_cast<std::size_t>(n)) + 1);
  std::memset(padded->str(), ' ', static_cast<std::size_t>(n));
  std::copy_n(view().data(), len, padded->str());
  padded->str()[n] = '\0';
  adopt(padded, n);
}

void qlStrobj::rjust(int n) {
  rtrim(kBlanks);
  if (n < len) return;
  srep* padded = makeRep(checkedLength(static_cast<std::size_t>(n)) + 1);
  std::memset(padded->str(), ' ', static_cast<std::size_t>(n));
  std::copy_n(view().data(), len, padded->str() + n - len);
  padded->str()[n] = '\0';
  adopt(padded, n);
}

void qlStrobj::center(int n) {
  if (isNull()) return;
  unshare();
  trim(kBlanks);
  if (n <= len) return;
  rjust((len + n) / 2);
  ljust(n);
}

void qlStrobj::remove(int n) {
  if (n <= 0 || n >= len) return;
  char* const text = getString();
  std::memmove(text, text + n, static_cast<std::size_t>(len - n) + 1);
  measure();
}

void qlStrobj::upper() {
  if (isNull()) return;
  unshare();
  std::transform(rep->str(), rep->str() + len, rep->str(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
}

void qlStrobj::lower() {
  if (isNull()) return;
  unshare();
  std::transform(rep->str(), rep->str() + len, rep->str(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

void qlStrobj::print() const {
  if (!isNull()) std::fputs(getString(), stdout);
}

bool qlStrobj::operator==(const char* text) const {
  const char* const own = getString();
  if (!own || !text || own == text) return own == text;
  return own[0] == text[0] && std::strcmp(own, text) == 0;
}

bool qlStrobj::operator!=(const char* text) const { return !(*this == text); }

/// For strings of one length. The null string has the length of the empty one, but is not it.
bool qlStrobj::sameText(const qlStrobj& other) const {
  const char* const own = getString();
  const char* const theirs = other.getString();
  return own && theirs ? std::strcmp(own, theirs) == 0 : own == theirs;
}

// Not the negation of == for strings without a representation: two of those differ in neither sense.
bool qlStrobj::operator!=(const qlStrobj& other) const {
  const char* const own = getString();
  const char* const theirs = other.getString();
  if (own && theirs) return len != other.len || std::strcmp(own, theirs) != 0;
  return own != theirs;
}

void qlStrobj::letGo() {
  if (!rep || rep->refs == kPermanent) return;
  rep->refs += rep->refs > 0 ? -1 : 1;
  if (rep->refs == 0) quillon::Pool::deallocate(rep, repSize(rep->room));
}

/// Takes over the caller's reference on `fresh`, whose text is `length` long, in place of the present representation.
void qlStrobj::adopt(srep* fresh, int length) {
  letGo();
  rep = fresh;
  len = length;
}

/// Gives this string the text in a private buffer, which may be the one it has. `text` may lie in the present text.
void qlStrobj::assign(std::string_view text) {
  if (text.empty()) text = "";  // an empty view may have no text at all
  const int length = checkedLength(text.size());
  const int size = growth(length);
  if (isPrivate() && rep->room == size) {
    std::memmove(rep->str(), text.data(), text.size());
    len = length;
  } else {
    srep* fresh = makeRep(size);
    std::memcpy(fresh->str(), text.data(), text.size());
    adopt(fresh, length);
  }
  rep->str()[len] = '\0';
  capacity = size;
}

/// Gives this string a text of its own to write to, in place of a constant. It has the room of one made from scratch,
/// or when nobody else holds the constant, that of the constant.
void qlStrobj::claim() {
  if (!isNull() && !isPrivate()) resize(std::max(capacity, len + 1));
}

/// Takes a private copy of exactly the present size when the representation is shared.
void qlStrobj::unshare() {
  if (!isPrivate()) resize(len + 1);
}

/// Puts the text into a private buffer of `room` bytes.
void qlStrobj::resize(int room) {
  srep* own = makeRep(room);
  std::memcpy(own->str(), rep->str(), static_cast<std::size_t>(len) + 1);
  adopt(own, len);
}

void qlStrobj::measure() { len = static_cast<int>(std::strlen(rep->str())); }
