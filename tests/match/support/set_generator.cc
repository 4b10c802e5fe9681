#include "tests/match/support/set_generator.h"

#include <algorithm>
#include <string_view>

namespace quillon {

namespace {

// No word holds the last one, and the one before takes nothing.
const char* const kPunctuation[] = {":", "]", "[", "=", ",", "]:", "(", ")", "\"", "-", "::", "]]", "", "a b"};

/// The pieces of `text` between white space, which is kept in front of them.
std::vector<std::string> wordsOf(const std::string& text) {
  std::vector<std::string> words;
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t end = text.find_first_not_of(" \t", begin);
    end = std::min(text.find_first_of(" \t", end), text.size());
    words.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return words;
}

std::string concatenated(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += word;
  return text;
}

}  // namespace

SetGenerator::SetGenerator(std::uint64_t seed) : random_(seed) {
  makeWords();
  const std::size_t kind = random_.below(10);
  dense_ = random_.chance(40);
  fieldPercent_ = kind == 0 ? 0 : kind == 1 ? 60 : 30;
  starPercent_ = kind == 2 ? 80 : 20;
  paddedPercent_ = random_.chance(30) ? 20 : 2;
  makeHeaders();
  const std::size_t size = random_.below(100);
  const std::size_t most = size < 30 ? 3 : size < 80 ? 14 : size < 98 ? 60 : 400;
  for (std::size_t n = 1 + random_.below(most); n > 0; --n) {
    formats_.push_back(!formats_.empty() && random_.chance(40) ? sibling(random_.pick(formats_)) : makeFormat());
  }
}

void SetGenerator::makeWords() {
  alphabet_ = random_.chance(60) ? "ab" : random_.chance(50) ? "abx:" : "abcdefghijklmnopqrstuvwxyz.";
  const bool natural = alphabet_.size() > 4;
  // Words that agree in their first 8 or 16 bytes and differ behind these, or differ only in the middle.
  const std::string stem = letters(20);
  for (std::size_t n = 2 + random_.below(natural ? 60 : 8); n > 0; --n) {
    std::string word = letters(natural ? 12 : 3);
    if (random_.chance(natural ? 30 : 5)) word = stem.substr(0, 8 * (1 + random_.below(2))) + word;
    if (random_.chance(5)) word = word + stem + stem;
    if (random_.chance(1))
      word += std::string(random_.pick(std::vector<std::size_t>{250, 255, 256, 600, 5000, 40'000, 70'000}), 'a');
    if (random_.chance(2)) word += "\xC3\xA9";
    words_.push_back(word.empty() ? "a" : word);
  }
}

void SetGenerator::makeHeaders() {
  const std::size_t layouts = random_.chance(40) ? 0 : 1 + random_.below(random_.chance(20) ? 19 : 3);
  for (std::size_t n = layouts; n > 0; --n) {
    Tokens header;
    if (random_.chance(50)) header = {"%t", " ", "%s", " "};
    const std::string program = random_.pick(words_);
    static const char* const closings[] = {"]:", ":", "]"};
    if (random_.chance(60)) {
      for (std::string token : {program + "[", std::string("%s"), std::string(random_.pick(closings))})
        header.push_back(token);
    } else {
      addWord(header);
    }
    header.emplace_back(" ");
    headers_.push_back(header);
  }
}

Tokens SetGenerator::makeFormat() {
  Tokens tokens;
  if (dense_) {
    for (std::size_t n = random_.between(1, 9); n > 0; --n) {
      static const char* const texts[] = {" ", " ", "a", "b", "ab", "x", "%n", "aa"};
      tokens.emplace_back(random_.chance(55) ? random_.pick(texts) : field());
    }
    return tokens;
  }
  if (!headers_.empty() && random_.chance(95)) tokens = random_.pick(headers_);
  for (std::size_t n = random_.below(7) + (tokens.empty() ? 1 : 0); n > 0; --n) {
    addWord(tokens);
    if (n > 1) tokens.emplace_back(random_.chance(3) ? "%n" : " ");
    if (random_.chance(4)) tokens.pop_back();
  }
  if (tokens.empty()) tokens.push_back(words_[0]);
  return tokens;
}

/// The same but for one token: another word, or a field in the place of one, or one left out.
Tokens SetGenerator::sibling(Tokens tokens) {
  const auto at = static_cast<std::ptrdiff_t>(random_.below(tokens.size()));
  if (random_.chance(15)) {
    tokens.erase(tokens.begin() + at);
    if (tokens.empty()) tokens.push_back(words_[0]);
  } else if (tokens[static_cast<std::size_t>(at)] != " ") {
    tokens[static_cast<std::size_t>(at)] =
        random_.chance(70) || fieldPercent_ == 0 ? random_.pick(words_) : std::string(field());
  }
  if (random_.chance(20)) tokens.emplace_back(" "), addWord(tokens);
  return tokens;
}

/// A word of the format: a constant, a field, or several of both without white space between them.
void SetGenerator::addWord(Tokens& tokens) {
  for (std::size_t parts = random_.chance(25) ? 2 + random_.below(3) : 1; parts > 0; --parts) {
    if (random_.chance(fieldPercent_)) {
      tokens.emplace_back(field());
    } else {
      tokens.push_back(parts > 1 || random_.chance(15) ? random_.pick(kPunctuation) : random_.pick(words_));
    }
  }
}

const char* SetGenerator::field() {
  static const char* const several[] = {"%s*", "%s*", "%s+", "%s+", "%2s*", "%3s+"};
  static const char* const one[] = {"%s", "%s", "%s", "%s", "%s", "%s", "%t", "%2s", "%1s", "%0s"};
  return random_.chance(starPercent_) ? random_.pick(several) : random_.pick(one);
}

std::string SetGenerator::message() {
  if (random_.chance(4)) return letters(random_.chance(10) ? 3000 : 12) + blanks() + letters(10);
  std::string text = instance(random_.pick(formats_));
  const std::size_t what = random_.below(20);
  if (what < 8) {
    std::vector<std::string> words = wordsOf(text);
    const auto somewhere = [&] { return static_cast<std::ptrdiff_t>(random_.below(words.size() + 1)); };
    if (what < 3) {
      const std::vector<std::string> other = wordsOf(instance(random_.pick(formats_)));
      words.resize(static_cast<std::size_t>(somewhere()));
      words.insert(words.end(), other.begin() + static_cast<std::ptrdiff_t>(random_.below(other.size() + 1)),
                   other.end());
    } else if (what < 5 && !words.empty()) {
      std::swap(words[random_.below(words.size())], words[random_.below(words.size())]);
    } else if (what < 7) {
      for (std::size_t n = 1 + random_.below(3); n > 0 && !words.empty(); --n)
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(random_.below(words.size())));
    } else {
      words.insert(words.begin() + somewhere(), " " + random_.pick(words_));
    }
    text = concatenated(words);
  }
  if (what == 8 || random_.chance(10)) {
    for (std::size_t n = 1 + random_.below(3); n > 0; --n) change(text);
  }
  if (random_.chance(paddedPercent_)) text = blanks() + text + blanks();
  if (random_.below(1000) == 0) {
    for (std::size_t n = random_.below(700); n > 0; --n) text += " " + random_.pick(words_);  // beyond any fixed table
  }
  return text;
}

