#include "delivery/destinations/http_body.h"

#include <rapidjson/document.h>
#define ZLIB_CONST  // what it reads it does not change
#include <zlib.h>

#include <charconv>
#include <cstring>

#include "delivery/Record.h"
#include "delivery/record_json.h"
#include "foundation/json_text.h"

namespace quillon::delivery {
namespace {

/// What opens a request, and what closes it.
constexpr std::string_view kOtlpHead =
    R"({"resourceLogs":[{"resource":{"attributes":[{"key":"service.name","value":{"stringValue":"quillon"}}]},)"
    R"("scopeLogs":[{"scope":{"name":"quillon"},"logRecords":[)";
constexpr std::string_view kOtlpTail = "]}]}]}";

class OtlpRecord {
 public:
  explicit OtlpRecord(std::string& json) : json_(json) {}

  void write(const Record& record, std::string_view observed) {
    ((json_ += R"({"observedTimeUnixNano":")") += observed) += R"(","body":{"stringValue":")";
    quillon::appendJson(json_, bodyOf(record));
    json_ += R"("},"attributes":[)";
    for (const NamedValue& value : record.values) attribute(value.name, value.value);
    if (!record.className.empty()) {
      attribute("event.name", record.className);
      attribute("quillon.event_id", std::to_string(record.eventId));
    }
    if (!record.source.empty()) attribute("quillon.source", record.source);
    if (!record.position.empty()) attribute("quillon.position", record.position);
    if (record.set != SetId{}) attribute("quillon.set", hex(record.set));
    json_ += "]}";
  }

 private:
  static std::string_view bodyOf(const Record& record) {
    if (record.form == RecordForm::kRaw) return record.text;
    for (const NamedValue& value : record.values) {
      if (value.name == "msg") return value.value;
    }
    return record.className;
  }

  void attribute(std::string_view name, std::string_view value) {
    json_ += json_.back() == '[' ? R"({"key":")" : R"(,{"key":")";
    quillon::appendJson(json_, name);
    json_ += R"(","value":{"stringValue":")";
    quillon::appendJson(json_, value);
    json_ += R"("}})";
  }

  std::string& json_;
};

}  // namespace

void appendNdjson(std::string& body, std::span<const Event> events) {
  Record record;
  for (const Event& event : events) {
    if (!decode(event.bytes, record)) continue;
    appendJson(body, record);
    body += '\n';
  }
}

void appendOtlp(std::string& body, std::span<const Event> events, std::chrono::system_clock::time_point now) {
  const std::string observed =
      std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch()).count());
  body += kOtlpHead;
  Record record;
  for (const Event& event : events) {
    if (!decode(event.bytes, record)) continue;
    if (body.back() == '}') body += ',';
    OtlpRecord(body).write(record, observed);
  }
  body += kOtlpTail;
}

std::uint64_t rejectedByOtlp(std::string_view answer) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(answer.data(), answer.size());
  if (document.HasParseError() || !document.IsObject() || !document.HasMember("partialSuccess")) return 0;
  const rapidjson::Value& partial = document["partialSuccess"];
  if (!partial.IsObject() || !partial.HasMember("rejectedLogRecords")) return 0;
  const rapidjson::Value& rejected = partial["rejectedLogRecords"];
  if (rejected.IsUint64()) return rejected.GetUint64();
  std::uint64_t count = 0;  // numbers of 64 bits are strings in the JSON of protocol buffers, but not everybody's
  if (rejected.IsString()) {
    const char* const text = rejected.GetString();
    std::from_chars(text, text + rejected.GetStringLength(), count);
  }
  return count;
}

std::string gzipped(std::string_view text) {
  constexpr int kGzip = 16 + MAX_WBITS;
  constexpr int kLevel = 3;  // 6, the default, takes twice the time for a tenth of the size
  z_stream stream{};
  if (deflateInit2(&stream, kLevel, Z_DEFLATED, kGzip, 8, Z_DEFAULT_STRATEGY) != Z_OK) return "";
  std::string zipped(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<const Bytef*>(text.data());
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(zipped.data());
  stream.avail_out = static_cast<uInt>(zipped.size());
  const int status = deflate(&stream, Z_FINISH);
  zipped.resize(status == Z_STREAM_END ? stream.total_out : 0);
  deflateEnd(&stream);
  return zipped;
}

}  // namespace quillon::delivery
