#include "src/adapters/logfile/common/shared_text.h"

#include <array>
#include <functional>

namespace quillon {

qlStrobj sharedText(std::string_view text) {
  static auto& remembered = *new std::array<qlStrobj, 1024>;
  qlStrobj& known = remembered[std::hash<std::string_view>()(text) % remembered.size()];
  if (known.isNull() || known.view() != text) known = qlStrobj(text);
  return known;
}

}  // namespace quillon
