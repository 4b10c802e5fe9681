#include "config/TomlTable.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <span>

#include "foundation/characters.h"

namespace quillon {
namespace {

/// A number and the unit behind it, "1.5 MiB".
struct Quantity {
  double number;
  std::string_view unit;
};

std::optional<Quantity> parseQuantity(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc() || !std::isfinite(number) || number < 0) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  while (text.starts_with(' ')) text.remove_prefix(1);
  return Quantity{number, text};
}

struct Unit {
  std::string_view name;
  double factor;
};

constexpr Unit kSizes[] = {{"", 1},         {"B", 1},    {"k", 1e3},      {"kB", 1e3},    {"KiB", 0x1p10},
                           {"M", 1e6},      {"MB", 1e6}, {"MiB", 0x1p20}, {"G", 1e9},     {"GB", 1e9},
                           {"GiB", 0x1p30}, {"T", 1e12}, {"TB", 1e12},    {"TiB", 0x1p40}};
constexpr Unit kTimes[] = {{"ms", 1}, {"s", 1e3}, {"min", 6e4}, {"m", 6e4}, {"h", 3.6e6}, {"d", 8.64e7}};

/// `text` in the smallest of `units`; nothing when it is not a number with one of them.
std::optional<double> measure(std::string_view text, std::span<const Unit> units) {
  const std::optional<Quantity> quantity = parseQuantity(text);
  if (!quantity) return std::nullopt;
  const auto unit = std::ranges::find(units, quantity->unit, &Unit::name);
  if (unit == units.end()) return std::nullopt;
  return std::round(quantity->number * unit->factor);
}

/// Damerau's distance, optimal string alignment: insertions, deletions, changes and exchanges of neighbours.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a.size()][b.size()];
}

std::string listOf(const std::vector<std::string_view>& words) {
  std::string list;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) list += i + 1 == words.size() ? " or " : ", ";
    list += '"';
    list += words[i];
    list += '"';
  }
  return list;
}

}  // namespace

std::string resolvedPath(const std::string& directory, const std::string& path) {
  std::string resolved = (std::filesystem::path(directory) / path).lexically_normal();
  if (resolved.size() > 1 && resolved.ends_with('/')) resolved.pop_back();
  return resolved;
}

std::string_view nearest(std::string_view word, const std::vector<std::string_view>& known) {
  std::string_view best;
  std::size_t least = std::min<std::size_t>(2, std::max<std::size_t>(1, word.size() / 3)) + 1;
  for (const std::string_view candidate : known) {
    const std::size_t d = distance(word, candidate);
    if (d < least) {
      least = d;
      best = candidate;
    }
  }
  return best;
}

TomlTable::TomlTable(const toml::table& table, std::string name, std::vector<ConfigFault>& faults)
    : table_(table), name_(std::move(name)), faults_(faults) {}

bool TomlTable::read(std::string_view key, std::string& target) {
  const toml::node* const node = find(key);
  if (!node) return false;
  const std::string* const text = textAt(*node, key, "a string");
  if (text) target = *text;
  return text != nullptr;
}

void TomlTable::read(std::string_view key, bool& target) {
  const toml::node* const node = find(key);
  if (!node) return;
  const auto* const value = node->as_boolean();
  if (!value) return reportType(*node, key, "true or false");
  target = value->get();
}

bool TomlTable::readName(std::string_view key, std::string& target) {
  const toml::node* const node = find(key);
  const std::string* const name = node ? nameAt(*node, key, "a string") : nullptr;
  if (name) target = *name;
  return name != nullptr;
}

bool TomlTable::readNames(std::string_view key, std::vector<std::string>& target) {
  const toml::node* const node = find(key);
  if (!node) return false;
  const toml::array* const array = node->as_array();
  if (!array) {
    const std::string* const name = nameAt(*node, key, "a string or an array of strings");
    if (name) target = {*name};
    return name != nullptr;
  }
  std::vector<std::string> names;
  for (const toml::node& element : *array) {
    if (const std::string* const name = nameAt(element, key, "an array of strings")) names.push_back(*name);
  }
  if (names.size() < array->size()) return false;
  target = std::move(names);
  return true;
}

