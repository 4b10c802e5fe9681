#include "src/adapters/logfile/match/FormatSet.h"

#include <utility>

#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/match/Engine.h"
#include "src/adapters/logfile/match/Facts.h"
#include "src/adapters/logfile/match/IndexBuilder.h"

namespace quillon {

namespace {

// What making each takes besides is free before the next one is made.

Literal makeLiteral(const LogDriver& driver) {
  Literal::Builder builder;
  for (FormatSpec* format : driver.getFormats()) builder.add(*format);
  return builder.finish();
}

FirstPass makeFirstPass(const Literal& literal) {
  FirstPass::Builder builder(literal);
  for (std::uint32_t place = 0; place < literal.size(); ++place) builder.add(place);
  return builder.finish();
}

}  // namespace

std::shared_ptr<const FormatSet> FormatSet::make(const LogDriver& driver) {
  auto engine = std::make_unique<Engine>();
  engine->literal = makeLiteral(driver);
  engine->firstPass = makeFirstPass(engine->literal);
  Facts facts(engine->literal);
  for (std::uint32_t place = 0; place < engine->literal.size(); ++place) {
    if (engine->literal.variables(place) > 0) {
      facts.add(place);
    } else {
      engine->fixed.add(engine->literal, place);
    }
  }
  facts.finish();
  engine->fixed.finish();
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
