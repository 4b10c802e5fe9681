#include "tools/LogInput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "foundation/visible.h"
#include "program/Interruption.h"
#include "program/program.h"

namespace quillon {

LogInput::LogInput(Settings settings, std::vector<std::string> names)
    : settings_(std::move(settings)), names_(std::move(names)) {}

bool LogInput::fill(MessageBlock& block) {
  while (!Interruption::isAsked()) {
    if (stopped_) close();
    if (!log_ && next_ == names_.size()) break;
    if (!log_ && !open(names_[next_++])) continue;
    if (log_->reader.fill(block)) {
      tellOfPiece(block);
      log_->progress.show(log_->reader.bytes());
      return true;
    }
    close();
  }
  close();
  return false;
}

/// True when the log is to be read.
bool LogInput::open(const std::string& name) {
  int file = STDIN_FILENO;
  if (name != "-") {
    if (stopped_) {
      if (access(name.c_str(), R_OK) != 0) fail("open", errno);
      return false;
    }
    file_ = Descriptor(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
    file = file_.get();
    if (file < 0) {
      if (!Interruption::isAsked()) fail("open", errno);
      return false;
    }
  }
  if (settings_.isWritten(file)) {
    complainOfWritten(settings_.program, name);
    failed_ = true;
    return false;
  }
  log_.emplace(file, settings_, Interruption::descriptor());
  return true;
}

void LogInput::close() {
  if (!log_) return;
  bytes_ += log_->reader.bytes();
  const int error = log_->reader.error();
  log_.reset();
  file_ = Descriptor();
  if (error != 0) fail("read", error);
}

/// Says of each message that is too long, once, why it comes in pieces.
void LogInput::tellOfPiece(const MessageBlock& block) {
  const bool wasInPieces = std::exchange(log_->inPieces, block.kind() == MessageBlock::Kind::kPiece);
  if (!log_->inPieces || wasInPieces) return;
  log_->progress.hide();
  const bool isTooLong = block.text().size() > settings_.longest;
  std::fprintf(stderr, "%s: %s: %s a message of more than %zu bytes: it is not bound\n", settings_.program,
               visible(names_[next_ - 1]).c_str(), isTooLong ? "there is" : "there is no memory for",
               isTooLong ? settings_.longest : block.text().size());
}

void LogInput::fail(const char* failed, int error) {
  const std::string& name = names_[next_ - 1];
  complain(settings_.program, failed, name == "-" ? "standard input" : name, error);
  failed_ = true;
}

}  // namespace quillon
