#include "src/adapters/logfile/match/Literal.h"

#include <algorithm>
#include <stdexcept>

#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/StringComponent.h"

namespace quillon {

namespace {

/// FNV-1a; texts are short. Fowler, Noll, Vo: "FNV Non-Cryptographic Hash Algorithm".
std::size_t hashOf(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return hash ^ (hash >> 29);
}

Bound boundOf(const ConstComponent* bound) {
  if (bound == ConstComponent::none()) return Bound::kNone;
  return bound == NewlineComponent::shared() ? Bound::kNewline : Bound::kConstant;
}

}  // namespace

const OwnField& Literal::own(const Operation& operation) const {
  const auto at = static_cast<std::uint32_t>(&operation - operations_.data());
  return *std::lower_bound(owns_.begin(), owns_.end(), at,
                           [](const OwnField& field, std::uint32_t place) { return field.operation < place; });
}

Literal::Builder::Builder() : known_(256) {
  made_.newStringMeaning_ = ::newStringMeaning;
  made_.starFallback_ = ::starFallback;
}

/// Fields beyond the bounds of a format, which are those beyond the 64th, have none.
void Literal::Builder::add(FormatSpec& format) {
  const auto first = static_cast<std::uint32_t>(made_.operations_.size());
  std::uint32_t variables = 0;
  auto bounds = format.getBounds().begin();
  for (FormatComponent* component : format.getComponents()) {
    Operation operation{};
    operation.component = static_cast<std::uint32_t>(component->kind()) & 7;
    const ConstComponent* textOf = nullptr;
    if (component->kind() == ComponentKind::kConstant) textOf = static_cast<const ConstComponent*>(component);
    if (component->variable()) {
      ++variables;
      const bool bounded = bounds != format.getBounds().end();
      const ConstComponent* const bound = bounded ? *bounds : ConstComponent::none();
      if (bounded) ++bounds;
      operation.boundKind = static_cast<std::uint32_t>(boundOf(bound)) & 3;
      if (operation.bound() == Bound::kConstant) textOf = bound;
    }
    if (textOf) {
      operation.text = intern(textOf->view());
      operation.size = static_cast<std::uint32_t>(textOf->view().size()) & 0x3ffffff;
    }
    if (component->variable()) {
      addField(*component, operation);
    } else {
      made_.operations_.push_back(operation);
    }
  }
  made_.formats_.push_back({first, variables});
  made_.mostVariables_ = std::max(made_.mostVariables_, variables);
}

void Literal::Builder::addField(const FormatComponent& component, Operation operation) {
  const auto& field = static_cast<const StringComponent&>(component);
  // "%0s" has no width to speak of, but steps of its own.
  const bool hasWidth = field.view().find_first_of("0123456789") == 1;
  if (hasWidth && operation.kind() != ComponentKind::kTime) {
    operation.own = 1;
    const auto at = static_cast<std::uint32_t>(made_.operations_.size());
    made_.owns_.push_back({at, made_.stepsPlaces_, field.getWidth()});
    made_.stepsPlaces_ += operation.kind() == ComponentKind::kPlus ? 2 : 1;
  }
  made_.operations_.push_back(operation);
}

Literal Literal::Builder::finish() {
  made_.formats_.push_back({static_cast<std::uint32_t>(made_.operations_.size()), 0});
  made_.formats_.shrink_to_fit();
  made_.operations_.shrink_to_fit();
  made_.texts_.shrink_to_fit();
  return std::move(made_);
}

std::uint32_t Literal::Builder::intern(std::string_view text) {
  if (text.empty()) return 0;
  for (std::size_t i = hashOf(text) & (known_.size() - 1);; i = (i + 1) & (known_.size() - 1)) {
    Known& known = known_[i];
    if (known.size == 0) {
      if (text.size() >= 1U << 26 || made_.texts_.size() + text.size() > UINT32_MAX) {
        throw std::length_error("the constants of the formats are too long");
      }
      known = {static_cast<std::uint32_t>(made_.texts_.size()), static_cast<std::uint32_t>(text.size())};
      made_.texts_ += text;
      const std::uint32_t at = known.text;
      if (2 * ++count_ > known_.size()) grow();
      return at;
    }
    if (known.size == text.size() && std::string_view(made_.texts_).substr(known.text, known.size) == text) {
      return known.text;
    }
  }
}

void Literal::Builder::grow() {
  std::vector<Known> larger(2 * known_.size());
  for (const Known& known : known_) {
    if (known.size == 0) continue;
    std::size_t i = hashOf(std::string_view(made_.texts_).substr(known.text, known.size)) & (larger.size() - 1);
    while (larger[i].size != 0) i = (i + 1) & (larger.size() - 1);
    larger[i] = known;
  }
  known_ = std::move(larger);
}

}  // namespace quillon
