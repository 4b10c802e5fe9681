#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_JSONWRITER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_JSONWRITER_H_

#include <rapidjson/writer.h>

#include <string>
#include <string_view>

#include "foundation/output_buffer.h"

class FormatSpec;

namespace quillon {

/// Writes bound messages as JSON, one object a line: the class, the block's index in the format file, the slots in the
/// order of the maps, and the variables. Bytes that are not UTF-8 become U+FFFD.
class JsonWriter {
 public:
  explicit JsonWriter(OutputBuffer& output) : stream_{&output}, writer_(stream_) {}

  void write(FormatSpec& format, int eventId);

 private:
  /// What the library asks of an output stream.
  struct Stream {
    using Ch = char;
    void Put(char c) { output->put(c); }
    void Flush() {}
    OutputBuffer* output;
  };

  void key(std::string_view text);
  void value(std::string_view text);

  Stream stream_;
  rapidjson::Writer<Stream> writer_;
  std::string repaired_;  ///< Room for a text that is not UTF-8.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_EVENT_JSONWRITER_H_
