#include "adapter/StateReport.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include "adapter/Positions.h"
#include "delivery/cache/inspection.h"
#include "foundation/json_text.h"
#include "foundation/visible.h"
#include "src/adapters/logfile/source/FileRecord.h"
#include "src/adapters/logfile/source/StateFile.h"

namespace quillon {
namespace {

struct Row {
  std::string source;
  FileRecord file;
  std::uint64_t size;

  std::uint64_t lag() const { return size > file.offset ? size - file.offset : 0; }
  std::string identity() const {
    return std::to_string(file.identity.device) + ":" + std::to_string(file.identity.inode);
  }
  std::string place() const { return file.place.empty() ? file.path : file.place; }
};

/// The size that the file has now; the one that is kept when it is not there any more.
std::uint64_t sizeOf(const FileRecord& file) {
  struct stat status {};
  const std::string& place = file.place.empty() ? file.path : file.place;
  if (stat(place.c_str(), &status) != 0 || status.st_dev != file.identity.device ||
      status.st_ino != file.identity.inode) {
    return file.size;
  }
  return static_cast<std::uint64_t>(status.st_size);
}

/// False with errno when it cannot be read.
bool readWhole(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  errno = 0;
  std::ostringstream read;
  if (!(read << file.rdbuf()) && errno != 0) return false;  // of an empty file nothing comes either
  text = read.str();
  return true;
}

std::string table(const std::vector<Row>& rows) {
  constexpr std::size_t kColumns = 6;
  using Cells = std::array<std::string, kColumns>;
  std::vector<Cells> lines = {{"SOURCE", "POSITION", "SIZE", "LAG", "IDENTITY", "FILE"}};
  for (const Row& row : rows) {
    std::string file = visible(row.file.path);
    if (row.place() != row.file.path) file += " (now " + visible(row.place()) + ")";
    lines.push_back({row.source, std::to_string(row.file.offset), std::to_string(row.size), std::to_string(row.lag()),
                     row.identity(), std::move(file)});
  }
  std::array<std::size_t, kColumns> widths{};
  for (const Cells& cells : lines) {
    for (std::size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], cells[i].size());
  }
  std::string text;
  for (const Cells& cells : lines) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      const bool isNumber = i >= 1 && i <= 3;
      const std::string padding(i + 1 == kColumns && !isNumber ? 0 : widths[i] - cells[i].size(), ' ');
      text += isNumber ? padding + cells[i] : cells[i] + padding;
      text += i + 1 == kColumns ? "\n" : "  ";
    }
  }
  return text;
}

void member(std::string& json, const char* name, const std::string& value) {
  json.append("\"").append(name).append("\":\"");
  appendJson(json, value);
  json += "\",";
}

void member(std::string& json, const char* name, std::uint64_t value) {
  json.append("\"").append(name).append("\":").append(std::to_string(value)).append(",");
}

std::string json(const std::vector<Row>& rows) {
  std::string text = "[";
  for (const Row& row : rows) {
    text += text.size() > 1 ? ",\n {" : "\n {";
    member(text, "source", row.source);
    member(text, "path", row.file.path);
    member(text, "place", row.place());
    member(text, "device", row.file.identity.device);
    member(text, "inode", row.file.identity.inode);
    member(text, "position", row.file.offset);
    member(text, "size", row.size);
    member(text, "lag", row.lag());
    text.back() = '}';
  }
  return text + (rows.empty() ? "]\n" : "\n]\n");
}

/// What the state file has. `whole` becomes false when some of it is damaged.
bool readState(const Config& config, StateFile::Kept& sources, bool& whole, std::string& error) {
  if (config.state.empty()) {
    error = "no state directory is configured";
    return false;
  }
  std::string kept;
  if (!readWhole(statePath(config), kept) && errno != ENOENT) {
    error = "cannot read " + statePath(config) + ": " + std::strerror(errno);
    return false;
  }
  whole = StateFile::parse(kept, sources);
  return true;
}

/// What travels with the events.
bool readCache(const delivery::DeliveryConfig& config, StateFile::Kept& sources, bool& whole, std::string& error) {
  delivery::CacheContents contents;
  std::string path;
  const int failure = readContents(delivery::Files::real(), config.cache.directory, contents, path);
  if (failure != 0 && failure != ENOENT) {
    error = "cannot read " + path + ": " + std::strerror(failure);
    return false;
  }
  sources = Positions::bySource(contents.log.positions);
  whole = contents.log.havePositions;
  return true;
}

}  // namespace

bool reportState(const Config& config, StateForm form, std::string& text, std::string& error, std::string& trouble) {
  StateFile::Kept sources;
  bool whole = true;
  if (config.delivery ? !readCache(*config.delivery, sources, whole, error)
                      : !readState(config, sources, whole, error)) {
    return false;
  }
  std::vector<Row> rows;
  for (const auto& [source, records] : sources) {
    for (const auto& [key, value] : records) {
      if (!key.starts_with("file/")) continue;
      std::string damage;
      std::optional<FileRecord> file = decodeFileRecord(value, damage);
      if (!file) {
        whole = false;
        continue;
      }
      const std::uint64_t size = sizeOf(*file);
      rows.push_back({source, std::move(*file), size});
    }
  }
  std::ranges::sort(rows, [](const Row& a, const Row& b) {
    return std::tie(a.source, a.file.path, a.file.id) < std::tie(b.source, b.file.path, b.file.id);
  });
  const std::string name = config.delivery ? config.delivery->cache.directory : statePath(config);
  if (!whole) trouble = name + " is damaged; what could not be read is left out";
  text = form == StateForm::kJson ? json(rows) : table(rows);
  return true;
}

}  // namespace quillon
