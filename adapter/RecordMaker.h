#ifndef QUILLON_ADAPTER_RECORDMAKER_H_
#define QUILLON_ADAPTER_RECORDMAKER_H_

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "adapter/FormatFile.h"
#include "adapter/MessageBinder.h"
#include "adapter/MessageName.h"
#include "cds/EventMaker.h"
#include "delivery/Record.h"
#include "src/adapters/logfile/event/EventWriter.h"
#include "src/adapters/logfile/source/Source.h"

namespace quillon {

/// Makes what is sent of the bound messages of one source: the event, by the same class definitions as an event server
/// has them, or the attributes that it makes the event of. For one thread.
class RecordMaker {
 public:
  /// `formats` must have been loaded for delivery. `source` is how receivers know the source: "web1/auth".
  RecordMaker(std::shared_ptr<const FormatFile> formats, delivery::RecordForm form, std::string source);

  /// The record of a message that was bound; valid until the next call, and as long as the outcome and the texts of
  /// `texts` and `origin` are. Null when the event is larger than one may be. `origin`: where somebody else took the
  /// message in.
  const delivery::Record* make(const MessageBinder::Outcome& outcome, const EventSource& texts,
                               const std::optional<Origin>& origin);

 private:
  const std::shared_ptr<const FormatFile> formats_;
  MessageName name_;
  EventMaker maker_;
  std::vector<NamedValue> attributes_;
  delivery::Record record_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_RECORDMAKER_H_
