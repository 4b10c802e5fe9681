#include "delivery/cache/Ledger.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <utility>

#include "delivery/cache/crc32c.h"
#include "foundation/checkpoint.h"

namespace quillon::delivery {
namespace {

constexpr std::uint64_t kLeastRewrite = 1 << 20;
constexpr std::size_t kCrcDigits = 8;

std::string lineOf(std::uint64_t serial, std::string_view kind, std::uint64_t number, std::string_view name) {
  std::string fact = std::to_string(serial).append(" ").append(kind).append(" ").append(std::to_string(number));
  if (!name.empty()) fact.append(" ").append(name);
  char crc[kCrcDigits + 2];
  std::snprintf(crc, sizeof crc, "%08x ", crc32c(fact));
  return crc + fact + '\n';
}

std::string_view takeUntil(std::string_view& text, char delimiter) {
  const std::string_view taken = text.substr(0, text.find(delimiter));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  return taken;
}

template <typename Number>
bool readNumber(std::string_view text, Number& number, int base) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

bool apply(std::string_view line, Ledger::Contents& contents) {
  const std::string_view crc = takeUntil(line, ' ');
  std::uint32_t expected = 0;
  std::uint64_t serial = 0;
  std::uint64_t number = 0;
  if (crc.size() != kCrcDigits || !readNumber(crc, expected, 16) || crc32c(line) != expected) return false;
  if (!readNumber(takeUntil(line, ' '), serial, 10) || serial < contents.serial) return false;
  const std::string_view kind = takeUntil(line, ' ');
  if (!readNumber(takeUntil(line, ' '), number, 10)) return false;
  contents.serial = serial;
  if (kind == "cursor" && Ledger::isName(line)) {
    contents.cursors[std::string(line)] = number;
  } else if (kind == "forget" && Ledger::isName(line)) {
    contents.cursors.erase(std::string(line));
  } else if (kind == "numbers") {
    contents.numbers = std::max(contents.numbers, number);
  } else if (kind == "synced") {
    contents.synced = std::max(contents.synced, number);
  } else if (kind == "removed") {
    contents.removed = std::max(contents.removed, number);
  } else if (kind == "suspect") {
    contents.suspect = std::max(contents.suspect, number);
  } else {
    return false;
  }
  return true;
}

}  // namespace

Ledger::Contents Ledger::parse(std::string_view text) {
  Contents contents;
  while (!text.empty()) {
    if (!apply(takeUntil(text, '\n'), contents)) ++contents.damagedLines;
  }
  return contents;
}

int Ledger::read(Files& files, const std::string& directory, Contents& contents) {
  std::string text;
  const int error = readWhole(files, directory + "/ledger", text);
  contents = parse(text);
  return error == ENOENT ? 0 : error;
}

bool Ledger::isName(std::string_view name) {
  return !name.empty() && name.size() <= 200 &&
         std::ranges::all_of(name, [](char c) { return static_cast<unsigned char>(c) > ' ' && c != '\x7F'; });
}

Ledger::Ledger(Files& files, std::string directory, Contents contents)
    : files_(files),
      directory_(std::move(directory)),
      contents_(std::move(contents)),
      // What was read may be in the system's memory alone, so that nothing is known to be on the disk yet.
      isSynced_(contents_.cursors.empty()) {}

int Ledger::setCursor(const std::string& name, std::uint64_t number) {
  contents_.cursors[name] = number;
  return append("cursor", number, name);
}

int Ledger::forgetCursor(const std::string& name) {
  contents_.cursors.erase(name);
  durable_.erase(name);
  return append("forget", 0, name);
}

int Ledger::setSynced(std::uint64_t number) {
  contents_.synced = number;
  return append("synced", number, "");
}

int Ledger::setRemoved(std::uint64_t number) {
  contents_.removed = std::max(contents_.removed, number);
  return append("removed", contents_.removed, "");
}

int Ledger::setSuspect(std::uint64_t number) {
  contents_.suspect = number;
  return append("suspect", number, "");
}

int Ledger::setNumbers(std::uint64_t number) {
  const std::uint64_t before = std::exchange(contents_.numbers, number);
  int error = append("numbers", number, "");
  if (error == 0) error = sync();
  if (error != 0) contents_.numbers = before;  // the caller goes on with what is known to be on the disk
  return error;
}

int Ledger::append(std::string_view kind, std::uint64_t number, std::string_view name) {
  isSynced_ = false;
  if (!file_ || size_ >= rewriteAt_) return rewrite();
  const std::string line = lineOf(++contents_.serial, kind, number, name);
  const std::string_view part = line;
  checkpoint("ledger-begun");
  if (const int error = writeAll(files_, file_, {&part, 1})) return failed(error);
  checkpoint("ledger-appended");
  size_ += line.size();
  return 0;
}

int Ledger::sync() {
  if (isSynced_) return 0;
  if (!file_) return rewrite();
  if (const int error = files_.sync(file_.get())) return failed(error);
  checkpoint("ledger-synced");
  isSynced_ = true;
  durable_ = contents_.cursors;
  return 0;
}

int Ledger::rewrite() {
  const std::uint64_t serial = ++contents_.serial;
  std::string lines;
  for (const auto& [name, number] : contents_.cursors) lines += lineOf(serial, "cursor", number, name);
  lines += lineOf(serial, "numbers", contents_.numbers, "") + lineOf(serial, "synced", contents_.synced, "") +
           lineOf(serial, "removed", contents_.removed, "") + lineOf(serial, "suspect", contents_.suspect, "");
  lines += lines;
  const std::string path = directory_ + "/ledger";
  const std::string aside = path + ".new";
  if (const int error = files_.remove(aside); error != 0 && error != ENOENT) return failed(error);
  File file(files_, files_.create(aside));
  if (!file) return failed(file.error());
  const std::string_view part = lines;
  if (const int error = writeAll(files_, file, {&part, 1})) return failed(error);
  checkpoint("ledger-copied");
  if (const int error = files_.sync(file.get())) return failed(error);
  if (const int error = files_.rename(aside, path)) return failed(error);
  checkpoint("ledger-renamed");
  if (const int error = files_.syncDirectory(directory_)) return failed(error);
  file_ = std::move(file);
  size_ = lines.size();
  rewriteAt_ = 2 * size_ + kLeastRewrite;
  isSynced_ = true;
  durable_ = contents_.cursors;
  return 0;
}

int Ledger::failed(int error) {
  file_ = File();
  return error;
}

}  // namespace quillon::delivery
