// Any text as a configuration: it is understood, or every fault has a text, in the order of its places.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "adapter/Config.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<quillon::ConfigFault> faults;
  const bool good = quillon::parseConfig(text, "/etc", faults).has_value();
  if (good != faults.empty()) std::abort();
  unsigned line = 0;
  for (const quillon::ConfigFault& fault : faults) {
    if (fault.text.empty() || fault.place.line < line) std::abort();
    line = fault.place.line;
  }
  return 0;
}
