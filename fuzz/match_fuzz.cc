// Any bytes as a format file, up to a NUL, and the rest as a message for its formats.

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/scratch_file.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/common/eConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  comments_must_close = true;  // a comment without an end would be read for ever
  const std::uint8_t* const split = std::find(data, data + size, 0);
  const std::string formats(data, split);
  const std::string message(split == data + size ? split : split + 1, data + size);

  const quillon::ScratchFile file(formats);
  LogDriver reader(file.path(), nullptr, 0);
  reader.orderFmts();
  for (const int fromEventLog : {0, 1}) {
    SysLogMsg converted = FormatSpec::toUtf8(message.c_str(), fromEventLog);
    for (FormatSpec* format : reader.getFormats()) {
      if (format->bindConverted(converted)) format->aevent();
      format->bind(converted);
    }
  }
  return 0;
}
