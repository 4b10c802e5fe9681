#include "src/adapters/logfile/match/Matcher.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <type_traits>
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

  template <bool kTimed>
  const Match* bind(std::string_view text, bool fromEventLog) {
    const Match* const match = find<kTimed>(text, fromEventLog);
    if (match) ++counts_[match->place].bound;
    return match;
  }

  template <class Record>
  const Match* bind(std::string_view text, bool fromEventLog, Record& recorder) {
    for (std::uint32_t place = 0; place < formats_.size(); ++place) {
      if (const Match* const match = bindOne(place, text, fromEventLog, recorder)) return match;
    }
    return nullptr;
  }

  template <class Record>
  const Match* bindOne(std::uint32_t place, std::string_view text, bool fromEventLog, Record& recorder) {
    message_.emplace(upToNul(text), fromEventLog);
    best_ = kNone;
    kept_ = 0;
    if constexpr (!std::is_same_v<Record, NoRecorder>) recorder.begins(place);
    bindLiterally(place, recorder);
    return result();
  }

  const FormatCounts& counts(std::uint32_t place) const { return counts_[place]; }

  void time() { times_.resize(formats_.size()); }
  std::chrono::nanoseconds time(std::uint32_t place) const {
    return times_.empty() ? std::chrono::nanoseconds() : times_[place];
  }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  /// Does `attempt`, which is at the format at `place`, and when asked for adds what it takes to that one's time.
  template <bool kTimed, class Attempt>
  void timed(std::uint32_t place, const Attempt& attempt) {
    if constexpr (kTimed) {
      const auto start = std::chrono::steady_clock::now();
      attempt();
      times_[place] += std::chrono::steady_clock::now() - start;
    } else {
      attempt();
    }
  }

  template <bool kTimed>
  const Match* find(std::string_view text, bool fromEventLog) {
    words_.scan(text);
    message_.reset();
    best_ = kNone;
    kept_ = 0;
    // Where a newline is white space as well as part of a word, words mean nothing. With steps that stay from one
    // format to the next, no format can be left out.
    if ((fromEventLog && words_.hasNewline()) || words_.tooMany() || !engine_.literal.starFallback()) {
      return bindInOrder<kTimed>(fromEventLog);
    }
    if (!engine_.fixed.empty()) tryFixed<kTimed>();
    engine_.index.find(words_, [this](const Index::Candidate* candidate) { tryLeaf<kTimed>(candidate); });
    return result();
  }

  template <bool kTimed>
  const Match* bindInOrder(bool fromEventLog) {
    message_.emplace(std::string_view(words_.text(), words_.size()), fromEventLog);
    for (std::uint32_t place = 0; place < formats_.size() && best_ == kNone; ++place)
      timed<kTimed>(place, [this, place] { tryLiterally(place); });
    return result();
  }

  template <bool kTimed>
  [[gnu::noinline]] void tryFixed() {
    engine_.fixed.find(words_, places_);
    for (std::size_t i = 0; i < places_.size() && best_ == kNone; ++i)
      timed<kTimed>(places_[i], [this, i] { tryLiterally(places_[i]); });
  }

  /// Leaves may come in any order, and so the best one so far is kept while others are tried.
  template <bool kTimed>
  void tryLeaf(const Index::Candidate* candidate) {
    if (candidate->program != FirstPass::kNoProgram) engine_.firstPass.expect(candidate->program);
    for (;; ++candidate) {
      if (candidate->place >= best_) return;
      if (Index::suits(*candidate, words_))
        timed<kTimed>(candidate->place, [this, candidate] { tryCandidate(*candidate); });
      if (candidate->check.last) return;
    }
  }

  void tryCandidate(const Index::Candidate& candidate) {
    if (candidate.program == FirstPass::kNoProgram) return tryLiterally(candidate.place);
    switch (engine_.firstPass.run(candidate.program, words_, spare())) {
      case FirstPass::Result::kBound:
        ++counts_[candidate.place].tried;
        accept(candidate.place);
        break;
      case FirstPass::Result::kRefused:
        ++counts_[candidate.place].tried;
        break;
      case FirstPass::Result::kUndecided:
        tryLiterally(candidate.place);
    }
  }

  void tryLiterally(std::uint32_t place) {
    FormatCounts& counts = counts_[place];
    ++counts.tried;
    if (!message_) message_.emplace(std::string_view(words_.text(), words_.size()), false);
    const Literal& literal = engine_.literal;
    if (literal.starFallback() && literal.variables(place) > 0 && !literal.constantsOccur(place, *message_)) return;
    const std::uint64_t gaveUp = room_.gaveUp;
    NoRecorder none;
    bindLiterally(place, none);
    counts.givenUp += room_.gaveUp - gaveUp;
  }

  template <class Record>
  void bindLiterally(std::uint32_t place, Record& recorder) {
    if (!LiteralBinder<Record>(engine_.literal, room_, *message_, place, recorder).run()) return;
    Values& values = spare();
    values.joined = room_.scratch;
    values.count = std::min<std::uint32_t>(engine_.literal.variables(place), FormatSpec::kMaxVariables);
    for (std::uint32_t i = 0; i < values.count; ++i) values.views[i] = room_.attempts[i].value.view(values.joined);
    accept(place);
  }

  Values& spare() { return values_[1 - kept_]; }

  void accept(std::uint32_t place) {
    best_ = place;
    kept_ = 1 - kept_;
  }

  const Match* result() {
    if (best_ == kNone) return nullptr;
    match_ = {best_, formats_.eventId(best_), {values_[kept_].views.data(), values_[kept_].count}};
    return &match_;
  }

  const FormatSet& formats_;
  const Engine& engine_;
  Words words_;
  std::optional<MessageText> message_;  ///< The message for the literal algorithm, when it was needed.
  LiteralRoom room_;
  std::vector<std::uint32_t> places_;  ///< Of formats without variables that are to be tried.
  Values values_[2];                   ///< Those of the best format so far, and room for those of another one.
  std::size_t kept_ = 0;               ///< Which are of the best.
  std::uint32_t best_ = kNone;
  Match match_{};
  std::vector<FormatCounts> counts_;
  std::vector<std::chrono::nanoseconds> times_;  ///< Empty until they are asked for.
};

Matcher::Matcher(std::shared_ptr<const FormatSet> formats)
    : formats_(std::move(formats)), state_(std::make_unique<State>(*formats_)) {}

Matcher::~Matcher() = default;

const Match* Matcher::bind(std::string_view message, bool fromEventLog) {
  return state_->bind<false>(message, fromEventLog);
}

const Match* Matcher::bindTimed(std::string_view message, bool fromEventLog) {
  state_->time();
  return state_->bind<true>(message, fromEventLog);
}

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

std::chrono::nanoseconds Matcher::time(std::uint32_t place) const { return state_->time(place); }

}  // namespace quillon
