#include "foundation/list.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

#include "foundation/refcnt.h"

namespace {

using Letters = qlList<const char*>;

/// The element that stands for a letter: lists compare addresses.
const char* element(char letter) {
  static const char letters[] = "abcdefghijklmnopqrstuvwxyz";
  return letters + (letter - 'a');
}

/// "ab @b": the elements, and the one under the cursor ("-" when there is none).
std::string dump(Letters& list) {
  std::string text;
  for (const char* e : list) text += *e;
  return text + " @" + (list.has() ? *list() : '-');
}

/// Runs one step of a script and returns the letter that the operation gave, "-" for null.
std::string step(Letters& list, const std::string& text) {
  const char* result = nullptr;
  const char* e = element(text.back());
  if (text[0] == '+') result = list(e);
  if (text[0] == '-') result = list.remove(e);
  if (text[0] == '?') result = list[e];
  if (text[0] == '[') result = list[std::stoi(text.substr(1))];
  if (text[0] == '>') result = list++;
  if (text[0] == 'i') result = list(e, static_cast<unsigned>(text[1] - '0'));
  if (text[0] == '=') {
    const char* old = element(text[1]);
    result = list(old, e);
  }
  if (text == "null") list(nullptr);
  if (text == "clear") list.clear();
  if (text == "count") return std::to_string(list.count());
  return result ? std::string(1, *result) : "-";
}

TEST(List, OperationsAndTheCursor) {
  const std::pair<const char*, const char*> cases[] = {
      // the last result, then dump()
      {"+a", "a a @a"},                     // the first append leaves the cursor alone
      {"+a +b +c", "c abc @c"},             // the others take it along
      {"+a +b +c [0 > > +d", "d abcd @d"},  //
      {"+a +b i0x", "a xab @a"},            // in front: result and cursor on the old first
      {"+a +b i1x", "x axb @x"},
      {"+a i9x", "x ax @x"},          //
      {"+a +b i2x +c", "c abxc @c"},  //
      {"+a +b i0x +c", "c xabc @c"},  //
      {"+a +b +c -a [0", "b bc @b"},
      {"+a +b +c -b [0", "a ac @a"},  //
      {"+a -a +b +c", "c bc @c"},     //
      {"+a +b -z", "- ab @-"},
      {"+a +b -a +c", "c bc @c"},
      {"+a +b +a -a [1", "a ba @a"},  // only the first of equal ones goes
      {"+a +b +c ?b", "b abc @b"},
      {"+a +b +c ?z", "a abc @-"},  // not found: the first element, no cursor
      {"+a +b [-3", "a ab @a"},     //
      {"+a +b [1 >", "a ab @-"},    //
      {"+a +b +c [1 =bx", "x axc @x"},
      {"+a +b =zx", "z ab @b"},  //
      {"null count", "0  @-"},   // a null element: the list is still empty
      {"+a +b count", "2 ab @-"},
      {"+a null +b count", "1 a @-"},      //
      {"+a +b +c clear +d +e", "e de @e"}  //
  };
  for (const auto& [text, expected] : cases) {
    Letters list;
    std::string result;
    std::istringstream script(text);
    for (std::string word; script >> word;) result = step(list, word);
    EXPECT_EQ(expected, result + " " + dump(list)) << text;
  }
}

TEST(List, CopiesShareElementsAndNothingElse) {
  Letters source(element('a'));
  source(element('b'));
  Letters copy(source);
  EXPECT_FALSE(source.has());  // walked off its end
  EXPECT_EQ("ab @a", dump(copy));
  copy.remove(element('a'));
  source[0];
  EXPECT_EQ("ab @a", dump(source));
  copy = source;
  EXPECT_EQ("ab @a", dump(copy));
  copy[1];
  Letters& same = copy;
  copy = same;
  EXPECT_EQ("ab @b", dump(copy));
}

struct Counted {
  explicit Counted(int& alive) : alive_(alive) { ++alive_; }
  ~Counted() { --alive_; }
  int& refcnt() { return count; }
  int count = 0;
  int& alive_;
};

TEST(ReferenceCount, LastHolderDestroys) {
  int alive = 0;
  auto* object = new Counted(alive);
  {
    quillon::Ref<Counted> first(object);
    quillon::Ref<Counted> second = first;
    first = second;
    first = quillon::Ref<Counted>();
    EXPECT_EQ(1, object->count);
    qlList<Counted*> list(object);
    quillon::retain(object);
    quillon::releaseAll(list);
    EXPECT_EQ(0, list.count());
    EXPECT_EQ(1, alive);
  }
  EXPECT_EQ(0, alive);
}

}  // namespace
