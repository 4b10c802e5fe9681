#include "tests/match/support/log_lines.h"

#include <algorithm>
#include <fstream>

namespace quillon {

std::vector<System> systemsIn(const std::filesystem::path& folder) {
  std::vector<System> systems;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::filesystem::path log = entry.path();
    log.replace_extension(".log");
    if (entry.path().extension() != ".fmt" || !std::filesystem::exists(log)) continue;
    System system{entry.path().stem(), entry.path(), {}};
    std::ifstream file(log, std::ios::binary);
    for (std::string line; std::getline(file, line);) system.lines.push_back(line);
    if (!system.lines.empty()) systems.push_back(std::move(system));
  }
  std::sort(systems.begin(), systems.end(), [](const System& a, const System& b) { return a.name < b.name; });
  return systems;
}

std::string withOtherNumbers(const std::string& line, Random& random) {
  std::string text = line;
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (isDigit(text[i]) && isDigit(text[i - 1])) text[i] = static_cast<char>('0' + random.below(10));
  }
  return text;
}

std::string damaged(std::string line, const std::string& other, Random& random) {
  static const std::string bytes("a:]\"\n\t\r\0\xC3", 9);
  for (std::size_t faults = 1 + random.below(3); faults > 0; --faults) {
    const std::size_t at = random.below(line.size() + 1);
    const std::size_t word = std::min(line.find(' ', at), line.size());
    const std::size_t end = std::min(line.find(' ', std::min(word + 1, line.size())), line.size());
    switch (random.below(8)) {
      case 0:
        line.erase(word, end - word);
        break;
      case 1:
        line.insert(word, line.substr(word, end - word));
        break;
      case 2:
        line.insert(word, random.chance(50) ? " " : "\t");
        break;
      case 3:
        if (at < line.size()) line[at] = random.pick(bytes);
        break;
      case 4:
        line.erase(at, 1);
        break;
      case 5:
        line.resize(at);
        break;
      case 6:
        line += other.substr(std::min(at, other.size()));
        break;
      default:
        line.insert(at, 1, random.pick(bytes));
    }
  }
  return line;
}

}  // namespace quillon
