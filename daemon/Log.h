#ifndef QUILLON_DAEMON_LOG_H_
#define QUILLON_DAEMON_LOG_H_

#include <string>
#include <string_view>
#include <utility>

#include "config/TomlTable.h"

namespace quillon {

enum class LogLevel { kError, kWarning, kInfo };

/// The table [log]: what a program says of itself on standard error.
struct LogConfig {
  LogLevel level = LogLevel::kInfo;
  bool json = false;
};

void readLog(TomlTable& table, LogConfig& log);

/// What a program says of itself, a line each on standard error: "quillon-adapter: warning: ...", or an object with
/// time, level and text. Control characters are made visible. A line is one write, so that those of several processes
/// and threads stay whole. Safe to use from several threads; configure() belongs before them or to one of them.
class Log {
 public:
  /// `program` stands before each line.
  explicit Log(std::string program) : program_(std::move(program)) {}

  void configure(const LogConfig& config) { config_ = config; }

  void error(std::string_view text) const { write(LogLevel::kError, text); }
  void warning(std::string_view text) const { write(LogLevel::kWarning, text); }
  void info(std::string_view text) const { write(LogLevel::kInfo, text); }

 private:
  void write(LogLevel level, std::string_view text) const;

  const std::string program_;
  LogConfig config_;
};

}  // namespace quillon

#endif  // QUILLON_DAEMON_LOG_H_
