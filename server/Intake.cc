#include "server/Intake.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>

#include "delivery/record_json.h"
#include "foundation/checkpoint.h"
#include "foundation/visible.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

using delivery::Client;
using delivery::Event;
using delivery::Positions;
using delivery::RecordForm;

/// A batch for the cache is handed on at this size.
constexpr std::uint64_t kBatchBytes = 4 << 20;
/// Bytes of what is set aside for good; then the oldest of it goes.
constexpr std::uint64_t kAsideBytes = 64 << 20;
constexpr std::string_view kClientKey = "client/";
constexpr std::string_view kParkedKey = "parked/";
constexpr const char* kAside = "refused";

/// The first number of a text, and what follows the blank behind it.
std::uint64_t numberIn(std::string_view text, std::string_view* rest = nullptr) {
  std::uint64_t number = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), number).ptr;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (rest) *rest = text.substr(std::min<std::size_t>(1, text.size()));
  return number;
}

std::optional<delivery::SetId> setNamed(std::string_view name) {
  delivery::SetId set{};
  if (name.size() != 2 * set.size()) return std::nullopt;
  for (std::size_t i = 0; i < set.size(); ++i) {
    const char* const digits = name.data() + 2 * i;
    if (std::from_chars(digits, digits + 2, set[i], 16).ptr != digits + 2) return std::nullopt;
  }
  return set;
}

std::int64_t secondsNow() { return std::time(nullptr); }

}  // namespace

Intake::Intake(const ServerConfig& config, Client& client, ClassSets& sets, const Log& log)
    : config_(config), client_(client), sets_(sets), log_(log) {
  for (const auto& [key, value] : client.positions()) {
    if (!key.starts_with(kClientKey)) continue;
    auto sender = std::make_unique<Sender>();
    sender->id = key.substr(kClientKey.size());
    std::string_view seen;
    sender->accepted = sender->safe = numberIn(value, &seen);
    sender->seen = static_cast<std::int64_t>(numberIn(seen));
    senders_.emplace(sender->id, std::move(sender));
  }
}

bool Intake::open(std::string& error) {
  if (config_.parked.empty()) return true;
  std::error_code failed;
  fs::create_directory(config_.parked, failed);
  if (failed) {
    error = config_.parked + ": " + failed.message();
    return false;
  }
  aside_ = Parked::open(
      {config_.parked + '/' + kAside, kAsideBytes, true}, [this](const std::string& text) { tell(text); }, error);
  return aside_ && openParked(error);
}

/// What waited when the process before this one ended.
bool Intake::openParked(std::string& error) {
  std::vector<std::string> names;
  std::error_code failed;
  for (const fs::directory_entry& entry : fs::directory_iterator(config_.parked, failed)) {
    names.push_back(entry.path().filename());
  }
  if (failed) {
    error = config_.parked + ": " + failed.message();
    return false;
  }
  for (const std::string& name : names) {
    const std::optional<delivery::SetId> set = setNamed(name);
    if (!set) continue;
    auto waiting = openWaiting(name, error);
    if (!waiting) return false;
    if (isLeftover(*waiting)) {
      waiting->records.reset();
      fs::remove_all(config_.parked + '/' + name, failed);
      if (!failed && client_.positions().contains(waiting->key)) batch_.setPosition(waiting->key, "");
      continue;
    }
    waiting_.emplace(*set, std::move(waiting));
  }
  return true;
}

std::unique_ptr<Intake::Waiting> Intake::openWaiting(const std::string& name, std::string& error) {
  auto waiting = std::make_unique<Waiting>();
  waiting->name = name;
  waiting->records = Parked::open(
      {config_.parked + '/' + name, config_.parkedBytes}, [this](const std::string& text) { tell(text); }, error);
  if (!waiting->records) return nullptr;
  waiting->key = std::string(kParkedKey) + name + '/' + waiting->records->identity();
  forgetOthersOf(*waiting);
  const auto found = client_.positions().find(waiting->key);
  if (found != client_.positions().end()) waiting->taken = numberIn(found->second);
  waiting->records->startAt(waiting->taken);
  return waiting;
}

/// What was in the same place before is gone, and its numbers mean nothing any more.
void Intake::forgetOthersOf(const Waiting& waiting) {
  const std::string place = std::string(kParkedKey) + waiting.name + '/';
  for (const auto& position : client_.positions()) {
    if (position.first.starts_with(place) && position.first != waiting.key) batch_.setPosition(position.first, "");
  }
}

/// Nothing of it is needed any more: all of it is in the cache, and no client can send any of it again.
bool Intake::isLeftover(const Waiting& waiting) const {
  if (!waiting.records->isEmpty()) return false;
  return std::ranges::all_of(waiting.records->ends(), [this](const auto& client) {
    const auto sender = senders_.find(client.first);
    return sender != senders_.end() && sender->second->accepted >= client.second;
  });
}

