#ifndef QUILLON_FOUNDATION_NAMED_VALUE_H_
#define QUILLON_FOUNDATION_NAMED_VALUE_H_

#include <string_view>

namespace quillon {

/// An attribute that an adapter sends, or a slot of an event: any bytes under a name. Owns neither.
struct NamedValue {
  std::string_view name;
  std::string_view value;
  bool operator==(const NamedValue&) const = default;
};

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_NAMED_VALUE_H_
