#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "codeset/ebcdic.h"
#include "foundation/descriptor.h"
#include "program/program.h"
#include "tools/quillon-codeset/commands.h"
#include "tools/quillon-codeset/output_file.h"

namespace quillon {
namespace {

constexpr std::size_t kBufferBytes = 1 << 16;

// Counts the question marks in a text that comes in pieces of whole characters. A byte is one wherever it stands: no
// codeset has the byte of the question mark in another character, but for the double bytes of mixed EBCDIC.
class QuestionMarks {
 public:
  QuestionMarks(bool mixed, std::uint32_t byte) : mixed_(mixed), byte_(static_cast<char>(byte)) {}

  long long count(std::string_view text) {
    if (!mixed_) return std::count(text.begin(), text.end(), byte_);
    long long result = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte == kShiftOut || byte == kShiftIn) {
        shifted_ = byte == kShiftOut;
      } else if (shifted_ && byte >= 0x40) {
        ++i;
      } else {
        result += text[i] == byte_;
      }
    }
    return result;
  }

 private:
  bool mixed_;
  bool shifted_ = false;
  char byte_;
};

QuestionMarks marksInUtf8() { return {false, '?'}; }

QuestionMarks marksInSource(const nxl_cs& cs) {
  const bool mixed = cs.kind == kMixedEbcdicKind;
  return {mixed, mixed || cs.kind == kEbcdicKind ? kEbcdicSubstitute : '?'};
}

QuestionMarks marksInTarget(const nxl_cs& cs) {
  return cs.kind == kInternal37Kind ? QuestionMarks(false, kEbcdicSubstitute) : marksInSource(cs);
}

// One conversion of a text that comes in pieces. A copy goes on by itself from where the original was.
class Stage {
 public:
  using Converter = int(nxl_cs*, const char**, int*, char**, int*);

  Stage(Converter* converter, const nxl_cs& cs, QuestionMarks before, QuestionMarks after)
      : converter_(converter), cs_(cs), before_(before), after_(after) {}

  // Converts what waits for the rest of its character, and `text`; adds the result to `out`.
  void convert(std::string_view text, std::string& out) {
    waiting_ += text;
    const char* in = waiting_.data();
    auto left = static_cast<int>(waiting_.size());
    while (step(&in, &left, out) == 1) {
    }
    const std::size_t used = waiting_.size() - static_cast<std::size_t>(left);
    lost_ -= before_.count(std::string_view(waiting_).substr(0, used));
    done_ += static_cast<long long>(used);
    waiting_.erase(0, used);
  }

  // Ends the text.
  void finish(std::string& out) {
    const char* none = nullptr;
    int left = 0;
    step(&none, &left, out);
  }

  bool isIncomplete() const { return !waiting_.empty(); }
  long long bytesDone() const { return done_; }

  // The characters that became "?".
  long long lost() const { return lost_; }

 private:
  // One call with a fresh target; the converter's result.
  int step(const char** in, int* left, std::string& out) {
    char target[kBufferBytes];
    char* end = target;
    int room = kBufferBytes;
    const int code = converter_(&cs_, in, left, &end, &room);
    const std::string_view made(target, static_cast<std::size_t>(end - target));
    lost_ += after_.count(made);
    out += made;
    return code;
  }

  Converter* converter_;
  nxl_cs cs_;  // the state is ours, the table is not
  QuestionMarks before_, after_;
  std::string waiting_;
  long long done_ = 0;
  long long lost_ = 0;
};

// Converts one text by way of UTF-8.
class Conversion {
 public:
  Conversion(const nxl_cs& from, const nxl_cs& to)
      : decoder_(nxl_to_utf8_r, from, marksInSource(from), marksInUtf8()),
        encoder_(nxl_from_utf8_r, to, marksInUtf8(), marksInTarget(to)) {}

  void convert(std::string_view text, std::string& out) {
    utf8_.clear();
    decoder_.convert(text, utf8_);
    encoder_.convert(utf8_, out);
  }

  // The same, but only to the first character that would become "?"; false when there is one. bytesDone() is its place.
  bool convertStrictly(std::string_view text, std::string& out) {
    const Conversion before = *this;
    std::string made;
    convert(text, made);
    if (lost() == 0) {
      out += made;
      return true;
    }
    *this = before;
    for (const char& byte : text) {
      const Conversion last = *this;
      made.clear();
      convert({&byte, 1}, made);
      if (lost() == 0) {
        out += made;
        continue;
      }
      *this = last;
      break;
    }
    return false;
  }

  void finish(std::string& out) { encoder_.finish(out); }

