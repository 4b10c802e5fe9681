// Edits to the files of a cache, four bytes each: file, offset (two bytes), new value; a last odd byte has all headers
// get the CRC that they should have, so that what they say is believed. Whatever they are, the cache opens, gives out
// only events that were put in, each in its place, and goes on.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "delivery/cache/Cache.h"
#include "delivery/cache/crc32c.h"
#include "tests/delivery/support/memory_files.h"

namespace {

using namespace quillon::delivery;

constexpr std::uint32_t kEvents = 12;

std::string eventText(std::uint32_t i) { return "event " + std::to_string(i) + std::string(i * 7 % 40, '.'); }

CacheOptions optionsOf() {
  CacheOptions options;
  options.directory = "d";
  options.segmentBytes = 500;
  return options;
}

void require(bool holds) {
  if (!holds) std::abort();
}

std::unique_ptr<Cache> open(MemoryFiles& files) {
  std::string error;
  auto cache = Cache::open(optionsOf(), error, files);
  require(cache != nullptr);
  return cache;
}

void append(Cache& cache, std::uint32_t first, std::uint32_t count) {
  Batch batch;
  for (std::uint32_t i = first; i < first + count; ++i) batch.add(eventText(i), i);
  batch.setPosition("s", std::to_string(first + count));
  require(cache.append(batch) == Cache::Result::kTaken);
}

const MemoryFiles& model() {
  static const std::unique_ptr<MemoryFiles> files = [] {
    auto made = std::make_unique<MemoryFiles>();
    const auto cache = open(*made);
    require(cache->reader("r") != nullptr);
    for (std::uint32_t i = 0; i < kEvents; i += 2) append(*cache, i, 2);
    return made;
  }();
  return *files;
}

void seal(std::string& text) {
  constexpr std::size_t kHeader = 48;
  for (std::size_t at = 0; at + kHeader <= text.size(); ++at) {
    if (text.compare(at, 4, "QBat") != 0 && text.compare(at, 4, "QEnd") != 0) continue;
    const std::uint32_t crc = crc32c(std::string_view(text).substr(at + 8, kHeader - 8));
    for (std::size_t i = 0; i < 4; ++i) text[at + 4 + i] = static_cast<char>(crc >> 8 * i & 0xFF);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto files = model().copy();
  const auto paths = files->paths();
  for (std::size_t i = 0; i + 4 <= size; i += 4) {
    std::string& text = files->content(paths[data[i] % paths.size()]);
    const std::size_t at = data[i + 1] * 256U + data[i + 2];
    if (at < text.size()) {
      text[at] = static_cast<char>(data[i + 3]);
    } else if (data[i] >= 128) {
      text.resize(text.size() / 2);
    }
  }
  if (size % 4 == 1) {
    for (const std::string& path : paths) {
      if (path.ends_with(".segment")) seal(files->content(path));
    }
  }
  for (int session = 0; session < 2; ++session) {
    const auto cache = open(*files);
    const auto reader = cache->reader("r");
    Reader::Events events;
    Reader::Result result;
    while ((result = reader->read(events)) == Reader::Result::kEvents) {
      for (const Event& event : events.events) require(event.bytes == eventText(event.kind));
      reader->acknowledge(events.end);
    }
    require(result == Reader::Result::kNothing);
    append(*cache, kEvents, 1);
    require(reader->read(events) == Reader::Result::kEvents && events.events.back().kind == kEvents);
    cache->tidy();
  }
  return 0;
}
