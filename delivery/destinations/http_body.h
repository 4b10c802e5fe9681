#ifndef QUILLON_DELIVERY_DESTINATIONS_HTTP_BODY_H_
#define QUILLON_DELIVERY_DESTINATIONS_HTTP_BODY_H_

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "delivery/cache/format.h"

namespace quillon::delivery {

/// Appends each event as a line of JSON; what is no record is left out.
void appendNdjson(std::string& body, std::span<const Event> events);

/// Appends an ExportLogsServiceRequest of the OpenTelemetry protocol, version 1, in its JSON. Slots are attributes of
/// their names; "event.name" is the class; "quillon.source", "quillon.position", "quillon.event_id" and "quillon.set"
/// tell where it came from. The body is the slot "msg", else the class; of a message its text. All were observed `now`.
void appendOtlp(std::string& body, std::span<const Event> events, std::chrono::system_clock::time_point now);

/// How many log records a server says that it has not taken, in its answer to such a request; 0 when it says nothing.
std::uint64_t rejectedByOtlp(std::string_view answer);

/// Empty when there is no memory for it.
std::string gzipped(std::string_view text);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_DESTINATIONS_HTTP_BODY_H_
