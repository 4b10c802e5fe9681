#ifndef QUILLON_TESTS_SOURCE_FILE_MODEL_H_
#define QUILLON_TESTS_SOURCE_FILE_MODEL_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillon {

/// Something that happens to logs, or that the source does. What the numbers mean is for the kind; any do.
struct FileStep {
  int kind = 0;
  unsigned name = 0;
  unsigned amount = 0;
};

/// A random list of what can happen to logs, the same for the same seed.
struct FileSequence {
  unsigned setting = 0;  ///< How the source is configured.
  std::vector<FileStep> steps;

  static FileSequence random(std::uint64_t seed);
  std::string toString() const;
  static FileSequence parse(const std::string& text);
};

struct FileVerdict {
  std::string fault;  ///< Empty when all that had to arrive did, in order and as often as it may.
  unsigned lines = 0;
  unsigned excused = 0;  ///< Lines that nobody could have read, and that a gap tells of where the source knew the file.
};

/// Does what the sequence says in `directory`, which is emptied, with a file source that follows the logs there, and
/// judges what arrives by a model of what stood in the files.
FileVerdict runFileSequence(const FileSequence& sequence, const std::filesystem::path& directory);

/// The sequence with as many steps left out as can be while a fault remains.
FileSequence minimised(FileSequence sequence, const std::filesystem::path& directory);

}  // namespace quillon

#endif  // QUILLON_TESTS_SOURCE_FILE_MODEL_H_
