#include "adapter/Positions.h"

#include <cerrno>
#include <filesystem>
#include <map>
#include <system_error>

#include "src/adapters/logfile/source/FileRecord.h"

namespace quillon {
namespace {

bool isOfFile(const StateRecord& record) { return record.key.starts_with("file/"); }

bool isThere(const StateRecord& record) {
  std::string error;
  FileStatus status;
  const std::optional<FileRecord> file = decodeFileRecord(record.value, error);
  return file && lookAtFile(file->place, status) && file->identity.mayBe(status.identity);
}

}  // namespace

std::unique_ptr<Positions> Positions::open(const std::string& path, std::string& error, std::string& damage) {
  auto positions = std::make_unique<Positions>();
  if (path.empty()) return positions;
  const std::filesystem::path directory = std::filesystem::path(path).parent_path();
  std::error_code failed;
  std::filesystem::create_directories(directory, failed);
  if (failed) {
    error = "cannot make " + directory.string() + ": " + failed.message();
    return nullptr;
  }
  positions->file_ = StateFile::open(path, error, damage);
  positions->damaged_ = !damage.empty();
  return positions->file_ ? std::move(positions) : nullptr;
}

KeptState Positions::of(const std::string& source) const {
  std::map<std::string, std::string> records;
  if (file_) {
    for (StateRecord& record : file_->state(source)) records[record.key] = std::move(record.value);
  }
  if (const auto later = kept_.find(source); later != kept_.end()) {
    for (const auto& [key, value] : later->second) records[key] = value;
  }
  KeptState found{.records = {}, .damaged = damaged_};
  for (auto& [key, value] : records) {
    if (!value.empty()) found.records.push_back({key, std::move(value)});
  }
  return found;
}

void Positions::forgetDeleted(const std::set<std::string>& configured) {
  if (!file_) return;
  for (const std::string& source : file_->sources()) {
    if (configured.contains(source)) continue;
    const std::vector<StateRecord> kept = file_->state(source);
    std::vector<StateRecord> gone;
    bool any = false;
    for (const StateRecord& record : kept) {
      const bool there = isOfFile(record) && isThere(record);
      any = any || there;
      if (isOfFile(record) && !there) gone.push_back({record.key, ""});
    }
    // A failure costs nothing but the room; the next start tries again.
    static_cast<void>(any ? file_->keep(source, gone, false) : file_->forget(source));
  }
}

int Positions::keep(const std::string& source, const std::vector<StateRecord>& changes, bool sync) {
  if (changes.empty() && (!file_ || !kept_.contains(source))) return 0;
  std::map<std::string, std::string>& records = kept_[source];
  for (const StateRecord& record : changes) {
    // In a file the empty value is news; in memory there is nothing that it would take away.
    if (!file_ && record.value.empty()) {
      records.erase(record.key);
    } else {
      records[record.key] = record.value;
    }
  }
  if (!file_) return 0;
  std::vector<StateRecord> all;
  all.reserve(records.size());
  for (const auto& [key, value] : records) all.push_back({key, value});
  if (!file_->keep(source, all, sync)) return errno;
  kept_.erase(source);
  return 0;
}

}  // namespace quillon
