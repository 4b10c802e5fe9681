#include "adapter/SourceRunner.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "foundation/checkpoint.h"

namespace quillon {
namespace {

/// How often a source tells of messages that it had to cut,
constexpr std::chrono::seconds kCutTold(10);
/// and what stands behind their text.
constexpr std::string_view kCutMark = " [cut]";

/// Opens what a configuration names.
class Opener {
 public:
  Opener(const KeptState& state, SourceObserver& observer, std::string& error)
      : state_(state), observer_(observer), error_(error) {}

  std::unique_ptr<Source> operator()(const StreamOptions& options) const {
    return std::make_unique<StreamSource>(STDIN_FILENO, options, observer_);
  }
  std::unique_ptr<Source> operator()(const FileOptions& options) const {
    return std::make_unique<FileSource>(options, state_.records, observer_, state_.damaged);
  }
  std::unique_ptr<Source> operator()(const FifoOptions& options) const {
    return FifoSource::open(options, observer_, error_);
  }
  std::unique_ptr<Source> operator()(const TcpOptions& options) const {
    return TcpSource::open(options, observer_, error_);
  }
  std::unique_ptr<Source> operator()(const DatagramOptions& options) const {
    return DatagramSource::open(options, observer_, error_);
  }
  std::unique_ptr<Source> operator()(const NatsSourceOptions& options) const {
    return openNatsSource(options, observer_);
  }
  std::unique_ptr<Source> operator()(const KafkaSourceOptions& options) const {
    return openKafkaSource(options, observer_, error_);
  }