bool TomlTable::readPath(std::string_view key, const std::string& directory, std::string& target) {
  const bool isThere = readName(key, target);
  if (isThere) target = resolvedPath(directory, target);
  return isThere;
}

void TomlTable::readNumber(std::string_view key, std::uint64_t& target, std::uint64_t least, std::uint64_t most) {
  static_cast<void>(readInteger(key, target, least, most, ""));
}

void TomlTable::readSize(std::string_view key, std::uint64_t& target, std::uint64_t least, std::uint64_t most) {
  const toml::node* const node = find(key);
  if (!node) return;
  if (!node->is_string()) {
    static_cast<void>(readInteger(key, target, least, most, " bytes"));
    return;
  }
  const std::optional<double> size = measure(node->as_string()->get(), kSizes);
  if (!size) return reportType(*node, key, "a size, such as 4096 or \"64 MiB\"");
  if (*size < static_cast<double>(least) || *size > static_cast<double>(most)) {
    return report(key,
                  keyName(key) + " must be from " + std::to_string(least) + " to " + std::to_string(most) + " bytes");
  }
  target = static_cast<std::uint64_t>(*size);
}

void TomlTable::readDuration(std::string_view key, std::chrono::steady_clock::duration& target,
                             std::chrono::milliseconds least, std::chrono::milliseconds most) {
  const toml::node* const node = find(key);
  if (!node) return;
  const auto* const text = node->as_string();
  const std::optional<double> time = text ? measure(text->get(), kTimes) : std::nullopt;
  if (!time) return reportType(*node, key, "a time with its unit, such as \"250 ms\", \"2 s\" or \"5 min\"");
  if (*time < static_cast<double>(least.count()) || *time > static_cast<double>(most.count())) {
    return report(key, keyName(key) + " must be from " + std::to_string(least.count()) + " ms to " +
                           std::to_string(most.count()) + " ms");
  }
  target = std::chrono::milliseconds(static_cast<std::int64_t>(*time));
}

void TomlTable::readMode(std::string_view key, unsigned& target) {
  const toml::node* const node = find(key);
  if (!node) return;
  const auto* const text = node->as_string();
  unsigned mode = 0;
  if (text) {
    const char* const end = text->get().data() + text->get().size();
    const auto [last, error] = std::from_chars(text->get().data(), end, mode, 8);
    if (error == std::errc() && last == end && mode <= 0777) {
      target = mode;
      return;
    }
  }
  reportType(*node, key, "permissions in octal digits, such as \"0640\"");
}

std::optional<TomlTable> TomlTable::table(std::string_view key) {
  const toml::node* const node = find(key);
  if (!node) return std::nullopt;
  const toml::table* const found = node->as_table();
  if (!found) {
    reportType(*node, key, "a table");
    return std::nullopt;
  }
  return TomlTable(*found, keyName(key), faults_);
}

std::vector<TomlTable> TomlTable::tables(std::string_view key) {
  std::vector<TomlTable> found;
  const toml::node* const node = find(key);
  if (!node) return found;
  const toml::array* const array = node->as_array();
  if (!array || !(array->empty() || array->is_homogeneous<toml::table>())) {
    reportType(*node, key, "tables, [[" + keyName(key) + "]]");
    return found;
  }
  found.reserve(array->size());
  for (const toml::node& element : *array) found.emplace_back(*element.as_table(), keyName(key), faults_);
  return found;
}

