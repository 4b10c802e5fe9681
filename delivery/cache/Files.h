#ifndef QUILLON_DELIVERY_CACHE_FILES_H_
#define QUILLON_DELIVERY_CACHE_FILES_H_

#include <sys/types.h>
#include <sys/uio.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillon::delivery {

/// What the cache asks of the system: one call each, failures as errno. A test puts something else in its place, to
/// fail a call or to know what had reached the disk. For any number of threads.
class Files {
 public:
  /// Those of the system, for as long as the process lives.
  static Files& real();

  virtual ~Files() = default;

  /// Makes a directory, for its owner alone. 0 or an errno, as all below that say nothing else.
  virtual int makeDirectory(const std::string& path);
  /// A descriptor to read from, or a negative errno.
  virtual int openToRead(const std::string& path);
  /// A descriptor of a new file to append to, or a negative errno: EEXIST when there is a file of that name.
  virtual int create(const std::string& path);
  /// A descriptor that holds the lock on the file `path`, which is made and then stays; a negative errno: EWOULDBLOCK
  /// when another process has it. The file holds the number of the process.
  virtual int lock(const std::string& path);
  virtual void close(int file);

  /// As writev(2) and pread(2), with a negative errno when they fail.
  virtual ssize_t write(int file, std::span<const iovec> parts);
  virtual ssize_t read(int file, char* to, std::size_t size, std::uint64_t offset);
  /// Bytes in a file, or a negative errno.
  virtual std::int64_t size(int file);
  virtual int truncate(int file, std::uint64_t size);
  /// Waits until the file's bytes, or the names in a directory, are on the disk.
  virtual int sync(int file);
  virtual int syncDirectory(const std::string& path);
  virtual int rename(const std::string& from, const std::string& to);
  virtual int remove(const std::string& path);
  /// The names in a directory, in any order.
  virtual int list(const std::string& path, std::vector<std::string>& names);
};

/// Owns a descriptor of `files`, or none.
class File {
 public:
  File() = default;
  /// Takes over what one of the functions above returned; a failure is none, with its errno in error().
  File(Files& files, int descriptor) : files_(&files), descriptor_(descriptor) {}
  File(File&& other) noexcept : files_(other.files_), descriptor_(std::exchange(other.descriptor_, -1)) {}
  File& operator=(File other) noexcept {
    std::swap(files_, other.files_);
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~File() {
    if (descriptor_ >= 0) files_->close(descriptor_);
  }

  explicit operator bool() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  /// Why there is none.
  int error() const { return descriptor_ < 0 ? -descriptor_ : 0; }

 private:
  Files* files_ = nullptr;
  int descriptor_ = -1;
};

/// Writes all of `parts`, however many calls that takes. 0, or the errno of the one that failed.
[[nodiscard]] int writeAll(Files& files, const File& file, std::span<const std::string_view> parts);

/// Fills `room` from `offset` on, less of it at the end of the file only, and adds to `done` what that is. 0 or an
/// errno.
[[nodiscard]] int readSome(Files& files, const File& file, std::uint64_t offset, std::span<char> room,
                           std::size_t& done);

/// Opens, reads and closes. 0 or an errno.
[[nodiscard]] int readWhole(Files& files, const std::string& path, std::string& text);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_FILES_H_
