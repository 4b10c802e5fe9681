#include "tools/quillon-match/Binder.h"

#include <string>
#include <vector>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {
namespace {

class PlainBinder : public Binder {
 public:
  PlainBinder(LogDriver& driver, bool fromEventLog) : driver_(driver), fromEventLog_(fromEventLog) {
    for ([[maybe_unused]] const FormatSpec* format : driver.getFormats()) ++last_;
  }

  const Bound* bind(std::string_view message) override {
    message_ = message;  // with a NUL byte behind it
    int index = 0;
    FormatSpec* const format = driver_.bind(message_.c_str(), index, fromEventLog_);
    if (!format) return nullptr;
    values_.clear();
    for (int n = 1; n <= format->numvars(); ++n) values_.push_back(format->value(n).view());
    bound_ = {static_cast<std::size_t>(last_ - index), values_, {}};  // the driver counts from the end of its list
    return &bound_;
  }

 private:
  LogDriver& driver_;
  const bool fromEventLog_;
  int last_ = -1;
  std::string message_;
  std::vector<std::string_view> values_;
  Bound bound_{};
};

}  // namespace

std::unique_ptr<Binder> makePlainBinder(LogDriver& driver, bool fromEventLog) {
  return std::make_unique<PlainBinder>(driver, fromEventLog);
}

}  // namespace quillon