std::vector<std::string> TomlTable::names() {
  std::vector<std::pair<toml::source_position, std::string>> found;
  for (const auto& [key, node] : table_) found.emplace_back(key.source().begin, std::string(key.str()));
  std::ranges::sort(found, [](const auto& a, const auto& b) {
    return std::pair(a.first.line, a.first.column) < std::pair(b.first.line, b.first.column);
  });
  std::vector<std::string> names;
  names.reserve(found.size());
  for (auto& entry : found) names.push_back(std::move(entry.second));
  return names;
}

ConfigPlace TomlTable::placeOf(std::string_view key) const {
  const toml::node* const node = table_.get(key);
  const toml::source_position& begin = node ? node->source().begin : table_.source().begin;
  return {begin.line, begin.column};
}

void TomlTable::report(std::string_view key, const std::string& text) { faults_.push_back({placeOf(key), text}); }

void TomlTable::require(std::string_view key) {
  asked_.push_back(key);
  if (!has(key))
    reportAt(table_.source(), (name_.empty() ? "the file" : "[" + name_ + "]") + " needs " + std::string(key));
}

void TomlTable::finish() {
  if (takesAll_) return;
  for (const auto& [key, node] : table_) {
    if (std::ranges::find(asked_, key.str()) != asked_.end()) continue;
    std::string text = "unknown key " + keyName(key.str());
    if (const std::string_view meant = nearest(key.str(), asked_); !meant.empty()) {
      text += "; did you mean ";
      text += meant;
      text += "?";
    }
    reportAt(key.source(), std::move(text));
  }
}

const toml::node* TomlTable::find(std::string_view key) {
  asked_.push_back(key);
  return table_.get(key);
}

bool TomlTable::readInteger(std::string_view key, std::uint64_t& target, std::uint64_t least, std::uint64_t most,
                            std::string_view unit) {
  const toml::node* const node = find(key);
  if (!node) return false;
  const auto* const value = node->as_integer();
  if (!value) {
    reportType(*node, key, "an integer");
    return false;
  }
  if (value->get() < 0 || static_cast<std::uint64_t>(value->get()) < least ||
      static_cast<std::uint64_t>(value->get()) > most) {
    report(key,
           keyName(key) + " must be from " + std::to_string(least) + " to " + std::to_string(most) + std::string(unit));
    return false;
  }
  target = static_cast<std::uint64_t>(value->get());
  return true;
}

void TomlTable::reportType(const toml::node& node, std::string_view key, std::string_view expected) {
  reportAt(node.source(), keyName(key) + " must be " + std::string(expected));
}

void TomlTable::reportAt(const toml::source_region& region, std::string text) {
  faults_.push_back({{region.begin.line, region.begin.column}, std::move(text)});
}

/// The string that `node` is; null, after a fault, when it is something else.
const std::string* TomlTable::textAt(const toml::node& node, std::string_view key, std::string_view expected) {
  const auto* const text = node.as_string();
  if (!text) {
    reportType(node, key, expected);
    return nullptr;
  }
  if (text->get().find('\0') == std::string::npos) return &text->get();
  reportAt(node.source(), keyName(key) + " must not hold a NUL character");
  return nullptr;
}

/// The same for one that must not be empty.
const std::string* TomlTable::nameAt(const toml::node& node, std::string_view key, std::string_view expected) {
  const std::string* const text = textAt(node, key, expected);
  if (!text || !text->empty()) return text;
  reportAt(node.source(), keyName(key) + " must not be empty");
  return nullptr;
}

void TomlTable::reportUnknown(const toml::node& node, std::string_view what, const std::string& word,
                              const std::vector<std::string_view>& known) {
  std::string text = "unknown " + std::string(what) + " \"" + word + "\"; ";
  const std::string_view meant = nearest(word, known);
  text += meant.empty() ? "it must be " + listOf(known) : "did you mean \"" + std::string(meant) + "\"?";
  reportAt(node.source(), std::move(text));
}

std::string TomlTable::keyName(std::string_view key) const {
  return name_.empty() ? std::string(key) : name_ + "." + std::string(key);
}

}  // namespace quillon
