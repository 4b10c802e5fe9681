// Any bytes as a format file: read it, write it back, and write the class definitions of the formats that can have one.

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/scratch_file.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/eConfig.h"

namespace {

/// A PRINTF that cannot be expanded ends the process, and those that refer to each other twice double their text at
/// each level; so formats with a PRINTF are left out.
bool hasPrint(const FormatSpec& format) {
  for (const MsgMapEntry* entry : format.getMaps()) {
    if (entry->kind() == printMap) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  comments_must_close = true;  // a comment without an end would be read for ever
  const quillon::ScratchFile file({reinterpret_cast<const char*>(data), size});
  LogDriver reader(file.path(), nullptr, 0);
  if (!reader.write_fmt("/dev/null")) std::abort();
  std::FILE* const sink = std::fopen("/dev/null", "w");
  int index = 0;
  for (FormatSpec* format : reader.getFormats()) {
    if (!hasPrint(*format)) format->emitCds(sink, index++);
  }
  std::fclose(sink);
  reader.orderFmts();
  return 0;
}
