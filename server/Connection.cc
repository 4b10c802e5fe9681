#include "server/Connection.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "foundation/checkpoint.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

using delivery::Frame;
using delivery::FrameKind;
using delivery::FrameReader;
using delivery::RefusalCode;
using delivery::Stream;
using std::chrono::milliseconds;

/// Bytes that are read of one client before the next one has its turn.
constexpr std::size_t kTurn = 256 << 10;
/// For a client to say who it is.
constexpr std::chrono::seconds kGreetingPatience(10);

}  // namespace

Connection::Connection(Listener::Accepted accepted, const Listener& listener, const ServerConfig& config,
                       Intake& intake, TimePoint now)
    : stream_(std::move(accepted.stream)),
      peer_(std::move(accepted.peer)),
      listener_(listener),
      config_(config),
      intake_(intake),
      begun_(now),
      heard_(now),
      spoken_(now) {}

void Connection::end(const std::string& reason) {
  if (reason_.empty()) reason_ = reason;
  state_ = State::kOver;
}

void Connection::refuse(RefusalCode code, const std::string& reason) {
  if (state_ == State::kParting || state_ == State::kOver) return;
  reason_ = reason;
  wasRefused_ = code != RefusalCode::kEnding;
  if (state_ == State::kSecuring) return end();
  state_ = State::kParting;
  hasRecords_ = false;
  encode(delivery::Refusal{code, reason}, out_);
  write();
}

short Connection::events() const {
  short events = 0;
  if (isWriting_) events |= POLLOUT;
  if (state_ == State::kSecuring) return stream_.events() == 0 ? static_cast<short>(POLLIN) : stream_.events();
  if (!hasRecords_) events |= POLLIN;
  return events;
}

/// True when the handshake is over.
bool Connection::secure() {
  switch (stream_.handshake()) {
    case Stream::Result::kDone:
      state_ = State::kGreeting;
      return true;
    case Stream::Result::kWait:
      break;
    case Stream::Result::kEnd:
      end("it went away before the connection was secured");
      break;
    case Stream::Result::kFailed:
      wasRefused_ = true;
      end(stream_.error());
      break;
  }
  return false;
}

bool Connection::work(TimePoint now) {
  const bool hasMore = takeWhatCame(now);
  isAwake_ = hasMore || hasRecords_;
  return hasMore;
}

bool Connection::takeWhatCame(TimePoint now) {
  if (state_ == State::kSecuring && !secure()) return false;
  if (isWriting_) write();
  std::size_t budget = kTurn;
  while (state_ == State::kGreeting || state_ == State::kOpen) {
    if (hasRecords_) {
      hasRecords_ = !intake_.take(*sender_, records_, at_);
      if (hasRecords_) return false;
      heard_ = begun_ = now;
      checkpoint("frame-taken");
    }
    Frame frame;
    switch (reader_.next(frame)) {
      case FrameReader::Result::kFrame:
        heard_ = begun_ = now;
        take(frame);
        break;
      case FrameReader::Result::kBad:
        refuse(RefusalCode::kNotUnderstood, reader_.error());
        break;
      case FrameReader::Result::kMore:
        if (budget == 0) return true;
        if (!read(now, budget)) return false;
        break;
    }
  }
  // What comes behind a refusal is thrown away: else closing would take the refusal back.
  if (state_ == State::kParting) {
    std::size_t count = 0;
    const Stream::Result result = stream_.read(reader_.room(), count);
    if (out_.empty() || result == Stream::Result::kEnd || result == Stream::Result::kFailed) end();
  }
  return false;
}

bool Connection::read(TimePoint now, std::size_t& budget) {
  if (!reader_.isWithin()) begun_ = now;
  std::size_t count = 0;
  switch (stream_.read(reader_.room(), count)) {
    case Stream::Result::kDone:
      reader_.put(count);
      budget -= std::min(budget, count);
      return true;
    case Stream::Result::kWait:
      return false;
    case Stream::Result::kEnd:
      end(reader_.isWithin() ? "the connection ended within a frame" : "");
      return false;
    case Stream::Result::kFailed:
      end(stream_.error());
      return false;
  }
  return false;
}

