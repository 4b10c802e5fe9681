#ifndef QUILLON_FOUNDATION_VISIBLE_H_
#define QUILLON_FOUNDATION_VISIBLE_H_

#include <string>
#include <string_view>

namespace quillon {

/// `text` for the eyes of people: names, and text of unknown origin, on their way to a terminal. Each byte of a control
/// character but the tab, U+0000 to U+001F and U+007F to U+009F, is shown as `\x1B`, so that it cannot move the cursor,
/// change colours, or begin a line that was never written. So is a byte of 0x80 to 0x9F that belongs to no UTF-8
/// character: a terminal of eight bits takes it for a control character. All else stays as it is; what comes of it
/// cannot be taken back. For any thread.
[[nodiscard]] std::string visible(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_VISIBLE_H_
