#include "src/adapters/logfile/match/Matcher.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/match/Engine.h"
#include "src/adapters/logfile/match/LiteralBinder.h"

namespace quillon {

namespace {

std::string_view upToNul(std::string_view message) { return message.substr(0, message.find('\0')); }

}  // namespace

class Matcher::State {
 public:
  explicit State(const FormatSet& formats) : formats_(formats), engine_(formats.engine()), counts_(formats.size()) {
    room_.fit(engine_.literal);
  }

  const Match* bind(std::string_view text, bool fromEventLog) {
    const MessageText message(upToNul(text), fromEventLog);
    NoRecorder none;
    for (std::uint32_t place = 0; place < formats_.size(); ++place) {
      FormatCounts& counts = counts_[place];
      const std::uint64_t gaveUp = room_.gaveUp;
      ++counts.tried;
      const Match* const match = bindLiterally(place, message, none);
      counts.givenUp += room_.gaveUp - gaveUp;
      if (!match) continue;
      ++counts.bound;
      return match;
    }
    return nullptr;
  }

  const Match* bind(std::string_view text, bool fromEventLog, Recorder& recorder) {
    const MessageText message(upToNul(text), fromEventLog);
    for (std::uint32_t place = 0; place < formats_.size(); ++place) {
      if (const Match* const match = bindLiterally(place, message, recorder)) return match;
    }
    return nullptr;
  }

  template <class Record>
  const Match* bindOne(std::uint32_t place, std::string_view text, bool fromEventLog, Record& recorder) {
    return bindLiterally(place, MessageText(upToNul(text), fromEventLog), recorder);
  }

  const FormatCounts& counts(std::uint32_t place) const { return counts_[place]; }

 private:
  template <class Record>
  const Match* bindLiterally(std::uint32_t place, const MessageText& message, Record& recorder) {
    if (!LiteralBinder<Record>(engine_.literal, room_, message, place, recorder).run()) return nullptr;
    const std::size_t count =
        std::min<std::size_t>(engine_.literal.variables(place), static_cast<std::size_t>(FormatSpec::kMaxVariables));
    for (std::size_t i = 0; i < count; ++i) values_[i] = room_.attempts[i].value.view(room_.scratch);
    match_ = {place, formats_.eventId(place), {values_.data(), count}};
    return &match_;
  }

  const FormatSet& formats_;
  const Engine& engine_;
  LiteralRoom room_;
  std::array<std::string_view, FormatSpec::kMaxVariables> values_;
  Match match_{};
  std::vector<FormatCounts> counts_;
};

Matcher::Matcher(std::shared_ptr<const FormatSet> formats)
    : formats_(std::move(formats)), state_(std::make_unique<State>(*formats_)) {}

Matcher::~Matcher() = default;

const Match* Matcher::bind(std::string_view message, bool fromEventLog) { return state_->bind(message, fromEventLog); }

const Match* Matcher::bind(std::string_view message, bool fromEventLog, Recorder& recorder) {
  return state_->bind(message, fromEventLog, recorder);
}

const Match* Matcher::bindOne(std::uint32_t place, std::string_view message, bool fromEventLog, Recorder& recorder) {
  return state_->bindOne(place, message, fromEventLog, recorder);
}

const Match* Matcher::bindOne(std::uint32_t place, std::string_view message, bool fromEventLog) {
  NoRecorder none;
  return state_->bindOne(place, message, fromEventLog, none);
}

FormatCounts Matcher::counts(std::uint32_t place) const { return state_->counts(place); }

}  // namespace quillon
