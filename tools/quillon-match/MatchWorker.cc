#include "tools/quillon-match/MatchWorker.h"

#include <cstdio>
#include <new>
#include <string>
#include <utility>

#include "foundation/visible.h"
#include "tools/quillon-match/options.h"

namespace quillon {
namespace {

/// Lines are collected up to so many bytes; a larger one is not copied but written in its parts.
constexpr std::size_t kCollected = 1'048'576;

}  // namespace

MatchWorker::MatchWorker(MatchRun& run)
    : run_(run), binder_(run.makeBinder()), writer_(run.forms), counts_(run.forms->size()) {}

MatchWorker::~MatchWorker() {
  run_.statistics.add(counts_);
  if (!run_.coverage) return;
  const std::lock_guard lock(run_.ending);
  binder_->tell(*run_.coverage);
}

bool MatchWorker::take() {
  try {
    return run_.input.fill(block_);
  } catch (const std::bad_alloc&) {
    run_.exhausted = true;
    return false;
  }
}

void MatchWorker::work(Turn& turn) {
  turn_ = &turn;
  try {
    block_.kind() == MessageBlock::Kind::kMessages ? bindMessages() : keepPiece();
  } catch (const std::bad_alloc&) {
    run_.exhausted = true;
  }
}

void MatchWorker::give() {
  flush();
  if (run_.coverage) run_.coverage->add(std::move(shapes_));
  const bool hasFailed = run_.events.error() != 0 || (run_.unmatched && run_.unmatched->error() != 0);
  if (hasFailed || run_.exhausted) run_.input.stop();
}

void MatchWorker::bindMessages() {
  MessageCursor messages(block_, run_.delimiter);
  while (messages.next()) {
    try {
      bind(messages.message());
    } catch (const std::bad_alloc&) {
      if (!run_.survivesNoMemory || messages.message().size() < kCollected) throw;
      passOver(messages.message());
    }
  }
}

void MatchWorker::bind(std::string_view message) {
  if (const Bound* const bound = binder_->bind(message)) {
    writeEvent(*bound);
    ++counts_.bound[bound->eventId];
  } else {
    keepUnmatched(message);
  }
}

void MatchWorker::writeEvent(const Bound& bound) {
  const std::size_t most = writer_.begin(bound.format, bound.values, bound.text);
  if (most > kCollected) return writeLargeEvent();
  if (events_.text().size() + most > kCollected) flush();
  char* const begin = events_.room(most + 1 + EventWriter::kStride);
  char* end = writer_.write(begin);
  if (run_.showsControls) {
    const std::string shown = visible({begin, static_cast<std::size_t>(end - begin)});
    events_.append(shown);
    end = events_.room(1);
  }
  *end++ = '\n';
  events_.endAt(end);
  if (run_.writesEachLine) flush();
}

void MatchWorker::writeLargeEvent() {
  flush();
  parts_.clear();
  writer_.append(parts_);
  std::vector<std::string> shown;
  if (run_.showsControls) {
    shown.reserve(parts_.size());
    for (std::string_view& part : parts_) part = shown.emplace_back(visible(part));
  }
  parts_.emplace_back("\n");
  run_.events.write(parts_);
}

void MatchWorker::keepUnmatched(std::string_view message) {
  ++counts_.unmatched;
  if (run_.coverage) shapes_.add(message);
  if (!run_.unmatched) return;
  const std::string_view newline = message.ends_with('\n') ? "" : "\n";
  if (unmatched_.text().size() + message.size() > kCollected) flush();
  if (message.size() > kCollected) {
    const std::string_view parts[] = {message, newline};
    run_.unmatched->write(parts);
  } else {
    unmatched_.append(message);
    unmatched_.append(newline);
    if (run_.writesEachLine) flush();
  }
}

/// Of a message that is too long to be bound.
void MatchWorker::keepPiece() {
  const bool isLast = block_.kind() == MessageBlock::Kind::kLastPiece;
  if (isLast) ++counts_.unmatched;
  if (!run_.unmatched) return;
  flush();
  const std::string_view parts[] = {block_.text(), isLast ? "\n" : ""};
  run_.unmatched->write(parts);
}

/// A message for whose values or event there is no memory.
void MatchWorker::passOver(std::string_view message) {
  std::fprintf(stderr, "%s: there is no memory for a message of %zu bytes: it is not bound\n", kMatchProgram,
               message.size());
  keepUnmatched(message);
}

/// Writes what is there, when it is this block's turn.
void MatchWorker::flush() {
  turn_->await();
  writeLines(events_, &run_.events);
  writeLines(unmatched_, run_.unmatched);
}

void MatchWorker::writeLines(LineBuffer& lines, Output* output) {
  if (!lines.text().empty()) output->write(lines.text());
  lines.clear();
}

}  // namespace quillon
