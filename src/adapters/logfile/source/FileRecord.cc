#include "src/adapters/logfile/source/FileRecord.h"

#include <charconv>
#include <concepts>
#include <map>
#include <system_error>

#include "src/adapters/logfile/source/fingerprint.h"

namespace quillon {
namespace {

constexpr std::string_view kFileMagic = "quillon-file 1";
constexpr std::string_view kSourceMagic = "quillon-source 1";
constexpr char kHex[] = "0123456789abcdef";

std::string escape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte != '%' && byte != '=' && byte != 0x7F) {
      escaped += c;
    } else {
      escaped += {'%', kHex[byte >> 4], kHex[byte & 15]};
    }
  }
  return escaped;
}

bool unescape(std::string_view text, std::string& plain) {
  plain.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    unsigned byte = 0;
    if (i + 2 >= text.size()) return false;
    const auto end = std::from_chars(text.data() + i + 1, text.data() + i + 3, byte, 16);
    if (end.ptr != text.data() + i + 3) return false;
    plain += static_cast<char>(byte);
    i += 2;
  }
  return true;
}

std::string hex(std::uint64_t number) {
  std::string text(16, '0');
  for (int i = 15; i >= 0; --i, number >>= 4) text[static_cast<std::size_t>(i)] = kHex[number & 15];
  return text;
}

/// Writes what keysOf() names.
class Writer {
 public:
  explicit Writer(std::string_view magic) : text_(magic) {}
  template <std::integral Number>
  void operator()(const char* key, const Number& number) {
    if (number != 0) text_ += std::string(" ") + key + '=' + std::to_string(number);
  }
  void operator()(const char* key, const std::string& value) { text_ += std::string(" ") + key + '=' + escape(value); }
  std::string finish() { return text_ + ' ' + hex(hashOf(text_)); }

 private:
  std::string text_;
};

/// Reads what keysOf() names.
class Reader {
 public:
  Reader(std::string_view magic, std::string_view text) {
    const std::size_t end = text.rfind(' ');
    const std::string_view body = text.substr(0, end == std::string_view::npos ? 0 : end);
    if (!body.starts_with(magic.substr(0, magic.find(' ')))) {
      error_ = "is not a record of this kind";
    } else if (text.substr(body.size() + 1) != hex(hashOf(body))) {
      error_ = "is damaged: its checksum is wrong";
    } else if (body != magic && !body.starts_with(std::string(magic) + ' ')) {
      error_ = "is of another version";
    } else {
      split(body.substr(magic.size()));
    }
  }
  template <std::integral Number>
  void operator()(const char* key, Number& number) {
    const auto found = values_.find(key);
    if (found == values_.end()) return;
    const std::string_view text = found->second;
    std::uint64_t wide = 0;
    std::int64_t narrow = 0;
    const char* const end = text.data() + text.size();
    const bool minus = text.starts_with('-');
    const auto result = minus ? std::from_chars(text.data(), end, narrow) : std::from_chars(text.data(), end, wide);
    if (result.ec != std::errc() || result.ptr != end) error_ = std::string("has no number as ") + key;
    number = minus ? static_cast<Number>(narrow) : static_cast<Number>(wide);
  }
  void operator()(const char* key, std::string& value) {
    const auto found = values_.find(key);
    if (found != values_.end() && !unescape(found->second, value)) error_ = std::string("has no text as ") + key;
  }
  bool isGood(std::string& error) const {
    error = error_;
    return error_.empty();
  }

 private:
  void split(std::string_view text) {
    while (!text.empty()) {
      text.remove_prefix(1);
      const std::string_view item = text.substr(0, text.find(' '));
      const std::size_t equals = item.find('=');
      if (equals == std::string_view::npos) {
        error_ = "has an item without a value";
        return;
      }
      values_[item.substr(0, equals)] = item.substr(equals + 1);
      text.remove_prefix(item.size());
    }
  }

  std::map<std::string_view, std::string_view> values_;
  std::string error_;
};

/// The keys, in the order in which they are written.
template <typename Record, typename Visitor>
void keysOf(Record& record, Visitor& visit) {
  visit("id", record.id);
  visit("path", record.path);
  visit("place", record.place);
  visit("device", record.identity.device);
  visit("inode", record.identity.inode);
  visit("born", record.identity.born);
  visit("head_length", record.headLength);
  visit("head", record.headHash);
  visit("offset", record.offset);
  visit("tail", record.tail);
  visit("size", record.size);
  visit("modified", record.modified);
  visit("predecessor", record.predecessor);
  visit("copy_of", record.copyOf);
  visit("away", record.away);
  visit("passed_over", record.passedOver);
  visit("gone", record.gone);
}

template <typename Record, typename Visitor>
void sourceKeysOf(Record& record, Visitor& visit) {
  visit("looked_at", record.lookedAt);
  visit("last_id", record.lastId);
}

}  // namespace

std::string encode(const FileRecord& record) {
  Writer writer(kFileMagic);
  keysOf(record, writer);
  return writer.finish();
}

std::string encode(const FileSourceRecord& record) {
  Writer writer(kSourceMagic);
  sourceKeysOf(record, writer);
  return writer.finish();
}

std::optional<FileRecord> decodeFileRecord(std::string_view value, std::string& error) {
  Reader reader(kFileMagic, value);
  FileRecord record;
  keysOf(record, reader);
  if (!reader.isGood(error)) return std::nullopt;
  if (record.id == 0 || record.path.empty()) {
    error = "names no file";
    return std::nullopt;
  }
  return record;
}

std::optional<FileSourceRecord> decodeFileSourceRecord(std::string_view value, std::string& error) {
  Reader reader(kSourceMagic, value);
  FileSourceRecord record;
  sourceKeysOf(record, reader);
  if (!reader.isGood(error)) return std::nullopt;
  return record;
}

}  // namespace quillon
