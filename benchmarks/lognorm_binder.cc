// Built only where liblognorm's package is there; without_lognorm.cc takes its place elsewhere.

extern "C" {  // its headers do not say so
#include <json.h>
#include <liblognorm.h>
}

#include <string>

#include "benchmarks/binders.h"

namespace quillon {

namespace {

std::string field(int& number, const std::string& type, const std::string& until = "") {
  std::string text = R"(%{"name":"f)" + std::to_string(++number) + R"(","type":")" + type + '"';
  if (!until.empty()) {
    text += R"(,"extradata":")";
    for (const char c : until) {
      if (c == '"' || c == '\\') text += '\\';
      text += c;
    }
    text += '"';
  }
  return text + "}%";
}

std::string literal(const std::string& text) {
  std::string escaped;
  for (const char c : text) escaped += c == '%' ? "%%" : std::string(1, c);
  return escaped;
}

/// The text between the field at `i` and the next field.
std::string literalBehind(const Tokens& tokens, std::size_t i) {
  std::string text;
  for (++i; i < tokens.size() && !isVariable(tokens[i]); ++i) text += tokens[i];
  return text;
}

/// What a person would write for the format. Where fields of several rules end alike they are alike, and the rules
/// share a path of the tree as far as they agree.
std::string ruleFor(const Tokens& tokens) {
  std::string rule = "rule=:";
  int number = 0;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const std::string& token = tokens[i];
    const std::string behind = literalBehind(tokens, i);
    if (!isVariable(token)) {
      rule += literal(token);
    } else if (token == "%t") {
      for (int word = 0; word < 3; ++word) {
        rule += (word > 0 ? field(number, "whitespace") : "") + field(number, "word");
      }
    } else if (token.back() == 's') {
      rule +=
          behind.empty() || behind[0] == ' ' ? field(number, "word") : field(number, "char-to", behind.substr(0, 1));
    } else {
      rule +=
          behind.empty() ? field(number, "rest") : field(number, "string-to", behind.substr(0, behind.find(' ', 1)));
    }
  }
  return rule + "\n";
}

class Lognorm : public Binder {
 public:
  explicit Lognorm(const FormatList& formats) : context_(ln_initCtx()) {
    std::string rules;
    for (const Tokens& tokens : formats) rules += ruleFor(tokens);
    loaded_ = ln_loadSamplesFromString(context_, rules.c_str()) == 0;
  }
  Lognorm(const Lognorm&) = delete;
  Lognorm& operator=(const Lognorm&) = delete;
  ~Lognorm() override { ln_exitCtx(context_); }

  bool loaded() const { return loaded_; }

  std::size_t bindAll(std::string_view text) override {
    return countLines(text, [this](std::string_view line) {
      line_ = line;  // of a line that no rule fits it reads on up to a NUL
      json_object* event = nullptr;
      const int code = ln_normalize(context_, line_.c_str(), line_.size(), &event);
      if (event) json_object_put(event);
      return code == 0;
    });
  }

 private:
  ln_ctx context_;
  std::string line_;
  bool loaded_ = false;
};

}  // namespace

std::unique_ptr<Binder> makeLognorm(const FormatList& formats) {
  auto binder = std::make_unique<Lognorm>(formats);
  if (!binder->loaded()) return nullptr;
  return binder;
}

}  // namespace quillon
