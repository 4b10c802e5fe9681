#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "foundation/characters.h"
#include "src/adapters/logfile/common/MapSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/shared_text.h"

namespace quillon {
namespace {

/// Of what a class definition cannot be written without. It is told even when nobody watches a terminal: half a class
/// is left on standard output.
constexpr ReportSite faultSite(ReportCode code) {
  return {code, Severity::kError, ReportSite::Printer::kStandardError,
          0,    kModelLevel,      "src/adapters/logfile/common/PrintMapEntry",
          0};
}

constexpr ReportSite kArgumentCountSite = faultSite(ReportCode::kPrintArgumentCount);
constexpr ReportSite kUnknownSlotSite = faultSite(ReportCode::kPrintUnknownSlot);
constexpr ReportSite kCircleSite = faultSite(ReportCode::kPrintCircle);

using Argument = qlList<qlStrobj*>::Iterator;

/// The first argument, behind the format text.
Argument firstArgument(const PrintMapEntry& entry) {
  Argument argument = entry.parts().begin();
  if (argument != Argument()) ++argument;
  return argument;
}

/// True when the format text has as many "%s" as arguments follow it.
bool countFits(const PrintMapEntry& entry) {
  const std::string_view format = entry.getFormat().view();
  int count = 0;
  for (std::size_t at = format.find("%s"); at != std::string_view::npos; at = format.find("%s", at + 2)) ++count;
  for (Argument argument = firstArgument(entry); argument != Argument(); ++argument) --count;
  return count == 0;
}

/// Writes the expression of one PRINTF and of those that it refers to.
///
/// With `all PRINTF("%s; %s", msg, host)`, `msg PRINTF("user %s", user)`, and `user` and `host` on the lines 2 and 3 of
/// SELECT: all is entered and writes PRINTF("%s; %s"; its first argument is a PRINTF, so msg is entered, writes
/// PRINTF("user %s", $V2) and is left; all goes on with $V3 and ends:
///
///     PRINTF("%s; %s", PRINTF("user %s", $V2), $V3)
///
/// Costs time and memory in proportion to what it writes. It keeps its own stack: how deep entries refer to each other
/// is up to the format file.
class PrintExpression {
 public:
  explicit PrintExpression(const MapSpec& spec) : spec_(spec) {}

  Expansion of(const PrintMapEntry& entry) {
    enter(entry);
    while (!open_.empty() && !result_.fault) {
      if (open_.back().argument == Argument()) {
        leave();
      } else {
        addArgument();
      }
    }
    return std::move(result_);
  }

 private:
  struct Level {
    const PrintMapEntry* entry;
    Argument argument;  ///< The next one to be written.
    int part;           ///< The number of the one that was written last; 0 is the format text.
  };

  void enter(const PrintMapEntry& entry) {
    const qlStrobj& format = entry.getFormat();
    if (!countFits(entry)) return fail(ReportCode::kPrintArgumentCount, entry, 0, format);
    open_.push_back({&entry, firstArgument(entry), 0});
    result_.text << "PRINTF(" << format;
  }

  void leave() {
    if (open_.size() > 1) nested_.erase(open_.back().entry);
    open_.pop_back();
    result_.text << ")";
  }

  void addArgument() {
    const PrintMapEntry& entry = *open_.back().entry;
    const qlStrobj& argument = **open_.back().argument;
    ++open_.back().argument;
    const int part = ++open_.back().part;
    const MsgMapEntry* const found = spec_.find(argument.view());
    if (!found) return fail(ReportCode::kPrintUnknownSlot, entry, part, argument);
    if (argument == entry.getName()) return fail(ReportCode::kPrintCircle, entry, part, argument);
    result_.text << ", ";
    if (found->kind() != printMap) {
      if (found->selected()) {
        result_.text.append("$V").append(Decimal(spec_.selectedUpTo(argument.view()) + 1).view());
      } else {
        result_.text << found->expression(spec_).text;
      }
      return;
    }
    const auto& nested = static_cast<const PrintMapEntry&>(*found);
    if (&nested == open_.front().entry || !nested_.insert(&nested).second) {
      return fail(ReportCode::kPrintCircle, entry, part, argument);
    }
    enter(nested);
  }

  void fail(ReportCode code, const PrintMapEntry& entry, int part, const qlStrobj& text) {
    result_.fault = PrintFault{code, &entry, part, text};
  }

  const MapSpec& spec_;
  std::vector<Level> open_;  ///< The entry asked for, and within it those that led to the one being written.
  std::unordered_set<const PrintMapEntry*> nested_;  ///< All of them but the first.
  Expansion result_;
};

/// Goes through PRINTFs and those that they refer to, into each once: what was left without a circle has none, whoever
/// refers to it. Keeps its own stack, for the same reason.
class PrintFaults {
 public:
  explicit PrintFaults(const MapSpec& spec) : spec_(spec) {}