void Connection::take(const Frame& frame) {
  if (state_ == State::kGreeting) return greet(frame);
  if (frame.kind == FrameKind::kAlive) return;
  if (frame.kind != FrameKind::kBatch) return refuse(RefusalCode::kNotUnderstood, "a frame came out of turn");
  if (!decode(frame.body, records_)) return refuse(RefusalCode::kNotUnderstood, "a batch is malformed");
  at_ = 0;
  hasRecords_ = true;
}

void Connection::greet(const Frame& frame) {
  delivery::Hello hello;
  if (frame.kind != FrameKind::kHello || !decode(frame.body, hello)) {
    return refuse(RefusalCode::kNotUnderstood, "no hello came");
  }
  if (hello.version != delivery::kProtocolVersion) {
    return refuse(RefusalCode::kVersion,
                  "version " + std::to_string(hello.version) + " of the protocol is not spoken here, but version 1 is");
  }
  if (!listener_.allows(hello.token)) {
    return refuse(RefusalCode::kNotAllowed, hello.token.empty() ? "a token is needed" : "the token is not known");
  }
  if (!delivery::isClientId(hello.client)) return refuse(RefusalCode::kNotAllowed, "that is no client id");
  sender_ = intake_.sender(hello.client);
  if (!sender_) return refuse(RefusalCode::kBusy, "there are too many clients");
  state_ = State::kOpen;
  clientsPatience_ = hello.patience;
  reader_.setMostBatch(config_.mostBatch);
  told_ = sender_->safe;
  encode(
      delivery::Welcome{
          .patience = config_.patience, .next = told_, .mostBatch = static_cast<std::uint32_t>(config_.mostBatch)},
      out_);
}

void Connection::speak(TimePoint now) {
  if (state_ == State::kOpen && out_.empty()) {
    const auto aliveAfter = std::max(milliseconds(10), clientsPatience_ / 3);
    if (sender_->safe > told_) {
      told_ = sender_->safe;
      checkpoint("acknowledging");
      delivery::encodeTaken(told_, out_);
    } else if (now - spoken_ >= aliveAfter) {
      delivery::encodeAlive(out_);
    }
  }
  if (!out_.empty()) {
    const std::size_t before = out_.size();
    write();
    if (out_.size() < before) spoken_ = now;
  }
}

void Connection::write() {
  isWriting_ = false;
  while (!out_.empty() && state_ != State::kOver && state_ != State::kSecuring) {
    std::size_t count = 0;
    const Stream::Result result = stream_.write(out_, count);
    if (result == Stream::Result::kWait) {
      isWriting_ = stream_.events() == POLLOUT;
      return;
    }
    if (result != Stream::Result::kDone) return end(stream_.error());
    out_.erase(0, count);
  }
}

void Connection::checkTime(TimePoint now) {
  switch (state_) {
    case State::kSecuring:
    case State::kGreeting:
      if (now - begun_ > kGreetingPatience) refuse(RefusalCode::kNotAllowed, "it did not say in time who it is");
      break;
    case State::kOpen:
      // While nothing of it is taken it cannot be heard.
      if (hasRecords_ || intake_.isBlocked()) {
        heard_ = begun_ = now;
      } else if (reader_.isWithin() && now - begun_ > config_.patience) {
        refuse(RefusalCode::kNotUnderstood, "a frame was not whole in time");
      } else if (!reader_.isWithin() && now - heard_ > config_.patience) {
        refuse(RefusalCode::kNotUnderstood, "nothing was heard of it in time");
      }
      if (!out_.empty() && now - spoken_ > config_.patience) end("it does not read");
      break;
    case State::kParting:
      if (out_.empty() || now - heard_ > config_.patience) end();
      break;
    case State::kOver:
      break;
  }
}

}  // namespace quillon
