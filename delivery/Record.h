#ifndef QUILLON_DELIVERY_RECORD_H_
#define QUILLON_DELIVERY_RECORD_H_

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/named_value.h"

namespace quillon::delivery {

/// What a record holds, and the kind of its bytes in a cache and in the protocol.
enum class RecordForm : std::uint32_t {
  kEvent = 1,       ///< A class and its slots.
  kAttributes = 2,  ///< What a class selects; the event server has the class, and makes the event.
  kRaw = 3,         ///< A message as its source has it; whoever gets it binds it.
};

/// Names a set of class definitions or format files: 128 bits of a hash. All zero: none.
using SetId = std::array<std::uint8_t, 16>;

/// What travels: an event or what becomes one, with where it came from. A view: it owns nothing.
///
/// As bytes it is
///
///     u8 version, 1    u8 form
///     16 bytes         set
///     u32              eventId
///     text             source, position, className
///     u32              values, and of each: text name, text value
///     text             text
///
/// where numbers are little-endian and a text is its size as u32 and its bytes. Nothing follows.
struct Record {
  RecordForm form = RecordForm::kEvent;
  SetId set{};                 ///< The class definitions that it is made by, or is to be.
  std::uint32_t eventId = 0;   ///< The number of the class in the set.
  std::string_view source;     ///< Of the message: the adapter's name and the source's, as in "web1/auth".
  std::string_view position;   ///< Of the message in its source. With `source` it tells the message from all others.
  std::string_view className;  ///< Empty for kRaw.
  std::vector<NamedValue> values;  ///< Slots or attributes; none for kRaw.
  std::string_view text;           ///< Of kRaw alone: the message.

  bool operator==(const Record&) const = default;
};

/// Appends the bytes of `record`. Its texts together must have fewer than 2^32 bytes.
void encode(const Record& record, std::string& bytes);

/// Takes the bytes apart; the views are valid as long as `bytes` are, and `record` keeps its room from one to the next.
/// False when the bytes are no record; then `record` is not to be used.
[[nodiscard]] bool decode(std::string_view bytes, Record& record);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_RECORD_H_
