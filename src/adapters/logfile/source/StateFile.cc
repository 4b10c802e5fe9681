#include "src/adapters/logfile/source/StateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "foundation/checkpoint.h"
#include "src/adapters/logfile/source/fingerprint.h"
#include "src/adapters/logfile/source/glob.h"

namespace quillon {
namespace {

constexpr std::string_view kMagic = "quillon-state 1\n";
constexpr std::uint64_t kLeastRewrite = 1 << 20;

std::string lineOf(std::string_view source, std::string_view key, std::string_view value) {
  return std::string(source) + ' ' + std::string(key) + ' ' + std::string(value) + '\n';
}

std::string batchOf(const std::string& lines) {
  char head[64];
  const int length = std::snprintf(head, sizeof head, "= %zu %016" PRIx64 "\n", lines.size(), hashOf(lines));
  return std::string(head, static_cast<std::size_t>(length)) + lines;
}

std::string_view takeUntil(std::string_view& text, char delimiter) {
  const std::string_view taken = text.substr(0, text.find(delimiter));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  return taken;
}

/// The lines of the batch that `text` begins with, which are taken off it. False when it is damaged.
bool takeBatch(std::string_view& text, std::string_view& lines) {
  std::string_view rest = text;
  if (!rest.starts_with("= ")) return false;
  rest.remove_prefix(2);
  const std::string_view size = takeUntil(rest, ' ');
  const std::string_view checksum = takeUntil(rest, '\n');
  std::uint64_t bytes = 0;
  std::uint64_t hash = 0;
  if (std::from_chars(size.data(), size.data() + size.size(), bytes).ptr != size.data() + size.size() ||
      checksum.size() != 16 ||
      std::from_chars(checksum.data(), checksum.data() + 16, hash, 16).ptr != checksum.data() + 16 ||
      bytes > rest.size() || hashOf(rest.substr(0, bytes)) != hash) {
    return false;
  }
  lines = rest.substr(0, bytes);
  text = rest.substr(bytes);
  return true;
}

}  // namespace

StateFile::StateFile(std::string path, std::unique_ptr<LockFile> lock)
    : path_(std::move(path)), lock_(std::move(lock)) {}

std::unique_ptr<StateFile> StateFile::open(const std::string& path, std::string& error, std::string& trouble) {
  std::unique_ptr<LockFile> lock = LockFile::take(path + ".lock", error);
  if (!lock) return nullptr;
  std::unique_ptr<StateFile> state(new StateFile(path, std::move(lock)));
  std::ifstream file(path, std::ios::binary);
  if (!file && access(path.c_str(), F_OK) == 0) {
    error = path + ": " + std::strerror(errno);
    return nullptr;
  }
  std::ostringstream text;
  text << file.rdbuf();
  if (file.is_open() && !parse(text.str(), state->kept_)) {
    const std::string aside = path + ".damaged";
    if (link(path.c_str(), aside.c_str()) != 0 && errno == EEXIST) {
      unlink(aside.c_str());
      static_cast<void>(link(path.c_str(), aside.c_str()));
    }
    trouble = path + ": is damaged; what could not be read is passed over, and a copy is kept as " + aside;
  }
  if (!state->rewrite()) {
    error = path + ": " + std::strerror(errno);
    return nullptr;
  }
  return state;
}

bool StateFile::parse(std::string_view text, Kept& kept) {
  bool whole = text.empty() || text.starts_with(kMagic);
  if (whole) text.remove_prefix(std::min(text.size(), kMagic.size()));
  while (!text.empty()) {
    std::string_view lines;
    if (!takeBatch(text, lines)) {
      whole = false;  // goes on where the next batch may begin
      text.remove_prefix(std::min(text.find("= ", 1), text.size()));
      continue;
    }
    while (!lines.empty()) {
      std::string_view line = takeUntil(lines, '\n');
      const std::string_view source = takeUntil(line, ' ');
      const std::string_view key = takeUntil(line, ' ');
      apply(kept, source, key, line);
    }
  }
  return whole;
}

void StateFile::apply(Kept& kept, std::string_view source, std::string_view key, std::string_view value) {
  std::map<std::string, std::string>& records = kept[std::string(source)];
  if (value.empty()) {
    records.erase(std::string(key));
  } else {
    records[std::string(key)] = value;
  }
  if (records.empty()) kept.erase(std::string(source));
}

std::vector<StateRecord> StateFile::state(const std::string& source) const {
  std::vector<StateRecord> records;
  const auto found = kept_.find(source);
  if (found == kept_.end()) return records;
  for (const auto& [key, value] : found->second) records.push_back({key, value});
  return records;
}

std::vector<std::string> StateFile::sources() const {
  std::vector<std::string> names;
  for (const auto& entry : kept_) names.push_back(entry.first);
  return names;
}

bool StateFile::forget(const std::string& source) {
  std::vector<StateRecord> records = state(source);
  for (StateRecord& record : records) record.value.clear();
  return keep(source, records, false);
}

bool StateFile::keep(const std::string& source, const std::vector<StateRecord>& changes, bool sync) {
  if (changes.empty()) return true;
  std::string lines;
  for (const StateRecord& record : changes) lines += lineOf(source, record.key, record.value);
  if (!append(batchOf(lines), sync)) return false;
  for (const StateRecord& record : changes) apply(kept_, source, record.key, record.value);
  // What was appended holds even when this does not succeed.
  if (size_ >= rewriteAt_ && !rewrite()) rewriteAt_ = size_ + kLeastRewrite;
  return true;
}

bool StateFile::append(const std::string& batch, bool sync) {
  checkpoint("state-begun");
  int failure = writeAll(file_.get(), batch);
  checkpoint("state-appended");
  if (failure == 0 && sync && fdatasync(file_.get()) != 0) failure = errno;
  if (failure == 0) {
    size_ += batch.size();
    return true;
  }
  // A piece of a batch would only cost itself, but it need not stay.
  static_cast<void>(ftruncate(file_.get(), static_cast<off_t>(size_)));
  errno = failure;
  return false;
}

/// Writes all that is kept into a new file, which takes the place of the old one when it is on the disk.
bool StateFile::rewrite() {
  std::string lines;
  for (const auto& [source, records] : kept_) {
    for (const auto& [key, value] : records) lines += lineOf(source, key, value);
  }
  const std::string text = std::string(kMagic) + (lines.empty() ? "" : batchOf(lines));
  const std::string aside = path_ + ".new";
  Descriptor file(::open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return false;
  if (const int failure = writeAll(file.get(), text)) {
    errno = failure;
    return false;
  }
  checkpoint("state-copied");
  if (fsync(file.get()) != 0) return false;
  checkpoint("state-synced");
  if (rename(aside.c_str(), path_.c_str()) != 0) return false;
  checkpoint("state-renamed");
  const Descriptor directory(::open(directoryOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory || fsync(directory.get()) != 0) return false;
  file_ = std::move(file);
  size_ = text.size();
  rewriteAt_ = 2 * size_ + kLeastRewrite;
  return true;
}

}  // namespace quillon
