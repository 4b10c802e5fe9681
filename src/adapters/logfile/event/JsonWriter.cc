#include "src/adapters/logfile/event/JsonWriter.h"

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "foundation/utf8.h"

namespace quillon {

void JsonWriter::write(FormatSpec& format, int eventId) {
  writer_.Reset(stream_);
  writer_.StartObject();
  key("class");
  value(format.getName().view());
  key("event_id");
  writer_.Int(eventId);
  key("slots");
  writer_.StartObject();
  for (MsgMapEntry* entry : format.getMaps()) {
    key(entry->getName().view());
    value(entry->svalue(&format).view());
  }
  writer_.EndObject();
  key("values");
  writer_.StartArray();
  for (int n = 1; n <= format.numvars(); ++n) value(format.value(n).view());
  writer_.EndArray();
  writer_.EndObject();
  stream_.Put('\n');
}

void JsonWriter::key(std::string_view text) {
  text = repairUtf8(text, repaired_);
  writer_.Key(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void JsonWriter::value(std::string_view text) {
  text = repairUtf8(text, repaired_);
  writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

}  // namespace quillon