  void add(const PrintMapEntry& entry) {
    enter(entry);
    while (!open_.empty()) {
      Level& level = open_.back();
      if (level.argument == Argument()) {
        isOpen_[level.entry] = false;
        open_.pop_back();
        continue;
      }
      const qlStrobj& argument = **level.argument;
      ++level.argument;
      ++level.part;
      const MsgMapEntry* const found = spec_.find(argument.view());
      if (!found) {
        fail(ReportCode::kPrintUnknownSlot, argument);
      } else if (found->kind() == printMap) {
        const auto& nested = static_cast<const PrintMapEntry&>(*found);
        const auto seen = isOpen_.find(&nested);
        if (seen == isOpen_.end()) {
          enter(nested);
        } else if (seen->second) {
          fail(ReportCode::kPrintCircle, argument);
        }
      }
    }
  }

  std::vector<PrintFault> take() { return std::move(faults_); }

 private:
  struct Level {
    const PrintMapEntry* entry;
    Argument argument;  ///< The next one to be looked at.
    int part;           ///< The number of the one before.
  };

  void enter(const PrintMapEntry& entry) {
    if (!isOpen_.emplace(&entry, true).second) return;
    open_.push_back({&entry, firstArgument(entry), 0});
    if (!countFits(entry)) fail(ReportCode::kPrintArgumentCount, entry.getFormat());
  }

  void fail(ReportCode code, const qlStrobj& text) {
    faults_.push_back({code, open_.back().entry, open_.back().part, text});
  }

  const MapSpec& spec_;
  std::vector<Level> open_;
  std::unordered_map<const PrintMapEntry*, bool> isOpen_;  ///< Those that were entered.
  std::vector<PrintFault> faults_;
};

/// "PRINTF("%s by %s", severity, user)"
std::string call(const PrintMapEntry& entry) {
  std::string text = "PRINTF(";
  const char* separator = "";
  for (const qlStrobj* part : entry.parts()) {
    text.append(separator).append(part->view());
    separator = ", ";
  }
  return text + ")";
}

}  // namespace

std::vector<PrintFault> printFaults(const MapSpec& spec) {
  PrintFaults faults(spec);
  for (const MsgMapEntry* entry : spec.getMaps()) {
    if (entry->kind() == printMap && entry->mapped()) faults.add(static_cast<const PrintMapEntry&>(*entry));
  }
  return faults.take();
}

void report(const PrintFault& fault) {
  const std::string name(fault.entry->getName().view());
  const std::string missing(fault.text.view());
  std::string printed = "\nError: Failure during CDS mapping.\n";
  std::string text;
  const ReportSite* site = &kCircleSite;
  if (fault.code == ReportCode::kPrintCircle) {
    printed += "Duplicate reference in FMT entry for variable: " + name + "\n\n";
    text = "PRINTF of " + name + " refers to itself";
  } else {
    printed += "Could not find value for '" + missing + "' in this FMT entry:\n\n   " + name + " " +
               call(*fault.entry) + "\n\n";
    const bool isCount = fault.code == ReportCode::kPrintArgumentCount;
    site = isCount ? &kArgumentCountSite : &kUnknownSlotSite;
    text = "PRINTF of " + name + (isCount ? " has another number of arguments than of %s" : " has no slot " + missing);
  }
  if (ReportSink* const sink = ReportScope::sink()) {
    Report report = makeReport(*site, {.format = nullptr, .entry = fault.entry, .part = fault.part}, printed);
    report.text = text;
    sink->take(std::move(report));
  } else {
    std::fputs(printed.c_str(), stderr);
  }
}

}  // namespace quillon

PrintMapEntry::PrintMapEntry(const MapSpec* map, const PrintMapEntry& e) : MsgMapEntry(map, e) {
  for (const qlStrobj* part : e.args) args(new qlStrobj(*part));
}

PrintMapEntry::~PrintMapEntry() {
  for (const qlStrobj* part : args) delete part;
}

qlStrobj PrintMapEntry::cdsMap(MapSpec* spec) {
  quillon::Expansion expansion = expand(*spec);
  if (expansion) return expansion.text;
  report(*expansion.fault);
  std::exit(EXIT_FAILURE);
}

quillon::Expansion PrintMapEntry::expand(const MapSpec& spec) const { return quillon::PrintExpression(spec).of(*this); }

qlStrobj PrintMapEntry::fmtMap(MapSpec* spec) {
  qlStrobj line = lineStart();
  line << "PRINTF(" << getFormat();
  for (quillon::Argument argument = quillon::firstArgument(*this); argument != quillon::Argument(); ++argument) {
    if (spec->find((*argument)->view())) {
      line << ", " << **argument;
    } else {
      // Without a comma no reader takes the line: whoever edits a format notices that its slot is gone, where the name
      // alone would pass for an argument until the next compile.
      line << " !!!! ";
    }
  }
  return line << ")";
}

qlStrobj PrintMapEntry::svalue(MapSpec* spec) {
  const std::string_view text = quillon::withoutEnds(getFormat().view());
  quillon::Argument argument = quillon::firstArgument(*this);
  qlStrobj value("");
  std::size_t copied = 0;
  for (std::size_t at = text.find("%s"); at != std::string_view::npos && argument != quillon::Argument();
       at = text.find("%s", at + 2)) {
    MsgMapEntry* const found = spec->find((*argument)->view());
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

void PrintMapEntry::dbgdump() { dumpLine(quillon::call(*this).c_str()); }

const qlStrobj& PrintMapEntry::getFormat() const {
  static const qlStrobj empty = qlStrobj::permanent("");
  return args.begin() == args.end() ? empty : **args.begin();
}
