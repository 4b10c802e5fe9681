#include <csignal>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
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
  struct Case {
    const char* slot;
    long kind;
    const char* rule;
    const char* expected;  ///< Format-file line; class-definition expression; value without a message.
  };
  const Case cases[] = {
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
  for (const Case& c : cases) {
    FormatSpec format("T");
    format.setFmtStr("%s %s");
    addSlot(format, "first", varMap, "$1");
    addSlot(format, "fixed", constMap, "c");
    MsgMapEntry* const e = addSlot(format, c.slot, c.kind, c.rule);
    std::string result(e->fmtMap(&format) << "; " << e->cdsMap(&format) << "; " << e->svalue(&format));
    EXPECT_EQ(c.expected, result);
    EXPECT_EQ("x", std::string(e->getName().view()));

    MapSpec copies("C");
    copies.copySlots(&format);
    EXPECT_EQ(dump(format), dump(copies));
    EXPECT_EQ(&format, (*copies.getMaps().begin())->getOwner());
  }
  EXPECT_EQ(nullptr, MsgMapEntry::create(nullptr, "x", 6));
}

TEST_F(Map, BrokenPrintArgumentIsMarked) {
  FormatSpec format("T");
  addSlot(format, "fixed", constMap, "c");
  addSlot(format, "msg", printMap, "\"%s%s%s\",fixed,nosuch,msg");
  EXPECT_EQ("fixed \"c\"; msg PRINTF(\"%s%s%s\", fixed !!!! , msg); ", dump(format));
}

TEST_F(Map, VariableNumbersAreChecked) {
  const std::pair<const char*, const char*> cases[] = {
      {"$2", ""},
      {"$3", "3,6,250 $3 must be between 1 and 2\n\n"},
      {"$0", "3,6,250 $0 must be between 1 and 2\n\n"},
      {"$", "3,6,250 $0 must be between 1 and 2\n\n"},
      {"$99999999999", "3,6,250 $2147483647 must be between 1 and 2\n\n"},
  };
  for (const auto& [rule, report] : cases) {
    FormatSpec format("T");
    format.setFmtStr("%s %s");
    CapturedReports reports;
    addSlot(format, "x", varMap, rule);
    EXPECT_EQ(report, reports.take()) << rule;
  }
}

TEST_F(Map, DumpForDebugging) {
  FormatSpec format("T");
  format.setFmtStr("%s %5s");
  addSlot(format, "-a", varMap, "$1");
  addSlot(format, "b", constMap, "c");
  addSlot(format, "d", defaultMap, "");
  addSlot(format, "e", labelMap, "");
  addSlot(format, "f", filenameMap, "");
  addSlot(format, "g", notifMap, "text");
  addSlot(format, "h", printMap, "\"%s\",a");
  testing::internal::CaptureStdout();
  format.dbgdump();
  format.MapSpec::dbgdump();
  const std::string entries =
      "\ta 1 $1\n\tb 0 \"c\"\n\td 0 DEFAULT\n\te 0 LABEL\n\tf 0 FILENAME\n\tg 0 text\n\th 0 PRINTF(\"%s\", a)\n";
  EXPECT_EQ("T numVars 2\n%s %5s\n" + entries + "T\n" + entries, testing::internal::GetCapturedStdout());
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

TEST_F(Follows, ReportsUnmappedAndDoublyMapped) {
  addSlot(*child.get(), "x", varMap, "$2");
  addSlot(*child.get(), "y", varMap, "$2");
  EXPECT_EQ(child.get(), child->verifySlot());
  EXPECT_EQ("C does not map $1 in format string\nin C $2 is used by more than one map\n", reports.take());
  child->addFollows(parent.get());
  child->removeSlot("y");
  reports.take();
  child->verifySlot();
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
}

TEST_F(Map, PrintFailuresEndTheProcess) {
  const std::string missing = "\nError: Failure during CDS mapping.\nCould not find value for '";
  const std::string entry = "' in this FMT entry:\n\n   x PRINTF(";
  const std::pair<const char*, std::string> cases[] = {
      {"\"%s %d\",a,a", missing + "\"%s %d\"" + entry + "\"%s %d\", a, a)\n\n"},
      {"\"%s\"", missing + "\"%s\"" + entry + "\"%s\")\n\n"},
      {"\"%s%s\",a,nosuch", missing + "nosuch" + entry + "\"%s%s\", a, nosuch)\n\n"},
      {"\"%%s\",x", "\nError: Failure during CDS mapping.\nDuplicate reference in FMT entry for variable: x\n\n"},
      {"\"%s\",y", "\nError: Failure during CDS mapping.\nDuplicate reference in FMT entry for variable: y\n\n"},
  };
  for (const auto& [rule, message] : cases) {
    FormatSpec format("T");
    addSlot(format, "a", constMap, "c");
    addSlot(format, "y", printMap, "\"%s\",x");
    MsgMapEntry* const e = addSlot(format, "x", printMap, rule);
    EXPECT_EXIT(e->cdsMap(&format), testing::ExitedWithCode(1), testing::Eq(message)) << rule;
  }
}

}  // namespace
}  // namespace quillon
