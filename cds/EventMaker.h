#ifndef QUILLON_CDS_EVENTMAKER_H_
#define QUILLON_CDS_EVENTMAKER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cds/ClassSet.h"
#include "foundation/named_value.h"

namespace quillon {

/// An event as its class makes it.
struct MadeEvent {
  std::string_view className;
  std::uint32_t eventId = 0;
  std::span<const NamedValue> slots;  ///< Those that MAP assigns, in its order.
};

/// Makes events from the attributes that adapters send. Keeps its room from one event to the next, and allocates
/// nothing once it has made one as large. One for each thread.
class EventMaker {
 public:
  enum class Result {
    kMade,
    kNoClass,      ///< The set has no class of that number.
    kNoAttribute,  ///< The class selects an attribute that was not sent: missing() tells its name.
    kTooLarge,     ///< The event would have more bytes than it may.
  };

  /// An event takes at most `most` bytes of values that are put together: a PRINTF that names one attribute many times
  /// makes much of a little.
  explicit EventMaker(std::shared_ptr<const ClassSet> classes, std::size_t most = std::size_t{1} << 30);
  EventMaker(const EventMaker&) = delete;
  EventMaker& operator=(const EventMaker&) = delete;

  /// The event of the class number `eventId`. The attributes can come in any order, though that of SELECT is fastest;
  /// those that the class does not select have no part in it, and of several with one name the first counts.
  [[nodiscard]] Result make(std::uint32_t eventId, std::span<const NamedValue> attributes);

  /// What was made last: valid until the next make(), and as long as the attributes are.
  const MadeEvent& event() const { return event_; }
  std::string_view missing() const { return missing_; }

 private:
  bool select(std::size_t place, std::span<const NamedValue> attributes);
  bool takeInOrder(std::size_t place, std::span<const NamedValue> attributes);
  std::size_t sizeOf(std::size_t slot) const;
  std::string_view put(std::size_t slot);
  std::span<const ClassSet::Piece> pieces(std::size_t slot) const;
  bool isOnePart(std::span<const ClassSet::Piece> pieces) const;

  const std::shared_ptr<const ClassSet> classes_;
  const std::size_t most_;
  std::vector<std::string_view> values_;  ///< By lines of SELECT; the first one is no line, and empty.
  std::vector<NamedValue> slots_;
  std::string room_;  ///< Values that are put together.
  MadeEvent event_;
  std::string_view missing_;
};

}  // namespace quillon

#endif  // QUILLON_CDS_EVENTMAKER_H_
