#include "tests/source/file_world.h"

#include <fstream>
#include <utility>

namespace quillon {

FileWorld::FileWorld(fs::path directory, FileOptions options)
    : directory_(std::move(directory)), options_(std::move(options)) {
  for (std::string& pattern : options_.include) pattern = at(pattern);
}

void FileWorld::append(const std::string& path, const std::string& text) {
  std::ofstream(at(path), std::ios::binary | std::ios::app) << text;
  stamp(path);
}

void FileWorld::stamp(const std::string& path) { fs::last_write_time(at(path), modified_ += std::chrono::seconds(1)); }

void FileWorld::start() {
  std::vector<StateRecord> kept;
  for (const auto& [key, value] : state) kept.push_back({key, value});
  unkept_.clear();
  source_ = std::make_unique<FileSource>(options_, kept, *this);
}

void FileWorld::stop() {
  source_->finish(Finish::kStop);
  while (!source_->ended()) read();
  keep();
  source_.reset();
}

void FileWorld::read(std::size_t most) {
  Message message;
  for (std::size_t i = 0; i < most && source_->next(now_, message); ++i) {
    delivered.push_back({fs::path(message.path).lexically_relative(directory_).string(),
                         std::string(message.text) + (message.cut ? "+" : ""), message.stream});
    unkept_.push_back(message.position);
  }
}

void FileWorld::keep() {
  for (const Position& position : unkept_) source_->acknowledge(position);
  unkept_.clear();
  for (const StateRecord& record : source_->takeChanges()) {
    if (record.value.empty()) {
      state.erase(record.key);
    } else {
      state[record.key] = record.value;
    }
  }
}

void FileWorld::drain() {
  source_->finish(Finish::kDrain);
  while (!source_->ended()) read();
  keep();
  source_.reset();
}

void FileWorld::gap(const Gap& gap) {
  gaps.push_back(
      {fs::path(gap.path).lexically_relative(directory_).string(), gap.from, gap.to, gap.open, std::string(gap.cause)});
}

void FileWorld::notice(Level /*level*/, std::string_view text) { notices.emplace_back(text); }

}  // namespace quillon
