#include "authoring/compare/Coverage.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "foundation/visible.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {
namespace {

std::string row(const FormatCounts& counts, std::chrono::duration<double, std::milli> time, const std::string& name) {
  char numbers[120];
  std::snprintf(numbers, sizeof numbers, "%12" PRIu64 " %12" PRIu64 " %12" PRIu64 " %12.3f  ", counts.bound,
                counts.tried, counts.givenUp, time.count());
  return numbers + visible(name) + "\n";
}

}  // namespace

Coverage::Coverage(const LogDriver& driver) : isInFileOrder_(driver.isInFileOrder()) {
  for (const FormatSpec* format : driver.getFormats())
    blocks_.push_back({std::string(format->getName().view()), {}, {}});
}

void Coverage::add(const Matcher& matcher) {
  for (std::uint32_t place = 0; place < blocks_.size(); ++place) {
    const FormatCounts counts = matcher.counts(place);
    Block& block = blocks_[place];
    block.counts.bound += counts.bound;
    block.counts.tried += counts.tried;
    block.counts.givenUp += counts.givenUp;
    block.time += matcher.time(place);
  }
}

std::string Coverage::text(std::size_t mostShapes) const {
  std::vector<const Block*> inFile;
  inFile.reserve(blocks_.size());
  for (const Block& block : blocks_) inFile.push_back(&block);
  if (!isInFileOrder_) std::reverse(inFile.begin(), inFile.end());
  std::string text = "       bound        tried     given up           ms  block\n";
  std::string idle;
  for (const Block* block : inFile) {
    text += row(block->counts, block->time, block->name);
    if (block->counts.bound == 0) idle += "  " + visible(block->name) + "\n";
  }
  if (!idle.empty()) text += "bound nothing:\n" + idle;
  return text + shapesText(mostShapes);
}

std::string Coverage::shapesText(std::size_t most) const {
  if (unmatched_.empty()) return "";
  std::string text = "unmatched, by shape:\n";
  std::uint64_t rest = unmatched_.rest();
  for (const MessageShapes::Shape* shape : unmatched_.byCount()) {
    if (most == 0) {
      rest += shape->count;
      continue;
    }
    --most;
    text +=
        "  " + std::to_string(shape->count) + " " + visible(shape->shape) + "\n    " + visible(shape->example) + "\n";
  }
  if (rest > 0) text += "  " + std::to_string(rest) + " of other shapes\n";
  return text;
}

}  // namespace quillon
