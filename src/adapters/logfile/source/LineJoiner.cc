#include "src/adapters/logfile/source/LineJoiner.h"

#include <algorithm>
#include <utility>

#include "src/adapters/logfile/source/Splitter.h"

namespace quillon {

bool LineJoiner::add(const Message& line, std::uint64_t bytes, TimePoint now, JoinedLines& complete) {
  since_ = now;
  if (holds_ && isIndented(line.text)) {
    const std::size_t room = longest_ - std::min(longest_, held_.text.size() + 1);
    const bool isTooLong = line.text.size() > room || room == 0;
    if (room > 0 && !held_.cut) {
      held_.text += '\n';
      held_.text += isTooLong ? withoutCutCharacter(line.text.substr(0, room)) : line.text;
    }
    held_.cut |= line.cut || isTooLong;
    held_.bytes += bytes;
    held_.position = line.position;
    return false;
  }
  const bool completes = holds_;
  if (completes) complete = std::move(held_);
  held_ = {std::string(line.text), line.position, bytes, line.cut};
  holds_ = true;
  return completes;
}

JoinedLines LineJoiner::release() {
  holds_ = false;
  return std::move(held_);
}

void LineJoiner::takeOver(LineJoiner& other, TimePoint now) {
  held_ = other.release();
  holds_ = true;
  since_ = now;
}

}  // namespace quillon
