#include "daemon/Log.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "foundation/descriptor.h"
#include "foundation/json_text.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

constexpr std::array<std::string_view, 3> kLevels = {"error", "warning", "info"};

/// "2026-11-21T15:04:05.123Z"
std::string timestamp() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(milliseconds % 1000));
  return text;
}

}  // namespace

void readLog(TomlTable& table, LogConfig& log) {
  table.readWord("level", log.level,
                 {{"error", LogLevel::kError}, {"warning", LogLevel::kWarning}, {"info", LogLevel::kInfo}});
  table.readWord("form", log.json, {{"text", false}, {"json", true}});
  table.finish();
}

void Log::write(LogLevel level, std::string_view text) const {
  if (level > config_.level) return;
  const std::string_view name = kLevels[static_cast<std::size_t>(level)];
  std::string line;
  if (config_.json) {
    line.append("{\"time\":\"").append(timestamp()).append("\",\"level\":\"").append(name).append("\",\"text\":\"");
    appendJson(line, text);
    line += "\"}\n";
  } else {
    line.append(program_).append(": ").append(name).append(": ").append(visible(text)).append("\n");
  }
  static_cast<void>(writeAll(STDERR_FILENO, line));  // nobody is left to be told
}

}  // namespace quillon
