#ifndef QUILLON_TESTS_DELIVERY_SUPPORT_MEMORY_FILES_H_
#define QUILLON_TESTS_DELIVERY_SUPPORT_MEMORY_FILES_H_

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "delivery/cache/Files.h"

namespace quillon::delivery {

/// Files in memory that know what had reached the disk: what a loss of power leaves is any of the writes since the last
/// sync, in any order, torn at 512 bytes; the same of names.
class MemoryFiles : public Files {
 public:
  /// Asked before each call, with its name; what it returns, unless 0, is the errno with which the call fails.
  std::function<int(const std::string& call)> fault;
  /// Told after each call that changes something.
  std::function<void()> changed;
  bool writesAreShort = false;  ///< A write takes half of what it is given.
  /// Nothing reaches the files any more, as if the process had been killed.
  bool isDead = false;

  /// What the disk could hold after a loss of power now.
  std::unique_ptr<MemoryFiles> afterPowerLoss(std::mt19937_64& random) const;
  /// What another process would find.
  std::unique_ptr<MemoryFiles> copy() const;

  std::vector<std::string> paths() const;
  std::string& content(const std::string& path) { return names_.at(path)->now; }
  void erase(const std::string& path) { names_.erase(path); }

  int makeDirectory(const std::string& path) override;
  int openToRead(const std::string& path) override;
  int create(const std::string& path) override;
  int lock(const std::string& path) override;
  void close(int file) override { open_.erase(file); }
  ssize_t write(int file, std::span<const iovec> parts) override;
  ssize_t read(int file, char* to, std::size_t size, std::uint64_t offset) override;
  std::int64_t size(int file) override;
  int truncate(int file, std::uint64_t size) override;
  int sync(int file) override;
  int syncDirectory(const std::string& path) override;
  int rename(const std::string& from, const std::string& to) override;
  int remove(const std::string& path) override;
  int list(const std::string& path, std::vector<std::string>& names) override;

 private:
  struct Change {
    std::uint64_t offset;
    std::string bytes;
    bool isTruncation;
  };
  struct Node {
    std::string now, onDisk;
    std::vector<Change> changes;  ///< Since the last sync.
    bool isLost = false;          ///< A sync has failed, and the system has forgotten what it did not write.
  };
  using Names = std::map<std::string, std::shared_ptr<Node>>;
  struct NameChange {
    std::string from, to;  ///< One of them is empty for a file that is made or removed.
    std::shared_ptr<Node> node;
  };

  int failure(const std::string& call) const;
  int opened(std::shared_ptr<Node> node);
  static std::string contentAfterPowerLoss(const Node& node, std::mt19937_64& random);
  static void apply(const NameChange& change, Names& names);

  Names names_, namesOnDisk_;
  std::vector<NameChange> nameChanges_;
  std::map<int, std::shared_ptr<Node>> open_;
  int next_ = 3;
};

}  // namespace quillon::delivery

#endif  // QUILLON_TESTS_DELIVERY_SUPPORT_MEMORY_FILES_H_
