#include "src/adapters/logfile/common/LogDriver.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/common/SysLogUtils.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/eConfig.h"

namespace {

constexpr const char* kModule = "src/adapters/logfile/common/LogDriver";

/// The sites of this module's reports.
constexpr int kUnmatchedSite = 57;
constexpr int kUnreadableSite = 61;

/// Lets `write` write to the file `path`, or to standard output when it is null. True when all of it arrived.
template <class Writer>
bool writeTo(const char* path, const Writer& write) {
  std::FILE* const stream = path ? std::fopen(path, "w") : stdout;
  if (!stream) return false;
  write(stream);
  const bool complete = std::fflush(stream) == 0 && !std::ferror(stream);
  return (!path || std::fclose(stream) == 0) && complete;
}

}  // namespace

LogDriver::LogDriver() {
  FormatComponent::init();
  SysLogUtils::init();
}

LogDriver::LogDriver(const char* fmtfile, const char* outfile, int fatal) : LogDriver() {
  pefcn = ZORAD_Error;
  ptfcn = ZORAD_Error;
  cefcn = parse_error;
  cwfcn = parse_warning;
  read(fmtfile, outfile, fatal);
}

LogDriver::LogDriver(const char* fmtfile, int fatal) { const LogDriver check(fmtfile, nullptr, fatal); }

LogDriver::~LogDriver() { close(); }

void LogDriver::reloadFmts(const char* fmtfile, const char* outfile, int fatal) {
  close();
  read(fmtfile, outfile, fatal);
}

void LogDriver::read(const char* fmtfile, const char* outfile, int fatal) {
  if (outfile) {
    unmatched = std::fopen(outfile, "a");
    if (!unmatched)
      ZORAD_Error(quillon::kDriverLevel, kModule, kUnmatchedSite, 1, -1, "cannot open file `%s'\n", outfile);
  }
  parseResult = ReadFmt(fmtfile, this);
  if (parseResult != 0 && fatal > 0) {
    ZORAD_Error(quillon::kDriverLevel, kModule, kUnreadableSite, 0, 1, "Error reading format file: %s", fmtfile);
    std::exit(EXIT_FAILURE);
  }
  maxVars = 1;
  variables.assign(1, nullptr);
  for (FormatSpec* spec : formats) prepare(*spec);
}

void LogDriver::prepare(FormatSpec& made) {
  maxVars = std::max(maxVars, made.numvars());
  variables.resize(static_cast<std::size_t>(maxVars));
  made.UTF8fmt();
}

void LogDriver::close() {
  byName_.clear();
  indexed_ = true;
  inFileOrder_ = true;
  quillon::releaseAll(formats);
  if (unmatched) std::fclose(std::exchange(unmatched, nullptr));
}

void LogDriver::addFormatSpec(const FormatSpec* added) {
  auto* const spec = const_cast<FormatSpec*>(added);  // the driver owns it from here on, and may change it
  formats(spec);
  quillon::retain(spec);
  if (indexed_) byName_.emplace(spec->getName().view(), spec);
}

FormatSpec* LogDriver::getFormatSpec(const char* name) {
  if (!indexed_) {
    byName_.clear();
    for (FormatSpec* spec : formats) byName_.emplace(spec->getName().view(), spec);
    indexed_ = true;
  }
  const auto found = byName_.find(name ? name : "");
  return found != byName_.end() && found->second->getName() == name ? found->second : nullptr;
}

void LogDriver::removeFormatSpec(const char* name) {
  FormatSpec* const spec = getFormatSpec(name);
  if (!spec) return;
  indexed_ = false;
  formats.remove(spec);
  quillon::release(spec);
}

void LogDriver::editorAdd(const FormatSpec* added) {
  auto* spec = const_cast<FormatSpec*>(added);  // as above
  FormatSpec* old = getFormatSpec(spec->getName().getString());
  if (old == spec) return;
  indexed_ = false;
  quillon::retain(spec);
  if (!old) {
    formats(spec, 0);
    return;
  }
  for (MsgMapEntry* e : spec->getMaps()) {
    if (e->getOwner() == old) e->setOwner(spec);
  }
  spec->addFollows(old->getFollows());
  formats(old, spec);
  quillon::release(old);
}

std::vector<FormatSpec*> LogDriver::listed() const {
  std::vector<FormatSpec*> all;
  for (FormatSpec* spec : formats) all.push_back(spec);
  return all;
}

void LogDriver::orderFmts() {
  const std::vector<FormatSpec*> reading = listed();
  formats.clear();
  indexed_ = false;
  inFileOrder_ = !inFileOrder_;
  for (auto spec = reading.rbegin(); spec != reading.rend(); ++spec) formats((*spec)->verifySlot());
}

FormatSpec* LogDriver::bind(const char* message, int& index, int fromEventLog) {
  static const int last = formats.count() - 1;
  index = last;
  SysLogMsg converted = FormatSpec::toUtf8(message, fromEventLog);
  for (FormatSpec* spec : formats) {
    if (spec->bindConverted(converted)) return spec;
    --index;
  }
  if (unmatched) {
    const std::string_view text = message ? message : "";
    std::fprintf(unmatched, text.ends_with('\n') ? "%s" : "%s\n", text.data());
    std::fflush(unmatched);
  }
  return nullptr;
}

int LogDriver::write_cds(const char* path) {
  return writeTo(path, [this](std::FILE* stream) {
    int index = 0;
    for (FormatSpec* spec : formats) spec->emitCds(stream, index++);
  });
}

int LogDriver::write_fmt(const char* path) {
  return writeTo(path, [this](std::FILE* stream) {
    int index = 0;
    for (FormatSpec* spec : formats) spec->genFmt(stream, this, index++);
  });
}

void LogDriver::dbgdump() {
  if (!isatty(STDOUT_FILENO)) return;
  for (FormatSpec* spec : formats) spec->dbgdump();
}
