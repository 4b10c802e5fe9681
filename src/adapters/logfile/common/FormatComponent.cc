#include "src/adapters/logfile/common/FormatComponent.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "foundation/characters.h"
#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/Report.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/common/TimeComponent.h"
#include "src/adapters/logfile/common/WhitespComponent.h"
#include "src/adapters/logfile/common/shared_text.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace {

constexpr quillon::ReportSite kBadFieldSite = quillon::errorSite(quillon::ReportCode::kBadField, quillon::kReaderLevel,
                                                                 "src/adapters/logfile/common/FormatComponent", 156);

/// The letter behind "%" and its width; NUL when `token` is not a field.
char fieldLetter(const char* token) {
  if (token[0] != '%' || token[1] == '\0') return '\0';
  const char* p = token + 1;
  while (quillon::isDigit(*p)) ++p;
  return *p;
}

}  // namespace

void FormatComponent::init() {
  [[maybe_unused]] static const bool once = [] {
    ConstComponent::init();
    StringComponent::init();
    TimeComponent::init();
    WhitespComponent::init();
    NewlineComponent::init();
    return true;
  }();
}

void FormatComponent::share(FormatComponent* component) {
  component->qlStrobj::operator=(qlStrobj::permanent(component->view()));
  quillon::retain(component);
  component->shared_ = true;
}

FormatComponent* FormatComponent::create(const char* token) {
  switch (fieldLetter(token)) {
    case 's':
      return StringComponent::create(token);
    case 'n':
      return NewlineComponent::create(token);
    case 't':
      return TimeComponent::create(token);
    default:
      break;
  }
  if (std::string_view(token) == " ") return WhitespComponent::create(token);
  return ConstComponent::create(token);
}

FormatComponent::FormatComponent(const char* text) : qlStrobj(quillon::sharedText(text)) {}

FormatComponent::~FormatComponent() {
  if (refcount != 0) std::abort();
}

ConstComponent* FormatComponent::lookahead(qlList<FormatComponent*>& /*list*/, int /*i*/) {
  return ConstComponent::none();
}

void FormatComponent::UTF8Component() {
  const quillon::ConvertedText converted(nxl_to_utf8, quillon::platformCodeset(), view());
  if (!converted.text()) {
    error("FormatComponent::UTF8Component: malloc failure.", getString());
    std::exit(EXIT_FAILURE);
  }
  if (converted.text() != view().data()) qlStrobj::operator=(quillon::sharedText(converted.text()));
}

void FormatComponent::error(const char* msg, const char* text) {
  quillon::report(kBadFieldSite, {}, "%s `%s'\n", msg, text);
}

void FormatComponent::dbgdump() const { std::fputs(view().data(), stdout); }