 private:
  const KeptState& state_;
  SourceObserver& observer_;
  std::string& error_;
};

/// The file for unmatched messages; nothing when none is wanted, or with an error.
std::optional<LineOutput> openFor(const SourceConfig& config, std::string& error) {
  if (config.unmatched.empty()) return std::nullopt;
  LineOutputOptions output;
  output.path = config.unmatched;
  LineOutput unmatched;
  error = unmatched.open(output, LineOutput::Clock::now());
  if (!error.empty()) return std::nullopt;
  return unmatched;
}

/// Messages have all their lines before they are bound.
bool joinsLines(const SourceConfig& config) {
  return std::visit(
      [](const auto& options) {
        if constexpr (requires { options.joining; }) {
          return options.joining.indented;
        } else {
          return false;
        }
      },
      config.input);
}

}  // namespace

std::unique_ptr<SourceRunner> SourceRunner::open(const SourceConfig& config, std::shared_ptr<const FormatFile> formats,
                                                 const KeptState& state, const Outputs& outputs, const Log& log,
                                                 std::string& error) {
  std::unique_ptr<SourceRunner> runner(new SourceRunner(config, outputs, log));
  runner->unmatched_ = openFor(config, error);
  if (!error.empty()) return nullptr;
  runner->source_ = std::visit(Opener(state, *runner, error), config.input);
  if (!runner->source_) return nullptr;
  runner->setFormats(std::move(formats));
  return runner;
}

SourceRunner::SourceRunner(const SourceConfig& config, const Outputs& outputs, const Log& log)
    : config_(config), outputs_(outputs), log_(log) {}

SourceRunner::~SourceRunner() = default;

std::optional<LineOutput> SourceRunner::openUnmatched(const SourceConfig& config, std::string& error) const {
  if (config.unmatched == config_.unmatched) return std::nullopt;
  return openFor(config, error);
}

void SourceRunner::setFormats(std::shared_ptr<const FormatFile> formats) {
  collectCounts();
  formats_ = std::move(formats);
  Sender* const sender = outputs_.sender;
  if (!formats_) {
    rawName_.emplace(sender->nameOf(config_.name));
    return;
  }
  bound_.assign(formats_->classes().size(), 0);
  const MessageBinder::Options options{
      .wait = config_.multilineWait, .fromEventLog = config_.eventLog, .whole = joinsLines(config_)};
  if (binder_) {
    binder_->setFormats(formats_, options);
  } else {
    binder_.emplace(formats_, options, [this](const MessageBinder::Outcome& outcome) { handle(outcome); });
  }
  if (sender) maker_.emplace(formats_, sender->form(), sender->nameOf(config_.name));
  writer_.emplace(formats_->forms(), EventSource{config_.defaultText, config_.label, fileName_});
}

void SourceRunner::reconfigure(const SourceConfig& config, std::shared_ptr<const FormatFile> formats,
                               std::optional<LineOutput> unmatched) {
  if (config.unmatched != config_.unmatched) {
    if (unmatched_) static_cast<void>(unmatched_->flush(LineOutput::Clock::now()));
    if (unmatched_ && unmatched) unmatched->takeOver(*unmatched_);  // what the old file does not take
    unmatched_ = std::move(unmatched);
  }
  auto input = std::move(config_.input);  // what the source was opened with
  config_ = config;
  config_.input = std::move(input);
  setFormats(std::move(formats));
}

void SourceRunner::finish(Finish how) {
  finishing_ = how;
  source_->finish(how);
}

bool SourceRunner::work(TimePoint now, std::size_t most) {
  Message message;
  checkpoint("turn-begun");
  for (std::size_t n = 0; n < most; ++n) {
    if (outputs_.sender && outputs_.sender->isFull()) return true;
    if (source_->next(now, message)) {
      if (message.cut) {
        message.text = marked(message, now);
        message.roomy = false;
      }
      binder_ ? binder_->add(message, now) : pass(message);
      continue;
    }
    const bool ended = source_->ended();
    ended_ = ended;
    if (!binder_) return false;
    if (ended && finishing_ == Finish::kStop) {
      binder_->forget([this](const Position& position) { return source_->comesAgain(position); });
    }
    // Where the source only pauses, the lines that are waited for may be there.
    if (ended || source_->deadline() > now) binder_->expire(now, ended);
    return false;
  }
  if (binder_ && binder_->deadline() <= now) {
    binder_->expire(now, false, [this](const Position& last, TimePoint due) { return source_->mayFollow(last, due); });
  }
  return true;
}

TimePoint SourceRunner::deadline() const {
  return binder_ ? std::min(source_->deadline(), binder_->deadline()) : source_->deadline();
}

void SourceRunner::handle(const MessageBinder::Outcome& outcome) {
  if (outcome.match) {
    ++bound_[outcome.match->place];
    write(outcome);
  } else {
    ++unmatchedCount_;
    if (unmatched_) {
      unmatched_->lines().append(outcome.text);
      unmatched_->lines().append("\n");
    }
  }
  for (const Position& position : outcome.positions) handled(position);
}

void SourceRunner::handled(const Position& position) {
  if (!latest_ || latest_->file != position.file) latest_ = &handled_[position.file];
  *latest_ = position;
}

/// Sends a message as it is.
void SourceRunner::pass(const Message& message) {
  delivery::Record record;
  record.form = delivery::RecordForm::kRaw;
  record.text = message.text;
  rawName_->set(message.position, source_->origin(message.position), record);
  outputs_.sender->add(record);
  handled(message.position);
}

void SourceRunner::write(const MessageBinder::Outcome& outcome) {
  if (outcome.path != fileName_) {
    fileName_ = outcome.path;
    writer_->setSource({config_.defaultText, config_.label, fileName_});
  }
  outputs_.sender ? send(outcome) : writeLine(outcome);
}

void SourceRunner::send(const MessageBinder::Outcome& outcome) {
  const std::optional<Origin> origin =
      outcome.positions.empty() ? std::nullopt : source_->origin(outcome.positions.back());
  const delivery::Record* const record = maker_->make(outcome, {config_.defaultText, config_.label, fileName_}, origin);
  if (record) return outputs_.sender->add(*record);
  log_.error(config_.name + ": an event is lost that is too large to be sent, of class " +
             formats_->classes()[outcome.match->place]);
}

/// Writes the event as one line, whatever its values hold: a newline within them is written as "\n".
void SourceRunner::writeLine(const MessageBinder::Outcome& outcome) {
  LineBuffer& lines = outputs_.lines.lines();
  static_assert(EventWriter::kStride <= Message::kSlack);
  const std::string_view text = outcome.roomy ? outcome.text : std::string_view();
  const std::size_t most = writer_->begin(outcome.match->place, outcome.match->values, text);
  char* const begin = lines.room(most + EventWriter::kStride + 1);
  char* end = writer_->write(begin);
  if (std::memchr(begin, '\n', static_cast<std::size_t>(end - begin))) {
    std::string escaped;
    for (const char c : std::string_view(begin, static_cast<std::size_t>(end - begin))) {
      c == '\n' ? escaped.append("\\n") : escaped.append(1, c);
    }
    escaped += '\n';
    lines.append(escaped);
    return;
  }
  *end++ = '\n';
  lines.endAt(end);
}

/// The text of a message that was cut, with the mark that says so. Tells of it now and then.
std::string_view SourceRunner::marked(const Message& message, TimePoint now) {
  if (now >= cutToldAt_ + kCutTold) {
    cutToldAt_ = now;
    log_.warning(config_.name + ": a message of " + std::string(message.path) + " was cut to " +
                 std::to_string(message.text.size()) + " bytes, since it is longer than max_message");
  }
  return marked_.assign(message.text).append(kCutMark);
}

int SourceRunner::flushUnmatched(LineOutput::Clock::time_point now) { return unmatched_ ? unmatched_->flush(now) : 0; }

int SourceRunner::reopen() { return unmatched_ ? unmatched_->reopen() : 0; }

void SourceRunner::written() {
  for (const auto& [file, position] : handled_) {
    source_->acknowledge(position);
    if (outputs_.sender) written_.push_back(position);
  }
  handled_.clear();
  latest_ = nullptr;
  checkpoint("acknowledged");
}

void SourceRunner::sent(delivery::Client::Ticket ticket) {
  if (!written_.empty()) sent_.push_back({ticket, std::exchange(written_, {})});
}

void SourceRunner::stored(delivery::Client::Ticket safe) {
  for (; !sent_.empty() && sent_.front().ticket <= safe; sent_.pop_front()) {
    for (const Position& position : sent_.front().positions) source_->stored(position);
  }
}

/// Adds what was counted by format to what is kept by class.
void SourceRunner::collectCounts() {
  if (!binder_) return;
  for (std::size_t place = 0; place < bound_.size(); ++place) {
    if (bound_[place] > 0) eventsByClass_[formats_->classes()[place]] += bound_[place];
    givenUp_ += binder_->counts(static_cast<std::uint32_t>(place)).givenUp;
  }
  bound_.assign(bound_.size(), 0);
}

SourceFigures SourceRunner::figures(TimePoint now) {
  SourceFigures figures;
  figures.name = config_.name;
  figures.counters = source_->counters();
  figures.unmatched = unmatchedCount_;
  figures.givenUp = givenUp_;
  figures.events = eventsByClass_;
  for (std::size_t place = 0; place < bound_.size(); ++place) {
    if (bound_[place] > 0) figures.events[formats_->classes()[place]] += bound_[place];
    figures.givenUp += binder_->counts(static_cast<std::uint32_t>(place)).givenUp;
  }
  if (figures.counters.lag == 0) {
    behindSince_.reset();
  } else {
    if (!behindSince_) behindSince_ = now;
    figures.lagSeconds = std::chrono::duration<double>(now - *behindSince_).count();
  }
  return figures;
}

void SourceRunner::gap(const Gap& gap) {
  std::string text = config_.name + ": " + std::string(gap.path) + ": ";
  if (gap.to > gap.from) {
    text += "bytes " + std::to_string(gap.from) + " to " + std::to_string(gap.to) + " are lost";
    if (gap.open) text += ", perhaps more behind them";
  } else {
    text += "what stood behind byte " + std::to_string(gap.from) + " may be lost";
  }
  log_.error(text + " (" + std::string(gap.cause) + ")");
}

void SourceRunner::notice(Level level, std::string_view text) {
  const std::string line = config_.name + ": " + std::string(text);
  switch (level) {
    case Level::kError:
      failed_ = true;
      return log_.error(line);
    case Level::kWarning:
      return log_.warning(line);
    case Level::kInfo:
      return log_.info(line);
  }
}

}  // namespace quillon