/// What goes on failing is tried a few times a second.
void Intake::tell(const std::string& text) {
  if (throttle_.admits(text)) log_.error(text);
}

Intake::Sender* Intake::sender(std::string_view id) {
  std::string key(id);
  const auto found = senders_.find(key);
  if (found != senders_.end()) return found->second.get();
  if (senders_.size() >= config_.clients && !forgetSomebody()) return nullptr;
  auto made = std::make_unique<Sender>();
  made->id = key;
  made->seen = secondsNow();
  return senders_.emplace(std::move(key), std::move(made)).first->second.get();
}

/// Makes place for a new client: the one goes that was not heard of for the longest time.
bool Intake::forgetSomebody() {
  auto oldest = senders_.end();
  for (auto one = senders_.begin(); one != senders_.end(); ++one) {
    const Sender& sender = *one->second;
    if (sender.isConnected || sender.isTouched || sender.safe < sender.accepted) continue;
    if (oldest == senders_.end() || sender.seen < oldest->second->seen) oldest = one;
  }
  if (oldest == senders_.end()) return false;
  if (aside_) aside_->forget(oldest->first);
  log_.warning("client " + visible(oldest->first) + " is forgotten to make place for another one");
  batch_.setPosition(std::string(kClientKey) + oldest->first, "");
  senders_.erase(oldest);
  return true;
}

void Intake::touch(Sender& sender, std::uint64_t accepted) {
  if (accepted <= sender.accepted) return;
  sender.accepted = accepted;
  sender.seen = secondsNow();
  if (!std::exchange(sender.isTouched, true)) touched_.push_back(&sender);
}

bool Intake::take(Sender& sender, const delivery::NumberedRecords& records, std::size_t& at) {
  for (; at < records.events.size(); ++at) {
    const Event& event = records.events[at];
    if (event.number < sender.accepted) {
      ++figures_.repeated;
      continue;
    }
    if (isBlocked_ || (batch_.bytes() >= kBatchBytes && !flush())) return false;
    if (!add(sender, event)) return false;
    touch(sender, event.number + 1);
  }
  touch(sender, records.end);
  return true;
}

/// False when it has to wait.
bool Intake::add(Sender& sender, const Event& event) {
  const bool isGood = decode(event.bytes, record_) && static_cast<std::uint32_t>(record_.form) == event.kind;
  if (isGood && (record_.form == RecordForm::kEvent || config_.passesOn())) {
    ++figures_.records;
    store(record_, event.bytes);
    return true;
  }
  // As far as it was parked before a crash, it is not to be taken a second time.
  if (!isGood || record_.form == RecordForm::kRaw) {
    ++figures_.records;
    setAside(sender.id, event, isGood ? "message" : "malformed", "");
    return true;
  }
  const auto waiting = waiting_.find(record_.set);
  if (waiting != waiting_.end() && waiting->second->records->has(sender.id, event.number)) {
    ++figures_.repeated;
    return true;
  }
  EventMaker* const maker = sets_.maker(record_.set);
  if (!maker) return park(sender, event);
  ++figures_.records;
  const char* const why = makeEvent(*maker);
  if (!why) {
    store(event_, bytes_);
  } else {
    setAside(sender.id, event, why, std::string(maker->missing()));
  }
  return true;
}

void Intake::store(const delivery::Record& record, std::string_view bytes) {
  if (client_.wants(record)) batch_.add(bytes, static_cast<std::uint32_t>(record.form));
}

/// Makes `event_` and `bytes_` of `record_`. Null, or why it cannot be.
const char* Intake::makeEvent(EventMaker& maker) {
  switch (maker.make(record_.eventId, record_.values)) {
    case EventMaker::Result::kNoClass:
      return "class";
    case EventMaker::Result::kNoAttribute:
      return "attribute";
    case EventMaker::Result::kTooLarge:
      return "size";
    case EventMaker::Result::kMade:
      break;
  }
  const MadeEvent& made = maker.event();
  event_.form = RecordForm::kEvent;
  event_.set = record_.set;
  event_.eventId = made.eventId;
  event_.source = record_.source;
  event_.position = record_.position;
  event_.className = made.className;
  event_.values.assign(made.slots.begin(), made.slots.end());
  bytes_.clear();
  encode(event_, bytes_);
  ++figures_.made;
  return nullptr;
}

bool Intake::park(Sender& sender, const Event& event) {
  Waiting* const waiting = waitingFor(record_.set);
  if (!waiting) return false;
  if (!waiting->records->hasRoom(event.bytes.size())) {
    if (!std::exchange(waiting->isTold, true)) {
      log_.error("set " + waiting->name + ": no more records can wait for its class definitions; who sends them waits");
    }
    return false;
  }
  ++figures_.records;
  waiting->records->add(sender.id, event);
  return true;
}

