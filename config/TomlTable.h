#ifndef QUILLON_CONFIG_TOMLTABLE_H_
#define QUILLON_CONFIG_TOMLTABLE_H_

#include <toml++/toml.h>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillon {

/// Where something stands in a configuration.
struct ConfigPlace {
  unsigned line = 0;    ///< From 1; 0 for the whole file.
  unsigned column = 0;  ///< From 1, in characters.
};

/// Something wrong with a configuration.
struct ConfigFault {
  ConfigPlace place;
  std::string text;
};

/// A table of a TOML document that is read key by key. What is asked for and is there goes into the target; where it
/// has the wrong type or value the target stays as it is, and a fault says why. finish() makes a fault of every key
/// that was never asked for. For one thread.
class TomlTable {
 public:
  /// Refers to both for its life. `name` is the table's for messages, "source.auth"; empty for the document.
  TomlTable(const toml::table& table, std::string name, std::vector<ConfigFault>& faults);

  bool read(std::string_view key, std::string& target);  ///< True when there is one.
  void read(std::string_view key, bool& target);
  /// A string that is not empty. True when there is one.
  bool readName(std::string_view key, std::string& target);
  /// One such string or an array of them. True when there is one or an array.
  bool readNames(std::string_view key, std::vector<std::string>& target);

  /// The same for a path, which becomes an absolute one, see resolvedPath().
  bool readPath(std::string_view key, const std::string& directory, std::string& target);

  /// An integer from `least` to `most`.
  void readNumber(std::string_view key, std::uint64_t& target, std::uint64_t least, std::uint64_t most);

  /// Bytes: an integer, or a string with a unit: "64 MiB", "10k".
  void readSize(std::string_view key, std::uint64_t& target, std::uint64_t least, std::uint64_t most);

  /// "250 ms", "2 s", "5 min", "1 h", "1 d".
  void readDuration(std::string_view key, std::chrono::steady_clock::duration& target, std::chrono::milliseconds least,
                    std::chrono::milliseconds most);

  /// Permissions, as a string of octal digits: "0640".
  void readMode(std::string_view key, unsigned& target);

  /// One word of several.
  template <class T>
  void readWord(std::string_view key, T& target, std::initializer_list<std::pair<std::string_view, T>> words) {
    std::string word;
    if (!read(key, word)) return;
    std::vector<std::string_view> known;
    for (const auto& [name, value] : words) {
      if (name == word) {
        target = value;
        return;
      }
      known.push_back(name);
    }
    reportUnknown(*table_.get(key), "value", word, known);
  }

  /// The table at `key`; nothing, after a fault where it is something else, when there is none.
  std::optional<TomlTable> table(std::string_view key);

  /// The tables of the array at `key`, [[KEY]]; none, after a fault where it is something else, when there is none.
  std::vector<TomlTable> tables(std::string_view key);

  /// The names of the tables within this one, in the order of the document.
  std::vector<std::string> names();

  bool has(std::string_view key) const { return table_.contains(key); }
  /// Of the value of `key`, or of the table when there is none.
  ConfigPlace placeOf(std::string_view key) const;

  /// A fault at the value of `key`, or at the table when there is none.
  void report(std::string_view key, const std::string& text);
  /// How a message names it, "source.auth.path".
  std::string keyName(std::string_view key) const;
  /// A fault when `key` is not there.
  void require(std::string_view key);
  /// Whatever keys there are, finish() has nothing to say of them.
  void takeAll() { takesAll_ = true; }
  /// Call it last.
  void finish();

 private:
  const toml::node* find(std::string_view key);
  bool readInteger(std::string_view key, std::uint64_t& target, std::uint64_t least, std::uint64_t most,
                   std::string_view unit);
  void reportType(const toml::node& node, std::string_view key, std::string_view expected);
  void reportAt(const toml::source_region& region, std::string text);
  const std::string* textAt(const toml::node& node, std::string_view key, std::string_view expected);
  const std::string* nameAt(const toml::node& node, std::string_view key, std::string_view expected);
  void reportUnknown(const toml::node& node, std::string_view what, const std::string& word,
                     const std::vector<std::string_view>& known);

  const toml::table& table_;
  const std::string name_;
  std::vector<ConfigFault>& faults_;
  std::vector<std::string_view> asked_;
  bool takesAll_ = false;
};

/// `path`, a relative one from `directory`, without ".", ".." and slashes that mean nothing.
std::string resolvedPath(const std::string& directory, const std::string& path);

/// The one of `known` that `word` was most likely meant to be: no more than a third of its characters, two at most,
/// differ (Damerau's distance, optimal string alignment). Empty when there is none.
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& known);

}  // namespace quillon

#endif  // QUILLON_CONFIG_TOMLTABLE_H_
