#include <csignal>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/shared_text.h"
#include "tests/logfile/model.h"

namespace quillon {
namespace {

using Map = LogfileTest;

/// The lines that a format file would have for the maps of `spec`, with "<" behind those that it shares with others.
std::string dump(MapSpec& spec) {
  std::string text;
  for (MsgMapEntry* e : spec.getMaps()) {
    text += std::string(e->fmtMap(&spec).view()) + (e->refcnt() > 1 ? "<; " : "; ");
  }
  return text;
}

TEST_F(Map, EntriesOfEachKind) {
  // The last is the format-file line; the class-definition expression; the value without a message.
  const std::tuple<const char*, long, const char*, const char*> cases[] = {
      {"x", varMap, "$2", "x $2; $V3; "},
      {"-x", varMap, "$1", "-x $1; $V3; "},
      {"x", constMap, "WARNING", "x \"WARNING\"; \"WARNING\"; WARNING"},
      {"x", constMap, "\"a b\"", "x \"a b\"; \"a b\"; a b"},
      {"x", constMap, "a\"", "x \"a\"\"; \"a\"\"; a\""},  // only the first character is looked at
      {"x", defaultMap, "DEFAULT", "x DEFAULT; $V3; default"},
      {"x", labelMap, "LABEL", "x LABEL; $V3; label"},
      {"x", filenameMap, "FILENAME", "x FILENAME; $V3; filename"},
      {"x", notifMap, "\"text\"", "x ; $V3; ?\?\?"},
      {"x", printMap, "\"%s\",first", "x PRINTF(\"%s\", first); PRINTF(\"%s\", $V2); "},
      {"x", printMap, "\"%s\",fixed", "x PRINTF(\"%s\", fixed); PRINTF(\"%s\", \"c\"); c"},
      {"x", printMap, "\"\"", "x PRINTF(\"\"); PRINTF(\"\"); "},
      {"x", printMap, "\"100%\"", "x PRINTF(\"100%\"); PRINTF(\"100%\"); 100%"},
  };
  for (const auto& [slot, kind, rule, expected] : cases) {
    FormatSpec format("T");
    format.setFmtStr("%s %s");
    addSlot(format, "first", varMap, "$1");
    addSlot(format, "fixed", constMap, "c");
    MsgMapEntry* const e = addSlot(format, slot, kind, rule);
    EXPECT_EQ(expected, std::string(e->fmtMap(&format) << "; " << e->cdsMap(&format) << "; " << e->svalue(&format)));
    EXPECT_EQ("x", std::string(e->getName().view()));
    EXPECT_TRUE(kind != notifMap || static_cast<const NotifMapEntry*>(e)->getText() == "text");

    MapSpec copies("C");
    copies.copySlots(&format);
    EXPECT_EQ(dump(format), dump(copies));
    EXPECT_EQ(&format, (*copies.getMaps().begin())->getOwner());
  }
  EXPECT_EQ(nullptr, MsgMapEntry::create(nullptr, "x", 6));
}

// What one reading makes may share its texts; nobody can tell, whatever he writes to.
TEST_F(Map, TextsAreNobodyElses) {
  FormatSpec format("T");
  Ref<FormatComponent> words[2];
  Ref<MsgMapEntry> entries[2];
  {
    const SharedTexts texts;
    for (int i : {0, 1}) {
      words[i] = Ref(FormatComponent::create("word"));
      entries[i] = Ref(MsgMapEntry::create(&format, "slot", constMap)->addRule("word", &format));
    }
    (*words[0].get())[0] = 'x';
  }
  words[0]->setString("a longer one");
  qlStrobj name = entries[0]->getName();
  name.remove(2);
  qlStrobj value = entries[0]->cdsMap(&format);
  value[1] = 'x';
  EXPECT_EQ("word", words[1]->view());
  EXPECT_STREQ("slot \"word\"", entries[0]->fmtMap(&format).getString());
  EXPECT_STREQ("slot \"word\"", entries[1]->fmtMap(&format).getString());
}

/// However many slots: what a plain list of (slot, selected) says.
TEST_F(Map, BehavesAsAListAtAnySize) {
  std::mt19937 random(7);
  for (int slots : {3, 16, 17, 40}) {
    MapSpec map("T");
    std::vector<std::pair<std::string, bool>> model;
    for (int i = 0; i < 1500; ++i) {
      const std::string slot = "s" + std::to_string(random() % static_cast<unsigned>(slots));
      int expected = 0;
      auto found = model.begin();
      for (; found != model.end(); ++found) {
        expected += found->second;
        if (found->first == slot) break;
      }
      int count = -1;
      const MsgMapEntry* const e = map.getmap(slot.c_str(), count);
      ASSERT_EQ(found != model.end(), e != nullptr);
      ASSERT_EQ(expected, count) << slot << " among " << model.size();
      EXPECT_EQ(slot, e ? e->getName().getString() : slot);

      if (random() % 8 == 0) {
        map.removeSlot(slot.c_str());
        if (found != model.end()) model.erase(found);
        continue;
      }
      const bool selected = random() % 2;
      addSlot(map, slot, selected ? defaultMap : constMap, "c");
      if (found == model.end()) found = model.emplace(found, slot, false);
      found->second = selected;
    }
    std::string expected;
    for (const auto& [slot, selected] : model) expected += slot + (selected ? " DEFAULT; " : " \"c\"; ");
    EXPECT_EQ(expected, dump(map));
  }
}

class Follows : public LogfileTest {
 protected:
  Follows() {
    parent->setFmtStr("%s %s %s");
    addSlot(*parent.get(), "a", varMap, "$1");
    addSlot(*parent.get(), "b", constMap, "parent");
    addSlot(*parent.get(), "c", varMap, "$3");
    other->setFmtStr("%s");
    addSlot(*other.get(), "d", labelMap, "");
    child->setFmtStr("%s %s");
  }

