#include "adapter/Positions.h"

#include <algorithm>
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

std::unique_ptr<Positions> Positions::in(const delivery::Positions& kept, bool isDamaged, delivery::Batch& batch) {
  auto positions = std::make_unique<Positions>();
  positions->damaged_ = isDamaged;
  positions->batch_ = &batch;
  positions->kept_ = bySource(kept);
  return positions;
}

StateFile::Kept Positions::bySource(const delivery::Positions& kept) {
  StateFile::Kept sources;
  for (const auto& [name, value] : kept) {
    const std::size_t slash = name.find('/');
    if (slash != std::string::npos) sources[name.substr(0, slash)][name.substr(slash + 1)] = value;
  }
  return sources;
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

std::vector<std::string> Positions::sources() const {
  if (file_) return file_->sources();
  std::vector<std::string> names;
  for (const auto& source : kept_) names.push_back(source.first);
  return names;
}

void Positions::forgetDeleted(const std::set<std::string>& configured) {
  for (const std::string& source : sources()) {
    if (configured.contains(source)) continue;
    const std::vector<StateRecord> kept = of(source).records;
    const bool any = std::ranges::any_of(kept, [](const auto& record) { return isOfFile(record) && isThere(record); });
    std::vector<StateRecord> gone;
    for (const StateRecord& record : kept) {
      if (!any || (isOfFile(record) && !isThere(record))) gone.push_back({record.key, ""});
    }
    // A failure costs nothing but the room; the next start tries again.
    static_cast<void>(any || !file_ ? keep(source, gone, false) : file_->forget(source) ? 0 : errno);
  }
}

int Positions::keep(const std::string& source, const std::vector<StateRecord>& changes, bool sync) {
  if (changes.empty() && (!file_ || !kept_.contains(source))) return 0;
  std::map<std::string, std::string>& records = kept_[source];
  for (const StateRecord& record : changes) {
    if (batch_) batch_->setPosition(source + "/" + record.key, record.value);
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
