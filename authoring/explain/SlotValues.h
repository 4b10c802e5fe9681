#ifndef QUILLON_AUTHORING_EXPLAIN_SLOTVALUES_H_
#define QUILLON_AUTHORING_EXPLAIN_SLOTVALUES_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

class FormatSpec;

namespace quillon {

/// A slot of an event.
struct SlotValue {
  std::string name;
  std::string value;  ///< UTF-8, as far as the message was.

  bool operator==(const SlotValue&) const = default;
};

/// The slots of the event that a message becomes which `format` has bound with `values`, as Match has them: in the
/// order of the event, each with the text that the event has for it. For any thread.
std::vector<SlotValue> slotValues(const FormatSpec& format, std::span<const std::string_view> values);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_EXPLAIN_SLOTVALUES_H_
