#include "delivery/client/client_id.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "delivery/Record.h"
#include "delivery/record_json.h"

namespace quillon::delivery {
namespace {

constexpr std::size_t kDigits = 32;

bool isIdentity(std::string_view text) {
  return text.size() == kDigits && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// 0 or an errno.
int keep(Files& files, const std::string& directory, const std::string& identity) {
  const std::string path = directory + "/identity";
  const std::string aside = path + ".new";
  static_cast<void>(files.remove(aside));
  {
    const File file(files, files.create(aside));
    if (!file) return file.error();
    const std::string_view text(identity);
    if (const int error = writeAll(files, file, {&text, 1})) return error;
    if (const int error = files.sync(file.get())) return error;
  }
  if (const int error = files.rename(aside, path)) return error;
  return files.syncDirectory(directory);
}

}  // namespace

std::string clientId(const std::string& name, const std::string& directory, const Cache& cache, std::string& error,
                     Files& files) {
  std::string identity;
  static_cast<void>(readWhole(files, directory + "/identity", identity));
  // A cache that is new all the same was deleted, but for this file: its numbers begin again.
  if (cache.end() == 0 || !isIdentity(identity)) {
    SetId drawn{};
    int failure = getrandom(drawn.data(), drawn.size(), 0) == static_cast<ssize_t>(drawn.size()) ? 0 : errno;
    identity = hex(drawn);
    if (failure == 0) failure = keep(files, directory, identity);
    if (failure != 0) {
      error = directory + "/identity: " + std::strerror(failure);
      return "";
    }
  }
  return name + "-" + identity;
}

}  // namespace quillon::delivery
