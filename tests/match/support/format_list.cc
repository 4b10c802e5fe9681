#include "tests/match/support/format_list.h"

#include <cstdio>

#include "src/adapters/logfile/common/FormatComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"

namespace quillon {

namespace {

Tokens tokensOf(const FormatSpec& format) {
  Tokens tokens;
  for (const FormatComponent* component : format.getComponents()) tokens.emplace_back(component->view());
  return tokens;
}

}  // namespace

bool isVariable(const std::string& token) {
  // A lone percent sign, or one with other letters behind it, is a constant.
  const std::size_t letter = token.find_first_not_of("0123456789", 1);
  return token.size() > 1 && token[0] == '%' && letter != std::string::npos && (token[letter] == 's' || token == "%t");
}

Tokens tokensOf(const std::string& text) {
  FormatComponent::init();
  FormatSpec format("T");
  format.setFmtStr(text.c_str());
  return tokensOf(format);
}

FormatList formatsOf(const LogDriver& driver) {
  FormatList formats;
  for (const FormatSpec* format : driver.getFormats()) formats.push_back(tokensOf(*format));
  return formats;
}

std::string joined(const Tokens& tokens) {
  std::string text;
  for (const std::string& token : tokens) text += token;
  return text;
}

std::string formatFile(const FormatList& formats) {
  std::string text;
  int number = 0;
  for (const Tokens& tokens : formats) {
    text += "FORMAT Block" + std::to_string(number++) + "\n" + joined(tokens) + "\n";
    int variables = 0;
    for (const std::string& token : tokens) {
      if (!isVariable(token)) continue;
      ++variables;
      text += "field" + std::to_string(variables) + " $" + std::to_string(variables) + "\n";
    }
    text += "severity WARNING\n";
    if (variables > 0) text += "msg PRINTF(\"first of %s: %s\", severity, field1)\n";
    text += "END\n\n";
  }
  return text;
}

std::string printable(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\' || c == '"') {
      result += '\\';
      result += c;
    } else if (c >= ' ' && c < 0x7F) {
      result += c;
    } else if (c == '\n' || c == '\t') {
      result += c == '\n' ? "\\n" : "\\t";
    } else {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
      result += escape;
    }
  }
  return result;
}

}  // namespace quillon
