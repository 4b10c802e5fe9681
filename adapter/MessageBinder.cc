#include "adapter/MessageBinder.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace quillon {
namespace {

constexpr std::uint32_t kNoPlace = std::numeric_limits<std::uint32_t>::max();

}  // namespace

MessageBinder::MessageBinder(std::shared_ptr<const FormatFile> formats, const Options& options, Receiver receiver)
    : receiver_(std::move(receiver)) {
  setFormats(std::move(formats), options);
}

void MessageBinder::setFormats(std::shared_ptr<const FormatFile> formats, const Options& options) {
  formats_ = std::move(formats);
  options_ = options;
  groups_.clear();
  for (const FormatFile::Group& group : formats_->groups()) {
    groups_.push_back(std::make_unique<GroupBinder>(group.formats));
  }
}

void MessageBinder::add(const Message& message, TimePoint now) {
  // The common case: nothing waits, and no format wants more than this message.
  if (streams_.empty() && (options_.whole || formats_->mostLines() == 1)) return bindWhole(message);
  Lines& lines = streams_[message.stream];
  lines.push_back({std::string(message.text), std::string(message.path), message.position, now});
  while (!lines.empty() && decide(lines, Ended::kNo)) {
  }
  if (lines.empty()) streams_.erase(message.stream);
}

void MessageBinder::bindWhole(const Message& message) {
  std::optional<Match> match;
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    const std::uint32_t before = match ? match->place : kNoPlace;
    if (const std::optional<Match> found = bind(i, message.text, before)) match = found;
  }
  const bool roomy = message.roomy && match && groups_.front()->decoder.changesNothing();
  receiver_({match ? &*match : nullptr, message.text, message.path, {&message.position, 1}, roomy});
}

void MessageBinder::forget(const std::function<bool(const Position&)>& comesAgain) {
  std::erase_if(streams_, [&](const auto& stream) { return comesAgain(stream.second.back().position); });
}

void MessageBinder::expire(TimePoint now, bool ended, const MayFollow& mayFollow) {
  const auto isOver = [&](const Line& last) {
    const TimePoint due = last.since + options_.wait;
    return now >= due && !(mayFollow && mayFollow(last.position, due));
  };
  for (auto stream = streams_.begin(); stream != streams_.end();) {
    Lines& lines = stream->second;
    while (!lines.empty() && (ended || isOver(lines.back()))) {
      static_cast<void>(decide(lines, Ended::kYes));
    }
    stream = lines.empty() ? streams_.erase(stream) : std::next(stream);
  }
}

TimePoint MessageBinder::deadline() const {
  TimePoint first = TimePoint::max();
  for (const auto& [stream, lines] : streams_) first = std::min(first, lines.back().since + options_.wait);
  return first;
}

FormatCounts MessageBinder::counts(std::uint32_t place) const {
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    const std::vector<std::uint32_t>& places = formats_->groups()[i].places;
    const auto found = std::ranges::lower_bound(places, place);
    if (found != places.end() && *found == place) {
      return groups_[i]->matcher.counts(static_cast<std::uint32_t>(found - places.begin()));
    }
  }
  return {};
}

/// Takes the first of `lines`, or several, when it is certain what becomes of it. False when that depends on lines that
/// may still come.
bool MessageBinder::decide(Lines& lines, Ended ended) {
  std::optional<Match> best;
  std::size_t bestGroup = 0;
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    const FormatFile::Group& group = formats_->groups()[i];
    const std::uint32_t before = best ? best->place : kNoPlace;
    if (group.places.front() > before) continue;  // none of its formats is tried before the one that binds
    if (group.lines > lines.size()) {
      if (ended == Ended::kNo) return false;
      continue;
    }
    std::string_view text = lines.front().text;
    if (group.lines > 1) {
      std::string& joined = groups_[i]->joined;
      joined.clear();
      for (std::size_t n = 0; n < group.lines; ++n) {
        if (n > 0) joined += '\n';
        joined += lines[n].text;
      }
      text = joined;
    }
    if (const std::optional<Match> found = bind(i, text, before)) {
      best = found;
      bestGroup = i;
    }
  }
  if (!best) {
    deliver(lines, 1, nullptr, lines.front().text);
    lines.pop_front();
    return true;
  }
  const std::size_t count = formats_->groups()[bestGroup].lines;
  deliver(lines, count, &*best, count == 1 ? lines.front().text : groups_[bestGroup]->joined);
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count));
  return true;
}

void MessageBinder::deliver(Lines& lines, std::size_t count, const Match* match, std::string_view text) {
  positions_.clear();
  for (std::size_t n = 0; n < count; ++n) {
    const Position& position = lines[n].position;
    if (positions_.empty() || positions_.back().file != position.file) positions_.emplace_back();
    positions_.back() = position;
  }
  receiver_({match, text, lines.front().path, positions_});
}

/// Nothing unless a format of the group binds that is tried before the one at `before`.
std::optional<Match> MessageBinder::bind(std::size_t group, std::string_view text, std::uint32_t before) {
  GroupBinder& binder = *groups_[group];
  const Match* const match = binder.matcher.bind(binder.decoder.decode(text), options_.fromEventLog);
  if (!match) return std::nullopt;
  const std::uint32_t place = formats_->groups()[group].places[match->place];
  if (place >= before) return std::nullopt;
  return Match{place, match->eventId, match->values};
}

}  // namespace quillon
