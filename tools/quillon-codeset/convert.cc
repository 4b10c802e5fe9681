#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/quillon-codeset/commands.h"

namespace quillon {
namespace {

constexpr int kBufferBytes = 1 << 16;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// One conversion of a stream: bytes are put in, converted, and handed on in buffers of fixed size.
class Stage {
 public:
  using Converter = int(nxl_cs*, const char**, int*, char**, int*);

  Stage(Converter* converter, nxl_cs* cs) : converter_(converter), cs_(cs) {}

  // The room for more input, behind what waits for the rest of its character.
  char* inputEnd() { return in_.data() + pending_; }
  int inputRoom() const { return kBufferBytes - pending_; }

  // Converts what waits and `added` bytes more; `next(data, size)` gets the result and returns false to stop.
  template <class Next>
  bool convert(int added, Next next) {
    const char* in = in_.data();
    int left = pending_ + added;
    int code = 1;
    while (code == 1) {
      code = step(&in, &left, next);
      if (code < 0) return false;
    }
    done_ += pending_ + added - left;
    pending_ = left;
    std::memmove(in_.data(), in, static_cast<std::size_t>(left));
    return true;
  }

  // Ends the text.
  template <class Next>
  bool finish(Next next) {
    const char* none = nullptr;
    int left = 0;
    return step(&none, &left, next) >= 0;
  }

  bool isIncomplete() const { return pending_ > 0; }
  long long bytesDone() const { return done_; }

 private:
  // One call with a fresh target. Returns the converter's code, -1 when `next` stopped.
  template <class Next>
  int step(const char** in, int* left, Next next) {
    char* out = out_.data();
    int room = kBufferBytes;
    const int code = converter_(cs_, in, left, &out, &room);
    return next(out_.data(), kBufferBytes - room) ? code : -1;
  }

  Converter* converter_;
  nxl_cs* cs_;
  int pending_ = 0;
  long long done_ = 0;
  std::array<char, kBufferBytes> in_;
  std::array<char, kBufferBytes> out_;
};

bool writeOut(const char* data, int size) {
  const auto count = static_cast<std::size_t>(size);
  return std::fwrite(data, 1, count, stdout) == count;
}

// Converts everything, by way of UTF-8. Returns the exit status.
int convertStream(std::FILE* file, const char* file_name, nxl_cs* from, nxl_cs* to) {
  const auto decoder = std::make_unique<Stage>(nxl_to_utf8_r, from);
  const auto encoder = std::make_unique<Stage>(nxl_from_utf8_r, to);
  const auto encode = [&encoder](const char* data, int size) {
    while (size > 0) {
      const int part = size < encoder->inputRoom() ? size : encoder->inputRoom();
      std::memcpy(encoder->inputEnd(), data, static_cast<std::size_t>(part));
      if (!encoder->convert(part, writeOut)) return false;
      data += part;
      size -= part;
    }
    return true;
  };

  bool writable = true;
  while (writable) {
    const auto room = static_cast<std::size_t>(decoder->inputRoom());
    const auto count = static_cast<int>(std::fread(decoder->inputEnd(), 1, room, file));
    if (count == 0) break;
    writable = decoder->convert(count, encode);
  }
  if (std::ferror(file)) return fail("cannot read %s: %s", file_name, std::strerror(errno));
  if (writable) writable = encoder->finish(writeOut);
  const int status = finishOutput();
  if (status != 0) return status;
  // What the first stage leaves is in bytes of the input; the second leaves something only when the first passes UTF-8
  // through unchanged, so that its count is the input's too.
  for (const Stage* stage : {decoder.get(), encoder.get()}) {
    if (stage->isIncomplete()) return fail("%s: incomplete character at byte %lld", file_name, stage->bytesDone());
  }
  return 0;
}

}  // namespace

int convertFile(const std::string& from, const std::string& to, const std::string& file) {
  const std::unique_ptr<nxl_cs, FreeCodeset> source(nxl_cs_new(from.c_str()));
  if (!source) return fail("no codeset %s; \"quillon-codeset list\" shows what NXLDIR provides", from.c_str());
  const std::unique_ptr<nxl_cs, FreeCodeset> target(nxl_cs_new(to.c_str()));
  if (!target) return fail("no codeset %s; \"quillon-codeset list\" shows what NXLDIR provides", to.c_str());
  if (file.empty() || file == "-") return convertStream(stdin, "standard input", source.get(), target.get());
  const std::unique_ptr<std::FILE, CloseFile> input(std::fopen(file.c_str(), "rb"));
  if (!input) return fail("cannot open %s: %s", file.c_str(), std::strerror(errno));
  return convertStream(input.get(), file.c_str(), source.get(), target.get());
}

}  // namespace quillon
