#include "authoring/shadow/Examples.h"

#include <algorithm>
#include <array>

namespace quillon {

namespace {

constexpr std::string_view kOrdinary = "xyzwqvujkXYZWQVUJK0123456789nmhgfb~^";

bool isStar(const Operation& operation) {
  return operation.kind() == ComponentKind::kStar || operation.kind() == ComponentKind::kPlus;
}

}  // namespace

Examples::Examples(const Literal& literal) : literal_(literal) {
  std::array<int, 256> uses{};  // 1: within a constant; more: ends a field
  for (std::uint32_t place = 0; place < literal.size(); ++place) {
    for (const Operation* operation = literal.begin(place); operation != literal.end(place); ++operation) {
      const std::string_view text = literal.text(*operation);
      const bool ends = operation->isField();
      for (const char c : text.substr(0, ends ? 1 : text.size())) {
        int& use = uses[static_cast<unsigned char>(c)];
        use = std::max(use, ends ? 2 : 1);
      }
    }
  }
  const auto use = [&](char c) { return uses[static_cast<unsigned char>(c)]; };
  std::string candidates(kOrdinary);
  std::stable_sort(candidates.begin(), candidates.end(), [&](char a, char b) { return use(a) < use(b); });
  ordinary_ = candidates[0];
  other_ = candidates[1];
}

std::vector<std::string> Examples::typical(std::uint32_t place) const {
  const std::string word = {ordinary_, other_};
  std::vector<std::string> messages = {message(place, values(place, word, 1))};
  if (std::any_of(literal_.begin(place), literal_.end(place), isStar)) {
    for (const int words : {3, 2, 0}) messages.push_back(message(place, values(place, word, words)));
  }
  return messages;
}

std::string Examples::message(std::uint32_t place, const std::vector<std::string>& values) const {
  std::string text;
  std::size_t next = 0;
  for (const Operation* operation = literal_.begin(place); operation != literal_.end(place); ++operation) {
    if (operation->isField()) {
      text += values[next++];
    } else if (operation->kind() == ComponentKind::kBlank) {
      text += ' ';
    } else if (operation->kind() == ComponentKind::kNewline) {
      text += '\n';
    } else {
      text += literal_.text(*operation);
    }
  }
  return text;
}

std::vector<std::string> Examples::values(std::uint32_t place, std::string_view word, int starWords) const {
  std::vector<std::string> all;
  for (const Operation* operation = literal_.begin(place); operation != literal_.end(place); ++operation) {
    if (!operation->isField()) continue;
    int words = isStar(*operation) ? starWords : 1;
    if (operation->kind() == ComponentKind::kPlus) words = std::max(words, 1);
    if (operation->kind() == ComponentKind::kTime) words = 3;
    std::string& value = all.emplace_back();
    for (int i = 0; i < words; ++i) value.append(i > 0 ? " " : "").append(word);
  }
  return all;
}

std::string Examples::readable(std::string_view text, bool isTime) const {
  const auto isOrdinary = [this](char c) { return c == ordinary_ || c == other_; };
  if (isTime && std::all_of(text.begin(), text.end(), [&](char c) { return c == ' ' || isOrdinary(c); })) {
    return "Jan 1 12:00:00";
  }
  std::string words;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isOrdinary(text[i])) {
      words += text[i];
    } else if (i == 0 || !isOrdinary(text[i - 1])) {
      words += "word";
    }
  }
  return words;
}

}  // namespace quillon
