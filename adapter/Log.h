#ifndef QUILLON_ADAPTER_LOG_H_
#define QUILLON_ADAPTER_LOG_H_

#include <string_view>

#include "adapter/Config.h"

namespace quillon {

/// What the adapter says of itself, a line each on standard error: "quillon-adapter: warning: ...", or an object with
/// time, level and text. Control characters are made visible. A line is one write, so that those of several processes
/// and threads stay whole. Safe to use from several threads; configure() belongs before them or to one of them.
class Log {
 public:
  void configure(const LogConfig& config) { config_ = config; }

  void error(std::string_view text) const { write(LogLevel::kError, text); }
  void warning(std::string_view text) const { write(LogLevel::kWarning, text); }
  void info(std::string_view text) const { write(LogLevel::kInfo, text); }

 private:
  void write(LogLevel level, std::string_view text) const;

  LogConfig config_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_LOG_H_