std::string SetGenerator::instance(const Tokens& tokens) {
  std::string text;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const std::string& token = tokens[i];
    if (isVariable(token)) {
      text += value(tokens, i);
    } else {
      text += token == " " ? random_.chance(paddedPercent_) ? blanks() : " " : token == "%n" ? "\n" : token;
    }
  }
  return text;
}

/// What may stand in the place of the field `at`: often with the text in it that ends the field, so that its first end
/// is not its last, and now and then as often as a field is tried again.
std::string SetGenerator::value(const Tokens& tokens, std::size_t at) {
  const bool bounded = at + 1 < tokens.size() && tokens[at + 1] != " " && tokens[at + 1] != "%n";
  std::string text = random_.chance(50) ? letters(6) : random_.pick(words_);
  if (dense_) {
    for (std::size_t n = random_.below(6); n > 0; --n) text += random_.pick(std::string_view("aabbx  \n"));
    return text;
  }
  if (bounded && random_.chance(30)) text = random_.chance(50) ? tokens[at + 1] + text : text + tokens[at + 1] + text;
  if (bounded && random_.chance(1)) {
    text.clear();
    for (std::size_t n = random_.between(97, 103); n > 0; --n) text += tokens[at + 1];
  }
  if (tokens[at] == "%t") {
    text += " " + random_.pick(words_) + blanks() + random_.pick(words_);
  } else if (tokens[at].back() == '*' || tokens[at].back() == '+') {
    if (random_.chance(20)) text.clear();
    for (std::size_t n = random_.below(4); n > 0; --n)
      text += (random_.chance(paddedPercent_) ? blanks() : " ") + random_.pick(words_);
  }
  return text;
}

std::string SetGenerator::blanks() {
  static const char* const runs[] = {" ", " ", "  ", "   ", "\t", " \t", "\r", "\v", "\n", ""};
  return random_.pick(runs);
}

std::string SetGenerator::letters(std::size_t most) {
  std::string text;
  for (std::size_t n = random_.below(most + 1); n > 0; --n) text += random_.pick(alphabet_);
  return text;
}

void SetGenerator::change(std::string& text) {
  static const std::string bytes("ab :]\n\t\r\0\x80\xC3", 11);
  const std::size_t at = random_.below(text.size() + 1);
  switch (random_.below(4)) {
    case 0:
      text.erase(at, 1);
      break;
    case 1:
      text.insert(at, 1, random_.pick(bytes));
      break;
    case 2:
      if (at < text.size()) text[at] = random_.pick(bytes);
      break;
    default:
      text.resize(at);
  }
}

}  // namespace quillon
