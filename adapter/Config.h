#ifndef QUILLON_ADAPTER_CONFIG_H_
#define QUILLON_ADAPTER_CONFIG_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "adapter/FormatFile.h"
#include "config/TomlTable.h"
#include "daemon/Log.h"
#include "delivery/client/DeliveryConfig.h"
#include "foundation/line_output.h"
#include "src/adapters/logfile/broker/KafkaSource.h"
#include "src/adapters/logfile/broker/NatsSource.h"
#include "src/adapters/logfile/event/EventForms.h"
#include "src/adapters/logfile/source/DatagramSource.h"
#include "src/adapters/logfile/source/FifoSource.h"
#include "src/adapters/logfile/source/FileSource.h"
#include "src/adapters/logfile/source/StreamSource.h"
#include "src/adapters/logfile/source/TcpSource.h"

namespace quillon {

/// What quillon-adapter(5) describes, as plain values with their defaults. Paths are absolute and without "." and "..":
/// those of the file have been resolved against the directory that it stands in. So a file has the same name whatever
/// the current directory is, and what is kept of it is found again.

/// One table [source.NAME].
struct SourceConfig {
  std::string name;
  std::string formats;       ///< Path of the format file; empty: messages are sent as they are,
  ConfigPlace formatsPlace;  ///< and where the configuration names it.
  FormatOrder order = FormatOrder::kLastFirst;
  std::string defaultText = "default";
  std::string label = "label";
  bool eventLog = false;                                    ///< Newlines are white space.
  Duration multilineWait = std::chrono::milliseconds(500);  ///< Of a format that needs more lines than there are.
  std::string unmatched;  ///< The file that messages are appended to that no format binds; empty: they are dropped.
  std::variant<StreamOptions, FileOptions, FifoOptions, TcpOptions, DatagramOptions, NatsSourceOptions,
               KafkaSourceOptions>
      input;
};

/// The table [output].
struct OutputConfig : LineOutputOptions {
  EventForm form = EventForm::kText;

  bool operator==(const OutputConfig&) const = default;
};

struct Config {
  std::string state;    ///< Directory for what must outlast the process; empty: nothing does.
  std::string metrics;  ///< "HOST:PORT" for Prometheus, a loopback address; empty: none.
  LogConfig log;
  OutputConfig output;
  std::optional<delivery::DeliveryConfig> delivery;  ///< Where events go instead of `output`.
  std::string deliveryText;                          ///< Its tables, to be compared.
  std::vector<SourceConfig> sources;                 ///< In the order of the file.
};

/// The file with what must outlast the process; empty when nothing does.
inline std::string statePath(const Config& config) { return config.state.empty() ? "" : config.state + "/positions"; }

/// Reads the file `path`. All that is wrong is told in `faults`, in the order of the file; then the result is not to be
/// used. Whether other files exist that it names is not looked at. For one thread at a time, as any value.
std::optional<Config> readConfig(const std::string& path, std::vector<ConfigFault>& faults);

/// The same for a text, whose relative paths belong to `directory`, an absolute path.
std::optional<Config> parseConfig(const std::string& text, const std::string& directory,
                                  std::vector<ConfigFault>& faults);

}  // namespace quillon

#endif  // QUILLON_ADAPTER_CONFIG_H_
