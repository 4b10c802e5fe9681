// Any bytes as what a peer sends, cut in pieces of any size: messages as lines and as counted octets. However it is
// cut, the same messages come of it; none is longer than it may be; and all bytes are accounted for.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "src/adapters/logfile/source/LineSplitter.h"
#include "src/adapters/logfile/source/OctetSplitter.h"

namespace {

constexpr std::size_t kLongest = 100;

struct Result {
  std::string messages;
  std::uint64_t bytes = 0;
  bool broken = false;
  bool operator==(const Result&) const = default;
};

template <typename SplitterType>
Result split(std::string_view text, std::size_t step) {
  SplitterType splitter(kLongest, 0);
  Result result;
  quillon::Frame frame;
  const auto take = [&] {
    if (frame.text.size() > kLongest) std::abort();
    result.messages += std::string(frame.text) + (frame.cut ? "+|" : "|");
    result.bytes += frame.bytes;
  };
  while (!text.empty()) {
    const std::span<char> room = splitter.room();
    const std::size_t count = std::min({step, text.size(), room.size()});
    std::memcpy(room.data(), text.data(), count);
    splitter.filled(count);
    text.remove_prefix(count);
    while (splitter.next(frame)) take();
    if (splitter.isBroken()) break;
  }
  if (splitter.finish(frame)) take();
  result.broken = splitter.isBroken();
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::size_t step = size > 0 ? data[0] + 1U : 1;
  const std::string_view text(reinterpret_cast<const char*>(data) + (size > 0), size - (size > 0));
  const Result lines = split<quillon::LineSplitter>(text, 4096);
  if (lines.bytes != text.size() || !(lines == split<quillon::LineSplitter>(text, step))) std::abort();
  if (!(split<quillon::OctetSplitter>(text, 4096) == split<quillon::OctetSplitter>(text, step))) std::abort();
  return 0;
}