/// Null when there can be no more of them.
Intake::Waiting* Intake::waitingFor(const delivery::SetId& set) {
  const auto found = waiting_.find(set);
  if (found != waiting_.end()) return found->second.get();
  const std::string name = delivery::hex(set);
  std::string error = "records wait for too many sets of class definitions; who sends them waits";
  std::unique_ptr<Waiting> waiting;
  if (waiting_.size() < config_.parkedSets) waiting = openWaiting(name, error);
  if (!waiting) {
    if (throttle_.admits("parked sets")) log_.error("set " + name + ": " + error);
    return nullptr;
  }
  log_.warning("set " + name + " is not known: its records wait for the class definitions");
  return waiting_.emplace(set, std::move(waiting)).first->second.get();
}

void Intake::setAside(std::string_view from, const Event& event, const std::string& why, const std::string& detail) {
  static const std::map<std::string, std::string, std::less<>> kReasons = {
      {"malformed", "is no record"},
      {"message", "is a message, and no event"},
      {"class", "is of a class that its set does not have"},
      {"attribute", "has not the attribute that its class selects"},
      {"size", "would become too large an event"},
  };
  if (aside_ && aside_->has(from, event.number)) return;
  ++figures_.setAside[why];
  if (throttle_.admits(why)) {
    std::string text = "number " + std::to_string(event.number) + " of " + visible(from) + " " + kReasons.at(why);
    if (why != "malformed")
      text += ", set " + delivery::hex(record_.set) + ", class " + std::to_string(record_.eventId);
    if (why == "attribute") text += ": " + visible(detail);
    log_.error(text + (aside_ ? "; it is put aside" : "; it is left out"));
  }
  if (aside_) aside_->add(from, event);
}

bool Intake::takeParked() {
  for (const auto& [set, waiting] : waiting_) {
    EventMaker* const maker = sets_.maker(set);
    if (!maker) continue;
    while (const std::optional<Event> event = waiting->records->next()) {
      if (isBlocked_ || (batch_.bytes() >= kBatchBytes && !flush())) {
        waiting->records->putBack();
        return true;
      }
      const char* const why = decode(event->bytes, record_) ? makeEvent(*maker) : "malformed";
      if (why) {
        setAside(std::string(kParkedKey) + waiting->name, *event, why, std::string(maker->missing()));
      } else {
        store(event_, bytes_);
      }
      waiting->taken = event->number + 1;
      waiting->isTouched = true;
    }
  }
  return false;
}

bool Intake::flush() {
  // First what is parked: where its place in the cache is counted, it has to be.
  bool isParked = !aside_ || aside_->flush();
  for (const auto& waiting : waiting_) isParked = waiting.second->records->flush() && isParked;
  isBlocked_ = !isParked;
  if (isBlocked_) return false;
  for (Sender* const sender : touched_) {
    batch_.setPosition(std::string(kClientKey) + sender->id,
                       std::to_string(sender->accepted) + ' ' + std::to_string(sender->seen));
  }
  for (const auto& [set, waiting] : waiting_) {
    if (waiting->isTouched) batch_.setPosition(waiting->key, std::to_string(waiting->taken));
  }
  if (batch_.empty()) return true;
  Client::Ticket ticket = 0;
  isBlocked_ = client_.send(batch_, ticket) != Client::Result::kTaken;
  if (isBlocked_) return false;
  checkpoint("batch-sent");
  for (Sender* const sender : touched_) {
    promises_.push_back({ticket, sender, nullptr, sender->accepted});
    sender->isTouched = false;
  }
  touched_.clear();
  for (const auto& [set, waiting] : waiting_) {
    if (!std::exchange(waiting->isTouched, false)) continue;
    promises_.push_back({ticket, nullptr, waiting.get(), waiting->taken});
  }
  return true;
}

void Intake::settle() {
  const Client::Ticket safe = client_.safe();
  for (; !promises_.empty() && promises_.front().ticket <= safe; promises_.pop_front()) {
    const Promise& promise = promises_.front();
    if (promise.sender) {
      promise.sender->safe = promise.end;
    } else {
      promise.waiting->records->release(promise.end);
      promise.waiting->isTold = false;
    }
  }
}

void Intake::tidy() {
  if (aside_) aside_->tidy();
  for (const auto& waiting : waiting_) waiting.second->records->tidy();
}

IntakeFigures Intake::figures() const {
  IntakeFigures figures = figures_;
  for (const auto& waiting : waiting_) {
    figures.parked.emplace_back(waiting.second->name, waiting.second->records->records());
  }
  figures.clients = senders_.size();
  return figures;
}

}  // namespace quillon
