#include "benchmarks/generated_formats.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>

namespace quillon {

std::string generatedFormats(int blocks) {
  std::mt19937 random(20240229);
  std::string text = "// Generated\n";
  for (int i = 0; i < blocks; ++i) {
    const std::string n = std::to_string(i);
    text += "FORMAT Service" + n;
    if (i % 4 == 3) text += " FOLLOWS Service" + std::to_string(random() % static_cast<unsigned>(i));
    text += "\n%t %s service" + n + "[%s]: session of %s from %s port %s closed after %s*\n";
    text +=
        "date $1\nhost $2\n-pid $3\nuser $4\norigin $5\n"
        "severity WARNING\n"
        "sub_source \"service " +
        n + "\"\nmsg PRINTF(\"user %s from %s on %s\", user, origin, host)\nEND\n\n";
  }
  return text;
}

TemporaryFile::TemporaryFile(const std::string& text) : path_("/tmp/quillon-bench-XXXXXX") {
  const int descriptor = mkstemp(path_.data());
  std::FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
  if (!file || std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fclose(file) != 0) {
    std::perror(path_.c_str());
    std::exit(EXIT_FAILURE);
  }
}

TemporaryFile::~TemporaryFile() { unlink(path_.c_str()); }

}  // namespace quillon
