#include "src/adapters/logfile/match/Literal.h"

#include <algorithm>
#include <stdexcept>

#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/match/Bytes.h"

namespace quillon {

namespace {

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

/// In a bind each component takes a piece of the message behind that of the one before. So it is enough to look for
/// each constant behind the first place where the one before can end. Where a newline is white space, the last constant
/// may reach into that.
bool Literal::constantsOccur(std::uint32_t place, const MessageText& message) const {
  const Operation* const first = begin(place);
  const Operation* const last = end(place);
  const auto isText = [](const Operation& operation) {
    return operation.kind() == ComponentKind::kConstant || operation.kind() == ComponentKind::kNewline;
  };
  const auto textOf = [this](const Operation& operation) {
    return operation.kind() == ComponentKind::kNewline ? std::string_view("\n") : text(operation);
  };
  const char* const contentEnd = message.newlineIsSpace ? message.end : message.contentEnd;
  const char* at = message.start;
  if (at < contentEnd && !message.newlineIsSpace && isText(last[-1])) {
    if (!std::string_view(at, static_cast<std::size_t>(contentEnd - at)).ends_with(textOf(last[-1]))) return false;
  }
  const char* const limit = readableEnd(message.end);
  for (const Operation* operation = first; operation != last; ++operation) {
    if (!isText(*operation) || textOf(*operation).empty()) continue;
    const std::size_t size = at < contentEnd ? static_cast<std::size_t>(contentEnd - at) : 0;
    const std::size_t found = findText({at, limit}, size, textOf(*operation));
    if (found == size) return false;
    at += found + textOf(*operation).size();
  }
  return true;
}

Literal::Builder::Builder() {
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
      if (textOf->view().size() >= 1U << 26) throw std::length_error("a constant is too long");
      operation.text = texts_.keep(textOf->view());
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
  made_.texts_ = texts_.finish();
  return std::move(made_);
}

}  // namespace quillon
