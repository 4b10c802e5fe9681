#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/MapSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/shared_text.h"

namespace quillon {

/// Writes the expression of one PRINTF and of those that it refers to. Keeps its own stack: how deep entries refer to
/// each other is up to the format file.
class PrintExpression {
 public:
  explicit PrintExpression(MapSpec* spec) : spec_(spec) {}

  qlStrobj of(PrintMapEntry* entry) {
    enter(entry);
    while (!open_.empty()) {
      if (open_.back().argument == open_.back().entry->args.end()) {
        leave();
      } else {
        addArgument();
      }
    }
    return text_;
  }

 private:
  using Argument = qlList<qlStrobj*>::Iterator;

  struct Level {
    PrintMapEntry* entry;
    Argument argument;  ///< The next one to be written.
  };

  void enter(PrintMapEntry* entry) {
    const qlStrobj& format = entry->format();
    Argument argument = entry->args.begin();
    if (argument != entry->args.end()) ++argument;
    if (fields(format.view()) != countFrom(argument, entry->args.end())) failMissing(entry, format);
    entry->expanding = true;
    open_.push_back({entry, argument});
    text_ << "PRINTF(" << format;
  }

  void leave() {
    open_.back().entry->expanding = false;
    open_.pop_back();
    text_ << ")";
  }

  void addArgument() {
    PrintMapEntry* const entry = open_.back().entry;
    const qlStrobj& argument = **open_.back().argument;
    ++open_.back().argument;
    int selectedSoFar = 0;
    MsgMapEntry* const found = spec_->getmap(argument.getString(), selectedSoFar);
    if (!found) failMissing(entry, argument);
    if (argument == entry->getName()) failDuplicate(entry);
    text_ << ", ";
    if (found->kind() != printMap) {
      text_ << found->cdsMap(spec_);
      return;
    }
    auto* const nested = static_cast<PrintMapEntry*>(found);
    if (nested->expanding) failDuplicate(entry);
    enter(nested);
  }

  static int fields(std::string_view format) {
    int count = 0;
    for (std::size_t at = format.find("%s"); at != std::string_view::npos; at = format.find("%s", at + 2)) ++count;
    return count;
  }

  static int countFrom(Argument from, Argument end) {
    int count = 0;
    for (; from != end; ++from) ++count;
    return count;
  }

  [[noreturn]] static void failMissing(const PrintMapEntry* entry, const qlStrobj& missing) {
    std::fputs("\nError: Failure during CDS mapping.\n", stderr);
    std::fprintf(stderr, "Could not find value for '%s' in this FMT entry:\n\n", missing.view().data());
    std::fprintf(stderr, "   %s PRINTF(", entry->getName().view().data());
    const char* separator = "";
    for (const qlStrobj* part : entry->args) {
      std::fprintf(stderr, "%s%s", separator, part->view().data());
      separator = ", ";
    }
    std::fputs(")\n\n", stderr);
    std::exit(EXIT_FAILURE);
  }

  [[noreturn]] static void failDuplicate(const PrintMapEntry* entry) {
    std::fputs("\nError: Failure during CDS mapping.\n", stderr);
    std::fprintf(stderr, "Duplicate reference in FMT entry for variable: %s\n\n", entry->getName().view().data());
    std::exit(EXIT_FAILURE);
  }

  MapSpec* spec_;
  std::vector<Level> open_;  ///< The entry asked for, and within it those that led to the one being written.
  qlStrobj text_;
};

}  // namespace quillon

PrintMapEntry::PrintMapEntry(const MapSpec* map, const PrintMapEntry& e) : MsgMapEntry(map, e) {
  for (const qlStrobj* part : e.args) args(new qlStrobj(*part));
}

PrintMapEntry::~PrintMapEntry() {
  for (const qlStrobj* part : args) delete part;
}

qlStrobj PrintMapEntry::cdsMap(MapSpec* spec) { return quillon::PrintExpression(spec).of(this); }

qlStrobj PrintMapEntry::fmtMap(MapSpec* spec) {
  qlStrobj line = lineStart();
  line << "PRINTF(" << format();
  bool isArgument = false;
  for (const qlStrobj* part : args) {
    int selectedSoFar = 0;
    if (!isArgument) {
      isArgument = true;  // the first part is the format text
    } else if (spec->getmap(part->getString(), selectedSoFar)) {
      line << ", " << *part;
    } else {
      line << " !!!! ";
    }
  }
  return line << ")";
}

qlStrobj PrintMapEntry::svalue(MapSpec* spec) {
  const std::string_view quoted = format().view();
  const std::string_view text = quoted.size() < 2 ? std::string_view() : quoted.substr(1, quoted.size() - 2);
  qlList<qlStrobj*>::Iterator argument = args.begin();
  if (argument != args.end()) ++argument;
  qlStrobj value("");
  std::size_t copied = 0;
  for (std::size_t at = text.find("%s"); at != std::string_view::npos && argument != args.end();
       at = text.find("%s", at + 2)) {
    int selectedSoFar = 0;
    MsgMapEntry* const found = spec->getmap((*argument)->getString(), selectedSoFar);
    ++argument;
    if (!found || found->kind() == printMap) continue;
    value.append(text.substr(copied, at - copied)) << found->svalue(spec);
    copied = at + 2;
  }
  return value.append(text.substr(copied));
}

MsgMapEntry* PrintMapEntry::addRule(const char* text, MapSpec* /*spec*/) {
  args(new qlStrobj(quillon::sharedText(text)));
  return this;
}

void PrintMapEntry::dbgdump() {
  qlStrobj text("PRINTF(");
  const char* separator = "";
  for (const qlStrobj* part : args) {
    text << separator << *part;
    separator = ", ";
  }
  text << ")";
  dumpLine(text.getString());
}

const qlStrobj& PrintMapEntry::format() const {
  static const qlStrobj empty("");
  return args.begin() == args.end() ? empty : **args.begin();
}
