#include "tests/delivery/support/memory_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace quillon::delivery {
namespace {

constexpr std::uint64_t kSector = 512;

void writeAt(std::string& text, std::uint64_t offset, std::string_view bytes) {
  if (text.size() < offset + bytes.size()) text.resize(offset + bytes.size());
  text.replace(offset, bytes.size(), bytes);
}

}  // namespace

int MemoryFiles::failure(const std::string& call) const {
  if (isDead) return EIO;
  return fault ? fault(call) : 0;
}

int MemoryFiles::opened(std::shared_ptr<Node> node) {
  open_[next_] = std::move(node);
  return next_++;
}

int MemoryFiles::makeDirectory(const std::string&) { return failure("makeDirectory"); }

int MemoryFiles::openToRead(const std::string& path) {
  if (const int error = failure("openToRead")) return -error;
  const auto found = names_.find(path);
  return found == names_.end() ? -ENOENT : opened(found->second);
}

int MemoryFiles::create(const std::string& path) {
  if (const int error = failure("create")) return -error;
  if (names_.contains(path)) return -EEXIST;
  names_[path] = std::make_shared<Node>();
  nameChanges_.push_back({"", path, names_[path]});
  if (changed) changed();
  return opened(names_[path]);
}

int MemoryFiles::lock(const std::string&) {
  if (const int error = failure("lock")) return -error;
  return opened(std::make_shared<Node>());
}

ssize_t MemoryFiles::write(int file, std::span<const iovec> parts) {
  if (const int error = failure("write")) return -error;
  std::string bytes;
  for (const iovec& part : parts) bytes.append(static_cast<const char*>(part.iov_base), part.iov_len);
  if (writesAreShort) bytes.resize((bytes.size() + 1) / 2);
  Node& node = *open_.at(file);
  node.changes.push_back({node.now.size(), bytes, false});
  node.now += bytes;
  if (changed) changed();
  return static_cast<ssize_t>(bytes.size());
}

ssize_t MemoryFiles::read(int file, char* to, std::size_t size, std::uint64_t offset) {
  if (const int error = failure("read")) return -error;
  const std::string& text = open_.at(file)->now;
  if (offset >= text.size()) return 0;
  size = std::min(size, text.size() - offset);
  std::memcpy(to, text.data() + offset, size);
  return static_cast<ssize_t>(size);
}

std::int64_t MemoryFiles::size(int file) {
  if (const int error = failure("size")) return -error;
  return static_cast<std::int64_t>(open_.at(file)->now.size());
}

int MemoryFiles::truncate(int file, std::uint64_t size) {
  if (const int error = failure("truncate")) return error;
  Node& node = *open_.at(file);
  node.now.resize(size);
  node.changes.push_back({size, "", true});
  if (changed) changed();
  return 0;
}

int MemoryFiles::sync(int file) {
  Node& node = *open_.at(file);
  if (const int error = failure("sync")) {
    node.isLost = !isDead;
    return error;
  }
  if (!node.isLost) node.onDisk = node.now;
  node.changes.clear();
  if (changed) changed();
  return 0;
}

int MemoryFiles::syncDirectory(const std::string&) {
  if (const int error = failure("syncDirectory")) return error;
  namesOnDisk_ = names_;
  nameChanges_.clear();
  if (changed) changed();
  return 0;
}

int MemoryFiles::rename(const std::string& from, const std::string& to) {
  if (const int error = failure("rename")) return error;
  nameChanges_.push_back({from, to, names_.at(from)});
  apply(nameChanges_.back(), names_);
  if (changed) changed();
  return 0;
}

int MemoryFiles::remove(const std::string& path) {
  if (const int error = failure("remove")) return error;
  if (!names_.contains(path)) return ENOENT;
  nameChanges_.push_back({path, "", nullptr});
  apply(nameChanges_.back(), names_);
  if (changed) changed();
  return 0;
}

int MemoryFiles::list(const std::string& path, std::vector<std::string>& names) {
  if (const int error = failure("list")) return error;
  names.clear();
  for (const auto& entry : names_) names.push_back(entry.first.substr(path.size() + 1));
  return 0;
}

void MemoryFiles::apply(const NameChange& change, Names& names) {
  names.erase(change.from);
  if (!change.to.empty()) names[change.to] = change.node;
}

std::vector<std::string> MemoryFiles::paths() const {
  std::vector<std::string> paths;
  for (const auto& entry : names_) paths.push_back(entry.first);
  return paths;
}

std::string MemoryFiles::contentAfterPowerLoss(const Node& node, std::mt19937_64& random) {
  std::string text = node.onDisk;
  if (node.isLost) return text;
  const std::uint64_t chances[] = {0, 10, 50, 90, 100};
  const std::uint64_t chance = chances[random() % 5];
  for (const Change& change : node.changes) {
    if (change.isTruncation) {
      if (random() % 100 < chance) text.resize(change.offset);
      continue;
    }
    // Pieces end where sectors of the file do; each reaches the disk or not.
    for (std::uint64_t at = 0; at < change.bytes.size();) {
      const std::uint64_t size = std::min(kSector - (change.offset + at) % kSector, change.bytes.size() - at);
      if (random() % 100 < chance) writeAt(text, change.offset + at, change.bytes.substr(at, size));
      at += size;
    }
  }
  // The size can be there without the bytes, and then old bytes of some other file.
  if (text.size() < node.now.size() && random() % 3 == 0) {
    const std::size_t before = text.size();
    text.resize(node.now.size());
    if (random() % 2 == 0) std::memcpy(text.data() + before, node.now.data(), text.size() - before);
  }
  return text;
}

std::unique_ptr<MemoryFiles> MemoryFiles::afterPowerLoss(std::mt19937_64& random) const {
  Names names = namesOnDisk_;
  const std::uint64_t chances[] = {0, 50, 100};
  const std::uint64_t chance = chances[random() % 3];
  for (const NameChange& change : nameChanges_) {
    const bool isPossible = change.from.empty() || names.contains(change.from);
    if (isPossible && random() % 100 < chance) apply(change, names);
  }
  auto files = std::make_unique<MemoryFiles>();
  for (const auto& [name, node] : names) {
    auto& left = files->names_[name] = std::make_shared<Node>();
    left->now = left->onDisk = contentAfterPowerLoss(*node, random);
  }
  files->namesOnDisk_ = files->names_;
  return files;
}

std::unique_ptr<MemoryFiles> MemoryFiles::copy() const {
  auto files = std::make_unique<MemoryFiles>();
  for (const auto& [name, node] : names_) {
    auto& left = files->names_[name] = std::make_shared<Node>();
    left->now = left->onDisk = node->now;
  }
  files->namesOnDisk_ = files->names_;
  return files;
}

}  // namespace quillon::delivery
