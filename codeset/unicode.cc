#include "codeset/unicode.h"

#include <unictype.h>
#include <uniwidth.h>

#include <algorithm>
#include <string_view>

#include "codeset/tables.h"

namespace quillon {
namespace {

constexpr std::uint32_t kCapitalSigma = 0x3A3;
constexpr std::uint32_t kCapitalIOgonek = 0x12E;

// Only these languages have rules of their own in SpecialCasing.txt and CaseFolding.txt.
const char* languageWithRules() {
  const std::string_view locale = localeName("LC_CTYPE");
  const std::string_view language = locale.substr(0, locale.find_first_of("_.@"));
  for (const char* name : {"tr", "az", "lt"}) {
    if (language == name) return name;
  }
  return nullptr;
}

bool isIn(std::uint32_t c, std::uint32_t categories) { return uc_is_general_category_withtable(c, categories); }

bool isGraph(std::uint32_t c) {
  return !uc_is_property_white_space(c) && !isIn(c, UC_CATEGORY_MASK_Cc | UC_CATEGORY_MASK_Cs | UC_CATEGORY_MASK_Cn);
}

bool isBlank(std::uint32_t c) { return c == '\t' || isIn(c, UC_CATEGORY_MASK_Zs); }

}  // namespace

bool LookAhead::add(std::uint32_t c) {
  const bool last = !uc_is_property_case_ignorable(c);
  if (count_ + !last < kMost) codes_[count_++] = c;  // the last one always has its place
  return !last;
}

CaseMapper::CaseMapper(CaseForm form) : form_(form), language_(languageWithRules()) {}

bool CaseMapper::looksAhead(std::uint32_t c) const {
  return form_ == CaseForm::kLower && (c == kCapitalSigma || c == 'I' || c == 'J' || c == kCapitalIOgonek);
}

Mapped CaseMapper::map(std::uint32_t c, const LookAhead& ahead) {
  Mapped mapped = {{c}, 1};
  if (c < 0x80 && !language_ && form_ != CaseForm::kLower) {  // of no influence on what follows
    mapped.codes[0] = form_ == CaseForm::kUpper ? upperOf(c) : lowerOf(c);
    return mapped;
  }
  std::size_t count = Mapped::kMost;
  if (form_ == CaseForm::kUpper) {
    u32_ct_toupper(&c, 1, before_, unicase_empty_suffix_context, language_, nullptr, mapped.codes, &count);
  } else if (form_ == CaseForm::kLower) {
    u32_ct_tolower(&c, 1, before_, ahead.context(), language_, nullptr, mapped.codes, &count);
  } else {
    u32_ct_casefold(&c, 1, before_, unicase_empty_suffix_context, language_, nullptr, mapped.codes, &count);
  }
  mapped.count = std::min(count, Mapped::kMost);
  before_ = u32_casing_prefixes_context(&c, 1, before_);
  return mapped;
}

std::uint32_t upperOf(std::uint32_t c) { return uc_toupper(c); }

std::uint32_t lowerOf(std::uint32_t c) { return uc_tolower(c); }

bool isOfClass(std::uint32_t c, NxlClass which) {
  const bool digit = isIn(c, UC_CATEGORY_MASK_Nd);
  switch (which) {
    case kAlnumClass:
      return digit || uc_is_property_alphabetic(c);
    case kAlphaClass:
      return uc_is_property_alphabetic(c);
    case kBlankClass:
      return isBlank(c);
    case kCntrlClass:
      return isIn(c, UC_CATEGORY_MASK_Cc);
    case kDigitClass:
      return digit;
    case kGraphClass:
      return isGraph(c);
    case kLowerClass:
      return uc_is_property_lowercase(c);
    case kPrintClass:
      return isGraph(c) || (isBlank(c) && !isIn(c, UC_CATEGORY_MASK_Cc));
    case kPunctClass:
      return isIn(c, UC_CATEGORY_MASK_P);
    case kSpaceClass:
      return uc_is_property_white_space(c);
    case kUpperClass:
      return uc_is_property_uppercase(c);
    case kXdigitClass:
      return digit || uc_is_property_hex_digit(c);
  }
  return false;
}

int columns(std::uint32_t c, bool wide) { return std::max(uc_width(c, wide ? "EUC-JP" : "UTF-8"), 0); }

}  // namespace quillon
