#include "tools/quillon-match/Binder.h"

#include <string>
#include <utility>
#include <vector>

#include "authoring/compare/Coverage.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "src/adapters/logfile/match/Matcher.h"

namespace quillon {
namespace {

template <bool kMeasures>
class FastBinder : public Binder {
 public:
  FastBinder(std::shared_ptr<const FormatSet> formats, bool fromEventLog)
      : matcher_(std::move(formats)), fromEventLog_(fromEventLog) {}

  const Bound* bind(std::string_view message) override {
    const std::string_view decoded = decoder_.decode(message);
    const Match* const match =
        kMeasures ? matcher_.bindTimed(decoded, fromEventLog_) : matcher_.bind(decoded, fromEventLog_);
    if (!match) return nullptr;
    bound_ = {match->place, match->eventId, match->values, decoder_.changesNothing() ? message : std::string_view()};
    return &bound_;
  }

  void tell(Coverage& coverage) const override {
    if (kMeasures) coverage.add(matcher_);
  }

 private:
  Matcher matcher_;
  const bool fromEventLog_;
  MessageDecoder decoder_;
  Bound bound_{};
};

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
    const int place = last_ - index;  // the driver counts from the end of its list
    bound_ = {static_cast<std::size_t>(place),
              static_cast<std::size_t>(driver_.isInFileOrder() ? place : index),
              values_,
              {}};
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

std::unique_ptr<Binder> makeFastBinder(std::shared_ptr<const FormatSet> formats, bool fromEventLog) {
  return std::make_unique<FastBinder<false>>(std::move(formats), fromEventLog);
}

std::unique_ptr<Binder> makeMeasuringBinder(std::shared_ptr<const FormatSet> formats, bool fromEventLog) {
  return std::make_unique<FastBinder<true>>(std::move(formats), fromEventLog);
}

std::unique_ptr<Binder> makePlainBinder(LogDriver& driver, bool fromEventLog) {
  return std::make_unique<PlainBinder>(driver, fromEventLog);
}

}  // namespace quillon