  CapturedReports reports;
  const Ref<FormatSpec> parent{new FormatSpec("P")};
  const Ref<FormatSpec> other{new FormatSpec("O")};
  const Ref<FormatSpec> child{new FormatSpec("C")};
};

TEST_F(Follows, InheritsBehindItsOwn) {
  addSlot(*child.get(), "b", varMap, "$2");
  EXPECT_EQ(child.get(), child->addFollows(parent.get()));
  EXPECT_EQ("b $2; a $1<; ", dump(*child.get()));
  EXPECT_EQ("in C dropping inherited map `c $3'\n", reports.take());
  addSlot(*child.get(), "a", constMap, "own");  // in the place of the inherited one, which the parent keeps
  EXPECT_EQ("b $2; a \"own\"; ", dump(*child.get()));
  EXPECT_EQ("a $1; b \"parent\"; c $3; ", dump(*parent.get()));
}

TEST_F(Follows, AnotherParentReplacesTheFirst) {
  addSlot(*child.get(), "own", constMap, "c");
  child->addFollows(parent.get());
  child->addFollows(other.get());
  EXPECT_EQ("own \"c\"; d LABEL<; ", dump(*child.get()));
  child->addFollows(other.get());  // the same one: not lost on the way
  EXPECT_EQ("own \"c\"; d LABEL<; ", dump(*child.get()));
  child->addFollows(nullptr);
  EXPECT_EQ("own \"c\"; ", dump(*child.get()));
  EXPECT_EQ(1, parent->refcnt() * other->refcnt());
}

TEST_F(Follows, InheritedMapsCountAsMapped) {
  addSlot(*child.get(), "x", varMap, "$2");
  child->addFollows(parent.get());
  reports.take();
  EXPECT_EQ(child.get(), child->verifySlot());
  EXPECT_EQ("", reports.take());
}

TEST_F(Follows, ALongLineOfAncestorsGoesWithItsLastHolder) {
  Ref<FormatSpec> last = child;
  for (int i = 0; i < 200000; ++i) {
    Ref<FormatSpec> next(new FormatSpec("N"));
    next->addFollows(last.get());
    last = std::move(next);
  }
  last = Ref<FormatSpec>();
  EXPECT_EQ(1, child->refcnt());
}

TEST_F(Map, DestroyingWhatIsInUseAborts) {
  const auto destroy = [](auto* object) {
    retain(object);
    delete object;
  };
  EXPECT_EXIT(destroy(new MapSpec("T")), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(destroy(MsgMapEntry::create(nullptr, "x", varMap)), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(destroy(FormatComponent::create("text")), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace quillon
