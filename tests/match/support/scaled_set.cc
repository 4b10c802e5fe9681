#include "tests/match/support/scaled_set.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace quillon {

namespace {

// Each is a header of its own: logs of one host come in about as many layouts.
const char* const kHeaders[ScaledSet::kMostHeaders] = {
    "%t %s served[%s]: ",
    "%t %s kernel: ",
    "%s %s INFO scheduler: ",
    "%s %s ERROR scheduler: ",
    "[%t %s %s] [notice] ",
    "[%t %s %s] [error] ",
    "%s - %s [%s] ",
    "<%s>1 %s %s proxy %s - - ",
    "%s|%s|main|",
    "[%s] worker: ",
    "%s,%s WARN store.%s: ",
    "- %s %s node%s %s RAS KERNEL ",
    "%s %s %s CRON[%s]: ",
    "ts=%s level=info msg=",
    "%s [%s] DEBUG cluster - ",
    "%s %s db.%s ",
    "%s: %s: audit(%s): ",
    "I%s %s %s controller.go:%s] ",
    "%s %s+ ::: ",
};

const char* const kSyllables[] = {"con",   "nec",  "ted",  "ser",  "ver",  "clo", "sed", "fai", "led", "re",
                                  "quest", "time", "out",  "au",   "then", "ti",  "ca",  "blo", "ck",  "pa",
                                  "cket",  "dro",  "pped", "user", "in",   "va",  "lid", "sta", "rt",  "sto",
                                  "ge",    "no",   "de",   "up",   "da",   "te",  "ex",  "pi",  "red", "mo"};

std::vector<std::string> vocabulary(Random& random) {
  std::vector<std::string> words;
  for (int n = 0; n < 700; ++n) {
    std::string word;
    for (std::size_t left = random.between(1, 4); left > 0; --left) word += random.pick(kSyllables);
    words.push_back(word);
  }
  return words;
}

/// A word of a sentence in its tokens; few of them are fields.
void addWord(Tokens& tokens, const std::vector<std::string>& words, Random& random) {
  const std::string& word = random.pick(words);
  static const char* const closings[] = {",", ")", "]", ":", ";"};
  const std::size_t kind = random.below(100);
  if (kind < 70) {
    tokens.push_back(word);
  } else if (kind < 84) {
    tokens.emplace_back("%s");
  } else if (kind < 92) {
    tokens.push_back(word + "=");
    tokens.emplace_back("%s");
  } else {
    tokens.emplace_back(kind < 96 ? "(" : "[");
    tokens.emplace_back("%s");
    tokens.emplace_back(random.pick(closings));
  }
}

Tokens sentence(const std::vector<std::string>& words, Random& random) {
  Tokens tokens = {random.pick(words), " ", random.pick(words)};
  for (std::size_t n = random.between(2, 10); n > 0; --n) {
    tokens.emplace_back(" ");
    addWord(tokens, words, random);
  }
  if (random.chance(15)) tokens.emplace_back(" "), tokens.emplace_back("%s*");
  return tokens;
}

/// The same sentence with another word in the place of one or two.
Tokens reworded(Tokens tokens, const std::vector<std::string>& words, Random& random) {
  for (std::size_t left = random.between(1, 2); left > 0; --left) {
    std::string& token = tokens[random.below(tokens.size())];
    if (token != " " && !isVariable(token) && token.size() > 2 && token.back() != '=') token = random.pick(words);
  }
  return tokens;
}

std::string value(Random& random) {
  const auto number = [&random](std::size_t below) { return std::to_string(random.below(below)); };
  static const char* const users[] = {"root", "operator", "www-data", "m.mustermann", "backup"};
  switch (random.below(5)) {
    case 0:
      return "192.0.2." + number(256);
    case 1:
      return random.pick(users);
    case 2:
      return "/var/lib/data/" + number(100000) + ".db";
    case 3:
      return number(10) + "." + number(1000) + "s";
    default:
      return number(1000000);
  }
}

}  // namespace

ScaledSet::ScaledSet(std::size_t formats, std::size_t headers) {
  Random random(20240229);
  const std::vector<std::string> words = vocabulary(random);
  std::vector<Tokens> sentences;
  std::unordered_set<std::string> seen;
  while (formats_.size() < formats) {
    sentences.push_back(!sentences.empty() && random.chance(33) ? reworded(random.pick(sentences), words, random)
                                                                : sentence(words, random));
    if (!seen.insert(joined(sentences.back())).second) {
      sentences.pop_back();
      continue;
    }
    Tokens format = tokensOf(kHeaders[formats_.size() % std::min(headers, kMostHeaders)]);
    const Tokens& body = sentences.back();
    const bool glued = format.back() != " ";  // then header and sentence share a token
    if (glued && !isVariable(format.back())) format.back() += body.front();
    format.insert(format.end(), body.begin() + (glued ? 1 : 0), body.end());
    formats_.push_back(std::move(format));
  }
}

std::string ScaledSet::line(Random& random) const { return filled(random.pick(formats_), random); }

std::string ScaledSet::unknownLine(Random& random) const {
  Tokens tokens = random.pick(formats_);
  std::size_t at = tokens.size() - 1;
  while (at > 0 && (tokens[at] == " " || isVariable(tokens[at]))) --at;
  tokens[at] = "unheard" + std::to_string(random.below(1000)) + tokens[at];
  return filled(tokens, random);
}

std::string ScaledSet::filled(const Tokens& tokens, Random& random) {
  std::string text;
  for (const std::string& token : tokens) {
    if (token == "%t") {
      text += "Nov 21 10:" + std::to_string(random.between(10, 59)) + ":" + std::to_string(random.between(10, 59));
    } else if (token == "%s*" || token == "%s+") {
      text += value(random) + " after " + value(random) + " of work";
    } else {
      text += isVariable(token) ? value(random) : token;
    }
  }
  return text;
}

}  // namespace quillon
