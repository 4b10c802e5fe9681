#ifndef QUILLON_AUTHORING_CHECK_FIXES_H_
#define QUILLON_AUTHORING_CHECK_FIXES_H_

#include <functional>
#include <string>
#include <string_view>

#include "authoring/report/Finding.h"

/// Applying fixes, and showing what they change. For any thread.
namespace quillon {

/// What became of a text.
struct Fixed {
  std::string text;
  int fixes = 0;
};

/// Applies the fixes of the findings of `text` that are `wanted`, then of those that come to light by that, until there
/// are no more. One that would make a text that compiles one that does not is left out.
Fixed fixAll(const std::string& file, std::string text, const std::function<bool(const Finding&)>& wanted);

/// What `after` changes in `before`, as a unified diff with three lines around each change; empty when nothing. The
/// names stand behind --- and +++.
std::string unifiedDiff(std::string_view file, std::string_view before, std::string_view after);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_CHECK_FIXES_H_
