// Any bytes as a state file, and as a record of a file: what can be understood is the same when it is written again.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "src/adapters/logfile/source/FileRecord.h"
#include "src/adapters/logfile/source/StateFile.h"
#include "src/adapters/logfile/source/fingerprint.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  quillon::StateFile::Kept kept;
  static_cast<void>(quillon::StateFile::parse(text, kept));

  // With the checksum that it would have, so that what is behind it is reached.
  std::string sealed(text);
  char checksum[20];
  std::snprintf(checksum, sizeof checksum, " %016llx", static_cast<unsigned long long>(quillon::hashOf(text)));
  sealed += checksum;
  std::string error;
  const auto record = quillon::decodeFileRecord(sealed, error);
  if (record) {
    const auto again = quillon::decodeFileRecord(quillon::encode(*record), error);
    if (!again || quillon::encode(*again) != quillon::encode(*record)) std::abort();
  }
  quillon::decodeFileSourceRecord(sealed, error);
  return 0;
}
