#include "server/ClassSets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include "cds/CdsId.h"
#include "cds/CdsReader.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// Of the values of an event that are put together.
constexpr std::size_t kMostEventBytes = 64 << 20;

}  // namespace

ClassSets::ClassSets(std::vector<std::string> paths, nxl_cs* codeset, Report report)
    : paths_(std::move(paths)), codeset_(codeset), report_(std::move(report)) {}

bool ClassSets::scan() {
  std::vector<std::string> files;
  for (const std::string& path : paths_) list(path, files);
  std::ranges::sort(files);
  for (const std::string& file : files) look(file);
  const std::set<std::string> there(files.begin(), files.end());
  std::erase_if(seen_, [&](const auto& seen) { return !there.contains(seen.first); });
  for (const auto& seen : seen_) {
    if (!seen.second.isGood) return false;
  }
  return true;
}

void ClassSets::list(const std::string& path, std::vector<std::string>& files) {
  std::error_code failed;
  if (!fs::is_directory(path, failed)) {
    files.push_back(path);
    return;
  }
  for (fs::directory_iterator entry(path, failed), end; !failed && entry != end; entry.increment(failed)) {
    if (entry->path().extension() == ".cds") files.push_back(entry->path());
  }
  // Told where the directory would be a file.
  if (failed) files.push_back(path);
}

void ClassSets::look(const std::string& file) {
  struct stat status {};
  const bool isThere = stat(file.c_str(), &status) == 0;
  const int error = isThere ? EISDIR : errno;
  const bool isFile = isThere && S_ISREG(status.st_mode);
  const auto [found, isNew] = seen_.try_emplace(file);
  Seen& seen = found->second;
  if (!isFile) {
    if (isNew || seen.size >= 0) report_(true, "cannot read " + file + ": " + std::strerror(error));
    seen = {};
    return;
  }
  const bool isSame = !isNew && seen.size == status.st_size && seen.inode == status.st_ino &&
                      seen.changed.tv_sec == status.st_mtim.tv_sec && seen.changed.tv_nsec == status.st_mtim.tv_nsec;
  if (isSame) return;
  seen = {status.st_mtim, status.st_size, status.st_ino, read(file)};
}

bool ClassSets::read(const std::string& file) {
  std::ostringstream text;
  std::ifstream stream(file, std::ios::binary);
  if (!stream || (stream.peek() != std::ifstream::traits_type::eof() && !(text << stream.rdbuf()))) {
    report_(true, "cannot read " + file + ": " + std::strerror(errno));
    return false;
  }
  const std::string definitions = std::move(text).str();
  const CdsReading reading = readCds(definitions, codeset_);
  for (const CdsFault& fault : reading.faults) {
    report_(true, file + ":" + std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": " + fault.text);
  }
  if (!reading) return false;
  const CdsId id = cdsId(definitions);
  auto& maker = makers_[id.bytes()];
  if (!maker) {
    maker = std::make_unique<EventMaker>(reading.classes, kMostEventBytes);
    const std::size_t classes = reading.classes->size();
    report_(false,
            file + ": " + std::to_string(classes) + (classes == 1 ? " class, set " : " classes, set ") + id.hex());
  }
  return true;
}

EventMaker* ClassSets::maker(const delivery::SetId& set) {
  if (last_ && set == lastSet_) return last_;
  const auto found = makers_.find(set);
  if (found == makers_.end()) return nullptr;
  lastSet_ = set;
  last_ = found->second.get();
  return last_;
}

}  // namespace quillon
