// Built only where the packages of both libraries are there; without_regex.cc takes its place elsewhere.

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#include <re2/re2.h>
#include <re2/set.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "benchmarks/binders.h"

namespace quillon {

namespace {

constexpr const char* kBlanks = R"([ \t\x0b\f\r])";
constexpr const char* kWord = R"([^ \t\x0b\f\r]+)";

bool isConstant(const std::string& token) { return token != " " && token != "%n" && !isVariable(token); }

/// What a person would write for the format: lazy where text follows a field, anchored at both ends.
std::string expressionFor(const Tokens& tokens) {
  std::string text = std::string(kBlanks) + "*";
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const std::string& token = tokens[i];
    const bool last = i + 1 == tokens.size();
    if (token == " ") {
      text += std::string(kBlanks) + "+";
    } else if (token == "%n") {
      text += "\\n";
    } else if (!isVariable(token)) {
      text += RE2::QuoteMeta(token);
    } else if (token == "%t") {
      text += std::string("(") + kWord + kBlanks + "+" + kWord + kBlanks + "+" + kWord + ")";
    } else if (token.back() == 's') {
      text += std::string("(") + kWord + (!last && isConstant(tokens[i + 1]) ? "?)" : ")");
    } else {
      text += std::string("(.") + token.back() + (last ? ")" : "?)");
    }
  }
  return text + kBlanks + "*";
}

class RegularExpressions : public Binder {
 public:
  explicit RegularExpressions(const FormatList& formats) : set_(options(), RE2::ANCHOR_BOTH) {
    for (const Tokens& tokens : formats) {
      const std::string text = expressionFor(tokens);
      complete_ = complete_ && set_.Add(text, nullptr) >= 0;
      int error = 0;
      PCRE2_SIZE offset = 0;
      pcre2_code* const code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(),
                                             PCRE2_ANCHORED | PCRE2_ENDANCHORED, &error, &offset, nullptr);
      if (code) pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
      codes_.push_back(code);
    }
    complete_ = complete_ && set_.Compile();
  }
  RegularExpressions(const RegularExpressions&) = delete;
  RegularExpressions& operator=(const RegularExpressions&) = delete;
  ~RegularExpressions() override {
    for (pcre2_code* code : codes_) pcre2_code_free(code);
    pcre2_match_data_free(match_);
  }

  bool complete() const { return complete_; }

  std::size_t bindAll(std::string_view text) override {
    return countLines(text, [this](std::string_view line) { return bind(line); });
  }

 private:
  static RE2::Options options() {
    RE2::Options options(RE2::Latin1);
    options.set_max_mem(std::int64_t{1} << 30);
    options.set_log_errors(false);
    return options;
  }

  bool bind(std::string_view line) {
    found_.clear();
    if (!set_.Match({line.data(), line.size()}, &found_)) return false;
    std::sort(found_.begin(), found_.end());
    for (const int place : found_) {
      const pcre2_code* const code = codes_[static_cast<std::size_t>(place)];
      if (code &&
          pcre2_jit_match(code, reinterpret_cast<PCRE2_SPTR>(line.data()), line.size(), 0, 0, match_, nullptr) > 0) {
        return true;
      }
    }
    return false;
  }

  RE2::Set set_;
  bool complete_ = true;
  std::vector<pcre2_code*> codes_;
  pcre2_match_data* const match_ = pcre2_match_data_create(70, nullptr);
  std::vector<int> found_;
};

}  // namespace

std::unique_ptr<Binder> makeRegularExpressions(const FormatList& formats) {
  auto binder = std::make_unique<RegularExpressions>(formats);
  if (!binder->complete()) return nullptr;
  return binder;
}

}  // namespace quillon
