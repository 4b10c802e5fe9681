#include "authoring/samples/SampleRunner.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "authoring/explain/SlotValues.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "src/adapters/logfile/match/Matcher.h"

namespace quillon {
namespace {

/// The value that `name`, a slot or a variable, has in a bound message; nothing when there is none of that name.
class BoundValues {
 public:
  BoundValues(const FormatSpec& format, std::span<const std::string_view> values)
      : variables_(values), slots_(slotValues(format, values)) {}

  std::optional<std::string> find(const Sample::Value& value, std::string_view name) const {
    if (const int n = value.variable(); n > 0) {
      if (static_cast<std::size_t>(n) > variables_.size()) return std::nullopt;
      return std::string(variables_[static_cast<std::size_t>(n) - 1]);
    }
    const auto found = std::ranges::find(slots_, name, &SlotValue::name);
    return found == slots_.end() ? std::nullopt : std::optional(found->value);
  }

 private:
  const std::span<const std::string_view> variables_;
  const std::vector<SlotValue> slots_;
};

}  // namespace

/// The formats in one order of trying.
class SampleRunner::Order {
 public:
  explicit Order(std::vector<FormatSpec*> formats)
      : formats_(std::move(formats)), driver_(driverOf(formats_)), set_(FormatSet::make(*driver_)), matcher_(set_) {}

  const FormatSpec* format(const Match* match) const { return match ? formats_[match->place] : nullptr; }
  const Match* bind(std::string_view message, bool fromEventLog) { return matcher_.bind(message, fromEventLog); }

  NearBlock explain(const FormatSpec* format, std::string_view message, bool fromEventLog) {
    if (!explainer_) explainer_.emplace(*driver_, set_);
    const auto found = std::ranges::find(formats_, format);
    return explainer_->explainBlock(static_cast<std::uint32_t>(found - formats_.begin()), message, fromEventLog);
  }

 private:
  static std::unique_ptr<LogDriver> driverOf(const std::vector<FormatSpec*>& formats) {
    auto driver = std::make_unique<LogDriver>();
    for (FormatSpec* format : formats) driver->addFormatSpec(format);
    return driver;
  }

  const std::vector<FormatSpec*> formats_;
  const std::unique_ptr<LogDriver> driver_;
  const std::shared_ptr<const FormatSet> set_;
  Matcher matcher_;
  std::optional<Explainer> explainer_;  ///< Made when it is needed.
};

SampleRunner::SampleRunner(LogDriver& formats, bool fromEventLog) : formats_(formats), fromEventLog_(fromEventLog) {
  std::vector<FormatSpec*> inOrder = formats.listed();
  ofFile_ = std::make_unique<Order>(inOrder);
  std::ranges::reverse(inOrder);
  lastFirst_ = std::make_unique<Order>(std::move(inOrder));
}

SampleRunner::~SampleRunner() = default;

SampleResult SampleRunner::run(const Sample& sample) {
  using Verdict = SampleResult::Verdict;
  SampleResult result;
  if (sample.kind != Sample::Kind::kUnmatched) {
    result.expected = formats_.getFormatSpec(sample.block.c_str());
    if (!result.expected) {
      result.verdict = Verdict::kNoSuchBlock;
      return result;
    }
  }
  MessageDecoder decoder;
  const std::string_view message = decoder.decode(sample.message);
  result.firstInFile = ofFile_->format(ofFile_->bind(message, fromEventLog_));
  const Match* const match = lastFirst_->bind(message, fromEventLog_);
  result.bound = lastFirst_->format(match);
  // Of two blocks of one name either may bind it: their events are of one class.
  const bool isOfClass = match && result.bound->getName().view() == sample.block;
  if (sample.kind != Sample::Kind::kBound) {
    const bool mayBind = match == nullptr || (sample.kind == Sample::Kind::kNotBound && !isOfClass);
    if (!mayBind) result.verdict = Verdict::kWronglyBound;
  } else if (!isOfClass) {
    result.verdict = Verdict::kNotBound;
    result.why = lastFirst_->explain(result.expected, message, fromEventLog_);
  } else {
    const BoundValues values(*result.bound, match->values);
    for (std::size_t i = 0; i < sample.values.size(); ++i) {
      MessageDecoder name, text;
      std::optional<std::string> actual = values.find(sample.values[i], name.decode(sample.values[i].name));
      if (actual == text.decode(sample.values[i].text)) continue;
      const bool exists = actual.has_value();
      result.differences.push_back({i, exists, std::move(actual).value_or("")});
    }
    if (!result.differences.empty()) result.verdict = Verdict::kOtherValues;
  }
  return result;
}

}  // namespace quillon
