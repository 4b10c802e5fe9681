#include "adapter/MessageName.h"

#include <cinttypes>
#include <cstdio>
#include <random>

namespace quillon {
namespace {

std::string drawName() {
  std::random_device device;
  char name[17];
  std::snprintf(name, sizeof name, "%08x%08x", device(), device());
  return name;
}

}  // namespace

MessageName::MessageName(std::string source) : source_(std::move(source)), run_(drawName()) {}

/// In a file: the number of the file, the byte behind the message, and a hash of the bytes before that, so that another
/// file, numbered anew after the positions were lost, gives other texts. Elsewhere a message comes only once.
void MessageName::set(const Position& position, const std::optional<Origin>& origin, delivery::Record& record) {
  if (origin) {
    record.source = origin->source;
    record.position = origin->position;
    return;
  }
  char text[64];
  if (position.file != 0) {
    std::snprintf(text, sizeof text, "%" PRIu64 ":%" PRIu64 ":%" PRIx64, position.file, position.offset, position.tail);
  } else {
    std::snprintf(text, sizeof text, "%s:%" PRIu64, run_.c_str(), ++count_);
  }
  record.source = source_;
  record.position = position_ = text;
}

}  // namespace quillon
