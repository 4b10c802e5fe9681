#include "authoring/SampleRunner.h"

#include <algorithm>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "src/adapters/logfile/match/Matcher.h"

namespace quillon {
namespace {

/// `value`, in UTF-8, in the codeset of the format file, in which its author reads and writes.
std::string local(std::string_view value) {
  if (isUtf8(platformCodeset())) return std::string(value);
  const std::string source(value);
  const ConvertedText converted(nxl_from_utf8, platformCodeset(), source);
  if (!converted.text()) throw std::bad_alloc();
  return converted.text();
}

/// The slots of a format with the values that a matcher has bound: the model works out what becomes of them.
class BoundSlots : public MapSpec {
 public:
  BoundSlots(const FormatSpec& format, std::span<const std::string_view> values) : MapSpec("") {
    for (MsgMapEntry* entry : format.getMaps()) appendSlot(entry);
    values_.reserve(values.size());
    for (const std::string_view value : values) values_.emplace_back(local(value));
  }

  const qlStrobj& bvalue(VarMapEntry* entry) override {
    const qlStrobj* const value = variable(entry->position());
    return value ? *value : MapSpec::bvalue(entry);
  }

  /// Of `$n`; null when the message has none.
  const qlStrobj* variable(int n) const {
    return n >= 1 && n <= static_cast<int>(values_.size()) ? &values_[static_cast<std::size_t>(n) - 1] : nullptr;
  }

  /// Of a slot or, as "$7", of a variable; nothing when there is none.
  std::optional<std::string> value(const Sample::Value& expected) {
    if (const int n = expected.variable(); n > 0) {
      const qlStrobj* const found = variable(n);
      return found ? std::optional<std::string>(found->view()) : std::nullopt;
    }
    MsgMapEntry* const entry = find(expected.name);
    if (!entry) return std::nullopt;
    return std::string(entry->svalue(this).view());
  }

 private:
  std::vector<qlStrobj> values_;
};

}  // namespace

/// The formats in one order of trying.
class SampleRunner::Order {
 public:
  explicit Order(std::vector<FormatSpec*> formats) : formats_(std::move(formats)), matcher_(makeSet(formats_)) {}

  const FormatSpec* format(const Match* match) const { return match ? formats_[match->place] : nullptr; }
  const Match* bind(std::string_view message, bool fromEventLog) { return matcher_.bind(message, fromEventLog); }
  bool bindsAlone(const FormatSpec* format, std::string_view message, bool fromEventLog) {
    const auto found = std::ranges::find(formats_, format);
    return matcher_.bindOne(static_cast<std::uint32_t>(found - formats_.begin()), message, fromEventLog) != nullptr;
  }

 private:
  /// The set keeps nothing of the driver that gives it the order.
  static std::shared_ptr<const FormatSet> makeSet(const std::vector<FormatSpec*>& formats) {
    LogDriver driver;
    for (FormatSpec* format : formats) driver.addFormatSpec(format);
    return FormatSet::make(driver);
  }

  const std::vector<FormatSpec*> formats_;
  Matcher matcher_;
};

SampleRunner::SampleRunner(LogDriver& formats, bool fromEventLog) : formats_(formats), fromEventLog_(fromEventLog) {
  std::vector<FormatSpec*> inOrder;
  for (FormatSpec* format : formats.getFormats()) inOrder.push_back(format);
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
    result.wouldBind = match && ofFile_->bindsAlone(result.expected, message, fromEventLog_);
  } else {
    BoundSlots slots(*result.bound, match->values);
    for (std::size_t i = 0; i < sample.values.size(); ++i) {
      std::optional<std::string> actual = slots.value(sample.values[i]);
      if (actual == sample.values[i].text) continue;
      const bool exists = actual.has_value();
      result.differences.push_back({i, exists, std::move(actual).value_or("")});
    }
    if (!result.differences.empty()) result.verdict = Verdict::kOtherValues;
  }
  return result;
}

}  // namespace quillon
