#include "tests/logfile/model.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/common/SysLogUtils.h"
#include "src/adapters/logfile/common/diagnostics.h"

namespace quillon {
namespace {

std::string recorded;
ParseReporter* installed = nullptr;

[[gnu::format(printf, 5, 6)]] int record(int flags, int level, const char*, int site, const char* fmt, ...) {
  char text[600];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  recorded += std::to_string(flags) + "," + std::to_string(level) + "," + std::to_string(site) + " " + text + "\n";
  return 0;
}

}  // namespace

CapturedReports::CapturedReports() {
  installed = std::exchange(cefcn, record);
  recorded.clear();
  reporting_always = true;
  testing::internal::CaptureStderr();
}

CapturedReports::~CapturedReports() {
  testing::internal::GetCapturedStderr();
  cefcn = installed;
  reporting_always = false;
}

std::string CapturedReports::take() {
  const std::string text = std::exchange(recorded, "") + testing::internal::GetCapturedStderr();
  testing::internal::CaptureStderr();
  return text;
}

LogfileTest::LogfileTest() {
  FormatComponent::init();
  SysLogUtils::init();
}

MsgMapEntry* addSlot(MapSpec& spec, const std::string& slot, long kind, const std::string& rule) {
  MsgMapEntry* const entry = MsgMapEntry::create(&spec, slot.c_str(), kind);
  std::istringstream parts(rule);
  for (std::string part; std::getline(parts, part, kind == printMap ? ',' : '\0');) entry->addRule(part.c_str(), &spec);
  spec.addSlot(entry);
  return entry;
}

std::string values(const FormatSpec& format, bool bound) {
  if (!bound) return "no";
  std::string text;
  for (int n = 1; n <= format.numvars(); ++n) {
    if (n > 1) text += "|";
    text += format.value(n).view();
  }
  return text;
}

std::string bound(FormatSpec& format, const std::string& message, bool eventLog) {
  SysLogMsg msg(message.c_str());
  if (eventLog) msg.setEventFromEventLog();
  return values(format, format.bindConverted(msg));
}

void expectFromChild(const std::string& expected, const std::function<std::string()>& work) {
  const auto child = [&work] {
    std::fputs(work().c_str(), stderr);
    std::exit(EXIT_SUCCESS);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(EXIT_SUCCESS), testing::Eq(expected));
}

}  // namespace quillon
