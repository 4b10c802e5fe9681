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

std::string generatedMessage(int number, int words) {
  static const char* const kUsers[] = {"root", "operator", "www-data", "m.mustermann"};
  const std::string n = std::to_string(number);
  const auto w = static_cast<unsigned>(words);
  return "Nov 21 10:" + std::to_string(10 + w % 50) + ":07 host" + std::to_string(w % 17) + " service" + n + "[" +
         std::to_string(1000 + w % 9000) + "]: session of " + kUsers[w % 4] + " from 192.0.2." +
         std::to_string(w % 256) + " port " + std::to_string(1024 + w % 60000) + " closed after " +
         std::to_string(w % 100) + " seconds of work";
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
