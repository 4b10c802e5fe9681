#include "delivery/destinations/DeadLetters.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "delivery/destinations/Backoff.h"
#include "delivery/record_json.h"
#include "foundation/descriptor.h"
#include "foundation/json_text.h"

namespace quillon::delivery {
namespace {

std::string linesOf(std::span<const Event> events, std::string_view why) {
  std::string lines;
  Record record;
  for (const Event& event : events) {
    lines += "{\"number\":" + std::to_string(event.number) + ",\"why\":\"";
    quillon::appendJson(lines, why);
    lines += "\",\"record\":";
    if (decode(event.bytes, record)) {
      appendJson(lines, record);
    } else {
      lines += "null";
    }
    lines += "}\n";
  }
  return lines;
}

/// 0, or the errno of what failed. What was written in part is taken back, so that lines stay whole.
int append(const std::string& path, std::string_view lines) {
  Descriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640));
  if (!file) return errno;
  const off_t before = lseek(file.get(), 0, SEEK_END);
  int error = quillon::writeAll(file.get(), lines);
  if (error == 0 && fdatasync(file.get()) != 0 && errno != EINVAL && errno != EROFS) error = errno;
  if (error != 0 && before >= 0) static_cast<void>(!ftruncate(file.get(), before));
  return error;
}

}  // namespace

bool DeadLetters::put(Feed& feed, std::span<const Event> events, std::string_view why) {
  const std::string lines = linesOf(events, why);
  Backoff backoff(std::chrono::milliseconds(200), std::chrono::seconds(10));
  while (const int error = append(path_, lines)) {
    feed.report(Feed::Level::kError,
                "cannot write " + path_ + ", where events go that are refused: " + std::strerror(error));
    pause(feed, Feed::Clock::now() + backoff.next());
    if (feed.stopping()) return false;
  }
  if (inBurst_ == 0) {
    feed.report(Feed::Level::kError, "refused: " + std::string(why) + "; such events go to " + path_);
  }
  inBurst_ += events.size();
  feed.count("refused", events.size());
  return true;
}

void DeadLetters::endBurst(Feed& feed) {
  if (inBurst_ == 0) return;
  feed.report(Feed::Level::kInfo,
              "takes events again; " + std::to_string(inBurst_) + " that it refused went to " + path_);
  inBurst_ = 0;
}

}  // namespace quillon::delivery
