#ifndef QUILLON_TOOLS_QUILLON_MATCH_BINDER_H_
#define QUILLON_TOOLS_QUILLON_MATCH_BINDER_H_

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

class LogDriver;

namespace quillon {

class Coverage;
class FormatSet;

/// A message that was bound.
struct Bound {
  std::size_t format;                        ///< Its place in the driver's list,
  std::size_t eventId;                       ///< and in the format file.
  std::span<const std::string_view> values;  ///< In UTF-8.
  std::string_view text;                     ///< What the values are parts of, as EventWriter has it; may be empty.
};

/// Binds messages, in the codeset of the locale, one at a time. May throw std::bad_alloc.
class Binder {
 public:
  virtual ~Binder() = default;
  /// Null when no format binds `message`, behind which MessageBlock::kSlack bytes can be read. The result is valid
  /// until the next call, and no longer than `message`.
  virtual const Bound* bind(std::string_view message) = 0;
  /// Adds to `coverage` what was bound; nothing unless that was asked for when this object was made.
  virtual void tell(Coverage& /*coverage*/) const {}
};

/// One for each thread.
std::unique_ptr<Binder> makeFastBinder(std::shared_ptr<const FormatSet> formats, bool fromEventLog);

/// The same, which measures what it does.
std::unique_ptr<Binder> makeMeasuringBinder(std::shared_ptr<const FormatSet> formats, bool fromEventLog);

/// Runs on LogDriver::bind(), which is what binding means. One in a process, and in one thread.
std::unique_ptr<Binder> makePlainBinder(LogDriver& driver, bool fromEventLog);

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_MATCH_BINDER_H_
