#ifndef QUILLON_ADAPTER_SETUP_H_
#define QUILLON_ADAPTER_SETUP_H_

#include <memory>
#include <string>
#include <vector>

#include "adapter/Config.h"
#include "adapter/FormatFile.h"

namespace quillon {

/// A configuration with all format files that it names, read and found good. Immutable.
struct Setup {
  Config config;
  std::vector<std::shared_ptr<const FormatFile>> formats;  ///< One for each source, or null where
                                                           ///< messages stay as they are.
};

/// Something that the operator should know of a configuration or a format file.
struct SetupReport {
  bool isError;
  std::string text;  ///< "adapter.toml:3:1: unknown key ...", one line.
};

/// Reads the configuration at `path` and the format files that it names. `reports` gets all that is wrong with any of
/// them, and warnings; null when there was an error. Touches nothing else, so that it may run beside a working adapter,
/// in another thread.
std::shared_ptr<const Setup> loadSetup(const std::string& path, std::vector<SetupReport>& reports);

}  // namespace quillon

#endif  // QUILLON_ADAPTER_SETUP_H_
