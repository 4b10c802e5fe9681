#include "tests/match/support/comparison.h"

#include <algorithm>

#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"

namespace quillon {

namespace {

int valuesOf(FormatSpec& format) { return std::min(format.numvars(), FormatSpec::kMaxVariables); }

/// Without their fallback, stars depend on how far the fields that all formats share got in earlier binds; so each
/// message is then bound as if it were the first.
void startAfresh(const std::vector<FormatSpec*>& formats) {
  const auto reset = [](FormatComponent* field) { static_cast<StringComponent*>(field)->set_steps(0); };
  for (FormatSpec* format : formats) {
    for (FormatComponent* component : format->getComponents()) {
      if (component->variable()) reset(component);
    }
  }
  reset(FormatComponent::create("%s*"));  // also within %s+
}

bool differs(const MatchCase& c) { return !Comparison(c.formats).agree(c.message, c.eventLog); }

/// Takes away pieces of `items`, first large ones, as long as `stillDiffers`.
template <class Items, class Predicate>
void reduce(Items& items, Predicate stillDiffers) {
  for (std::size_t piece = std::max<std::size_t>(items.size() / 2, 1); piece > 0; piece /= 2) {
    for (std::size_t at = 0; at < items.size();) {
      const Items before = items;
      const auto from = items.begin() + static_cast<std::ptrdiff_t>(at);
      items.erase(from, from + static_cast<std::ptrdiff_t>(std::min(piece, items.size() - at)));
      if (!stillDiffers()) {
        items = before;
        at += piece;
      }
    }
  }
}

std::string shown(const Tokens& tokens) {
  std::string text;
  for (const std::string& token : tokens) {
    if (!text.empty()) text += ' ';
    text += token == " " ? "_" : isVariable(token) || token == "%n" ? token : "\"" + printable(token) + "\"";
  }
  return text;
}

}  // namespace

FormatsInDriver::FormatsInDriver(const FormatList& formats)
    : driver_(std::make_unique<LogDriver>("/dev/null", nullptr, 0)) {
  for (const Tokens& tokens : formats) {
    auto* const format = new FormatSpec("T");
    for (const std::string& token : tokens) format->addFormat(token.c_str());
    format->addLookahead();
    driver_->addFormatSpec(format);
  }
}

FormatsInDriver::~FormatsInDriver() = default;

Comparison::Comparison(const FormatList& formats)
    : own_(formats), formats_((**own_).listed()), set_(FormatSet::make(**own_)), matcher_(set_) {}

Comparison::Comparison(const LogDriver& driver)
    : formats_(driver.listed()), set_(FormatSet::make(driver)), matcher_(set_) {}

Comparison::Bound Comparison::bindPlainly(std::string_view message, bool eventLog) {
  text_ = message;
  SysLogMsg converted(text_.c_str());
  if (eventLog) converted.setEventFromEventLog();
  if (!starFallback) startAfresh(formats_);
  Bound bound;
  for (FormatSpec* format : formats_) {
    if (format->bindConverted(converted)) {
      bound.format = format;
      return bound;
    }
    ++bound.place;
  }
  return bound;
}

const Match* Comparison::bindByEngine(std::string_view message, bool eventLog) {
  if (!starFallback) matcher_.emplace(set_);  // afresh, too
  if (++asked_ % 16 != 0) return matcher_->bind(guarded_.put(message), eventLog);
  Recorder recorder;  // the way of those who explain leads to the same end
  return matcher_->bind(guarded_.put(message), eventLog, recorder);
}

std::string Comparison::plain(std::string_view message, bool eventLog) {
  const Bound bound = bindPlainly(message, eventLog);
  if (!bound.format) return "none";
  std::string text = std::to_string(bound.place) + ":";
  for (int n = 1; n <= valuesOf(*bound.format); ++n) {
    (text += n == 1 ? " " : "|") += bound.format->value(n).view();
  }
  return text;
}

std::string Comparison::engine(std::string_view message, bool eventLog) {
  const Match* const match = bindByEngine(message, eventLog);
  if (!match) return "none";
  std::string text = std::to_string(match->place) + ":";
  for (const std::string_view& value : match->values) {
    (text += &value == match->values.data() ? " " : "|") += value;
  }
  return text;
}

bool Comparison::agree(std::string_view message, bool eventLog) {
  const Bound bound = bindPlainly(message, eventLog);
  const Match* const match = bindByEngine(message, eventLog);
  bound_ = bound.format != nullptr;
  if (!bound.format || !match) return !bound.format && !match;
  if (match->place != bound.place || match->eventId != set_->eventId(match->place)) return false;
  const auto variables = static_cast<std::size_t>(valuesOf(*bound.format));
  if (match->values.size() != variables) return false;
  for (std::size_t n = 0; n < variables; ++n) {
    if (match->values[n] != bound.format->value(static_cast<int>(n) + 1).view()) return false;
  }
  return true;
}

std::string minimised(MatchCase c) {
  const auto stillDiffers = [&c] { return differs(c); };
  if (!stillDiffers()) return "only after other messages: what was bound before must not matter\n";
  reduce(c.formats, stillDiffers);
  reduce(c.message, stillDiffers);
  for (Tokens& tokens : c.formats) reduce(tokens, stillDiffers);
  reduce(c.message, stillDiffers);
  std::string text = "formats, in the order of trying:\n";
  for (const Tokens& tokens : c.formats) text += "  " + shown(tokens) + "\n";
  Comparison comparison(c.formats);
  text += std::string(c.eventLog ? "event log message" : "message") + ": \"" + printable(c.message) + "\"\n";
  text += "plain:  " + printable(comparison.plain(c.message, c.eventLog)) + "\n";
  text += "engine: " + printable(comparison.engine(c.message, c.eventLog)) + "\n";
  return text;
}

Meaning::Meaning(int newString, int fallback) {
  newStringMeaning = newString;
  starFallback = fallback;
}

Meaning::~Meaning() {
  newStringMeaning = 0;
  starFallback = 1;
}

}  // namespace quillon
