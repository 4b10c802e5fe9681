#ifndef QUILLON_BENCHMARKS_GENERATED_FORMATS_H_
#define QUILLON_BENCHMARKS_GENERATED_FORMATS_H_

#include <string>

namespace quillon {

/// A format file of `blocks` blocks with 8 slot lines each, one of them a PRINTF. Every fourth block follows an earlier
/// one. The same `blocks` always give the same text.
std::string generatedFormats(int blocks);

/// Writes `text` to a new file, which is removed when this object goes.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& text);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();
  const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
};

}  // namespace quillon

#endif  // QUILLON_BENCHMARKS_GENERATED_FORMATS_H_
