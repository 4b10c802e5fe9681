#ifndef QUILLON_AUTHORING_SAMPLES_SAMPLERUNNER_H_
#define QUILLON_AUTHORING_SAMPLES_SAMPLERUNNER_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "authoring/explain/Explanation.h"
#include "authoring/samples/Samples.h"

class FormatSpec;
class LogDriver;

namespace quillon {

/// What became of a sample.
struct SampleResult {
  enum class Verdict {
    kPassed,
    kNoSuchBlock,   ///< No block has the name that the sample gives.
    kNotBound,      ///< Another block binds it, or none.
    kWronglyBound,  ///< A block binds it that should not.
    kOtherValues,   ///< Its block binds it, but to other values.
  };

  /// A value that is not what the sample says.
  struct Difference {
    std::size_t value;   ///< Of Sample::values, by its place there.
    bool exists;         ///< False: the block has no such slot or variable.
    std::string actual;  ///< In UTF-8, as in the event.
  };

  Verdict verdict = Verdict::kPassed;
  const FormatSpec* expected = nullptr;  ///< The first block of the name that the sample gives.
  const FormatSpec* bound = nullptr;     ///< What binds the message when the last block is tried first; null: nothing.
  const FormatSpec* firstInFile = nullptr;  ///< The same when the first block is tried first.
  /// Of a message that its block does not bind, the reason. It may be that another block is tried before.
  std::optional<NearBlock> why;
  std::vector<Difference> differences;

  bool passed() const { return verdict == Verdict::kPassed; }
  /// The order of trying decides what binds the message.
  bool dependsOnOrder() const { return bound != firstInFile; }
};

/// Runs samples against the formats of a driver, with the engine that programs bind with. A message is tried as a
/// whole, as quillon-match does it, be it of several lines.
///
/// Threads: belongs to one at a time, with the driver.
class SampleRunner {
 public:
  /// `formats` has the formats of a file, read without an error and in the order of the file; it must outlive this
  /// object and stay as it is. `fromEventLog` makes newlines white space.
  explicit SampleRunner(LogDriver& formats, bool fromEventLog = false);
  SampleRunner(const SampleRunner&) = delete;
  SampleRunner& operator=(const SampleRunner&) = delete;
  ~SampleRunner();

  SampleResult run(const Sample& sample);

 private:
  class Order;

  LogDriver& formats_;
  const bool fromEventLog_;
  std::unique_ptr<Order> lastFirst_;
  std::unique_ptr<Order> ofFile_;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SAMPLES_SAMPLERUNNER_H_
