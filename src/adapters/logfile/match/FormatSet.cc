#include "src/adapters/logfile/match/FormatSet.h"

#include <utility>

#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/Engine.h"
#include "src/adapters/logfile/match/Facts.h"
#include "src/adapters/logfile/match/IndexBuilder.h"

namespace quillon {

std::shared_ptr<const FormatSet> FormatSet::make(const LogDriver& driver) {
  auto engine = std::make_unique<Engine>();
  Literal::Builder literal;
  for (FormatSpec* format : driver.getFormats()) literal.add(*format);
  engine->literal = literal.finish();
  FirstPass::Builder firstPass(engine->literal);
  Facts facts(engine->literal);
  for (std::uint32_t place = 0; place < engine->literal.size(); ++place) {
    firstPass.add(place);
    if (engine->literal.variables(place) > 0) {
      facts.add(place);
    } else {
      engine->fixed.add(engine->literal, place);
    }
  }
  facts.finish();
  engine->fixed.finish();
  engine->firstPass = firstPass.finish();
  engine->index = IndexBuilder(facts, engine->firstPass).build();
  engine->inFileOrder = driver.isInFileOrder();
  return std::shared_ptr<const FormatSet>(new FormatSet(std::move(engine)));
}

FormatSet::FormatSet(std::unique_ptr<const Engine> engine) : engine_(std::move(engine)) {}

FormatSet::~FormatSet() = default;

std::size_t FormatSet::size() const { return engine_->literal.size(); }

std::uint32_t FormatSet::eventId(std::uint32_t place) const {
  return engine_->inFileOrder ? place : static_cast<std::uint32_t>(size()) - 1 - place;
}

}  // namespace quillon
