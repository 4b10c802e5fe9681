#ifndef QUILLON_FOUNDATION_JSON_TEXT_H_
#define QUILLON_FOUNDATION_JSON_TEXT_H_

#include <string>
#include <string_view>

namespace quillon {

/// True when `text` stands in a JSON string as it is and is printable ASCII: nothing of it needs a closer look.
bool isPlainJson(std::string_view text);

/// Appends `text` as it stands within the quotes of a JSON string (RFC 8259). Control characters, U+007F to U+009F
/// among them, are escaped; bytes that are not UTF-8 become U+FFFD, as repairUtf8() does it.
void appendJson(std::string& json, std::string_view text);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_JSON_TEXT_H_
