#ifndef QUILLON_ADAPTER_MESSAGENAME_H_
#define QUILLON_ADAPTER_MESSAGENAME_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "delivery/Record.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Gives the records of one source the source and the position that tell their messages from all others. For one
/// thread.
class MessageName {
 public:
  /// `source` is how receivers know it: "web1/auth".
  explicit MessageName(std::string source);

  /// Of a message that ends at `position`; with an `origin` it has its name from there. The record refers to this
  /// object, and to the origin, until the next call.
  void set(const Position& position, const std::optional<Origin>& origin, delivery::Record& record);

 private:
  const std::string source_;
  const std::string run_;  ///< Names this object, for messages that have no place to go back to.
  std::uint64_t count_ = 0;
  std::string position_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_MESSAGENAME_H_