  // What the first stage leaves is in bytes of the input; the second leaves something only when the first passes UTF-8
  // through unchanged, so that its count is the input's too.
  bool isIncomplete() const { return decoder_.isIncomplete() || encoder_.isIncomplete(); }
  long long bytesDone() const { return encoder_.isIncomplete() ? encoder_.bytesDone() : decoder_.bytesDone(); }

  long long lost() const { return decoder_.lost() + encoder_.lost(); }

 private:
  Stage decoder_, encoder_;
  std::string utf8_;
};

// Reads what there is, and waits for it; 0 at the end, -1 and errno when that fails.
ssize_t readSome(int descriptor, char* to, std::size_t room) {
  for (;;) {
    const ssize_t count = read(descriptor, to, room);
    if (count >= 0 || (errno != EINTR && errno != EAGAIN)) return count;
    pollfd input{.fd = descriptor, .events = POLLIN, .revents = 0};
    if (errno == EAGAIN) poll(&input, 1, -1);
  }
}

// Converts the inputs one after another, each as a text of its own.
class Converter {
 public:
  Converter(const ConvertOptions& options, const nxl_cs& from, const nxl_cs& to)
      : options_(options), from_(from), to_(to) {}

  int run() {
    if (!options_.output.empty() && options_.output != "-") file_.emplace(options_.output);
    if (file_ && file_->error() != 0) return writeFailed(file_->error());
    if (options_.inputs.empty()) convertInput("-");
    for (const std::string& input : options_.inputs) convertInput(input);
    if (writeError_ != 0) return writeFailed(writeError_);
    if (file_ && status_ == EXIT_SUCCESS && file_->finish() != 0) return writeFailed(file_->error());
    return status_;
  }

 private:
  int writeFailed(int error) const {
    return file_ ? fail("cannot write %s: %s", options_.output.c_str(), std::strerror(error)) : outputFailed(error);
  }

  void convertInput(const std::string& path) {
    if (writeError_ != 0) return;
    if (path == "-") {
      convertDescriptor(STDIN_FILENO, "standard input");
      return;
    }
    const Descriptor input(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!input) {
      status_ = fail("cannot open %s: %s", path.c_str(), std::strerror(errno));
    } else {
      convertDescriptor(input.get(), path.c_str());
    }
  }

  void convertDescriptor(int input, const char* name) {
    if (file_ ? areOneFile(input, options_.output.c_str()) : areOneFile(input, STDOUT_FILENO)) {
      complainOfWritten("quillon-codeset", name);
      status_ = EXIT_FAILURE;
      return;
    }
    Conversion conversion(from_, to_);
    const bool kept = convertAll(input, name, conversion);
    std::string end;
    conversion.finish(end);
    write(end);
    if (!kept) {
      status_ = fail("%s: the character at byte %lld has no counterpart", name, conversion.bytesDone());
    } else if (conversion.isIncomplete()) {
      status_ = fail("%s: incomplete character at byte %lld", name, conversion.bytesDone());
    }
    if (options_.count) say("%s: characters that became \"?\": %lld", name, conversion.lost());
  }

  // Each piece is written when it has come. False when --strict stopped it.
  bool convertAll(int input, const char* name, Conversion& conversion) {
    std::string made;
    while (writeError_ == 0) {
      const ssize_t count = readSome(input, buffer_.get(), kBufferBytes);
      if (count < 0) status_ = fail("cannot read %s: %s", name, std::strerror(errno));
      if (count <= 0) break;
      const std::string_view text(buffer_.get(), static_cast<std::size_t>(count));
      made.clear();
      bool kept = true;
      if (options_.strict) {
        kept = conversion.convertStrictly(text, made);
      } else {
        conversion.convert(text, made);
      }
      write(made);
      if (!kept) return false;
    }
    return true;
  }

  void write(std::string_view text) {
    if (writeError_ == 0) writeError_ = writeAll(file_ ? file_->descriptor() : STDOUT_FILENO, text);
  }

  const ConvertOptions& options_;
  const nxl_cs& from_;
  const nxl_cs& to_;
  const std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(kBufferBytes);
  std::optional<OutputFile> file_;
  int status_ = EXIT_SUCCESS;
  int writeError_ = 0;
};

}  // namespace

int convertFiles(const ConvertOptions& options) {
  const Codeset from = openCodeset(options.from);
  if (!from) return EXIT_FAILURE;
  const Codeset to = openCodeset(options.to);
  if (!to) return EXIT_FAILURE;
  return Converter(options, *from, *to).run();
}

}  // namespace quillon
