#include "codeset/tables.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "codeset/ebcdic.h"
#include "codeset/image.h"

using quillon::formatPath;

namespace {

constexpr int kMaxFiles = 5;                // a redirection chain of that many files ends in failure
constexpr off_t kMaxTableBytes = 64 << 20;  // no codeset needs a hundredth of it

struct Free {
  void operator()(unsigned char* p) const { std::free(p); }
};

struct Image {
  std::unique_ptr<unsigned char, Free> bytes;
  std::uint32_t size = 0;
};

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Opens a regular file and tells its size; none for anything else. Without O_NONBLOCK a FIFO would wait for its writer.
File openRegular(const char* path, off_t* size) {
  const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) return nullptr;
  struct stat status;
  File file;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) file.reset(fdopen(descriptor, "r"));
  if (file) {
    *size = status.st_size;
  } else {
    close(descriptor);
  }
  return file;
}

// The whole file; no bytes when it cannot be had.
Image readFile(const char* path) {
  off_t size = 0;
  const File file = openRegular(path, &size);
  if (!file || size > kMaxTableBytes) return {};
  const auto count = static_cast<std::size_t>(size);
  Image image;
  image.bytes.reset(static_cast<unsigned char*>(std::malloc(count ? count : 1)));
  if (!image.bytes || std::fread(image.bytes.get(), 1, count, file.get()) != count) return {};
  image.size = static_cast<std::uint32_t>(count);
  return image;
}

bool isTable(const Image& image) {
  return image.size >= quillon::kMinTableBytes && std::memcmp(image.bytes.get() + quillon::kMagicOffset, "ucv", 3) == 0;
}

// Replaces the file name behind the directory by the redirection's text, as far as the path has room.
void redirect(char (&path)[kPathBytes], std::size_t dir_length, const Image& image) {
  std::size_t end = dir_length;
  for (std::uint32_t i = 0; i < image.size && end < sizeof path - 1; ++i) {
    const unsigned char c = image.bytes.get()[i];
    if (c > ' ' && c != 0x7F) path[end++] = static_cast<char>(c);
  }
  path[end] = '\0';
}

// Only the first directory of the process is asked, so that a later search path cannot change tables already in use.
void probeVariant(const char* dir) {
  static bool probed = false;
  if (probed) return;
  probed = true;
  char path[kPathBytes];
  struct stat status;
  if (formatPath(path, "%s930variant", dir) && stat(path, &status) == 0) quillon::useVariant930();
}

quillon::TableSearch& tableSearch() {
  static quillon::TableSearch search;
  return search;
}

}  // namespace

unsigned char* get_table(const char* name, std::uint32_t* size_out) {
  for (const std::string& dir : quillon::tableDirectories()) {
    if (unsigned char* table = load_table(dir.c_str(), name, size_out)) return table;
  }
  const bool is_path = std::strpbrk(name, "/\\") != nullptr;
  return is_path && !quillon::searchesCurrentDirectory() ? load_table("", name, size_out) : nullptr;
}

unsigned char* load_table(const char* dir, const char* name, std::uint32_t* size_out) {
  *size_out = 0;
  char path[kPathBytes];
  if (!formatPath(path, "%s%s", dir, name)) return nullptr;
  probeVariant(dir);

  const std::size_t dir_length = std::strlen(dir);
  for (int i = 0; i < kMaxFiles; ++i) {
    Image image = readFile(path);
    if (!image.bytes) return nullptr;
    if (isTable(image)) {
      *size_out = image.size;
      return image.bytes.release();
    }
    redirect(path, dir_length, image);
  }
  return nullptr;
}

namespace quillon {

void setTableSearch(TableSearch search) { tableSearch() = std::move(search); }

const char* tablePlace() {
  const char* place = environmentOrEmpty("NXLDIR");
  return *place ? place : tableSearch().instead_of_nxldir.c_str();
}

bool searchesCurrentDirectory() {
  return tableSearch().always_current_directory || *environmentOrEmpty("NXLDIR") == '\0';
}

std::vector<std::string> tableDirectories() {
  std::vector<std::string> result;
  const auto add = [&result](const char* place, const char* below) {
    char dir[kPathBytes];
    if (*place && formatPath(dir, "%s%s", place, below)) result.emplace_back(dir);
  };
  add(tablePlace(), "/codeset/");
  add(tablePlace(), "/");
  add(environmentOrEmpty("BINDIR"), "/../generic/codeset/");
  if (searchesCurrentDirectory()) result.emplace_back();
  return result;
}

std::FILE* openRegularFile(const char* path) {
  off_t size = 0;
  return openRegular(path, &size).release();
}

bool formatPath(char (&path)[kPathBytes], const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(path, sizeof path, format, arguments);
  va_end(arguments);
  return static_cast<std::size_t>(length) + 2 <= sizeof path;
}

const char* environmentOrEmpty(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

const char* localeName(const char* category) {
  for (const char* variable : {"LC_ALL", category, "LANG"}) {
    const char* value = environmentOrEmpty(variable);
    if (*value) return value;
  }
  return "C";
}

}  // namespace quillon
