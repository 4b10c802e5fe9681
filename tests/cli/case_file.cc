#include "tests/cli/case_file.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace quillon {
namespace {

constexpr std::string_view kSectionMark = "--- ";
constexpr std::string_view kNoNewline = "\\ no newline\n";
constexpr std::string_view kStreams[] = {"stdin", "stdout", "stderr", "terminal"};

bool isStream(std::string_view name) { return std::ranges::find(kStreams, name) != std::end(kStreams); }

std::string decode(std::string text) {
  if (text.ends_with(kNoNewline)) text.resize(text.size() - kNoNewline.size() - 1);
  return text;
}

std::string encode(const std::string& text) {
  return text.empty() || text.ends_with('\n') ? text : text + '\n' + std::string(kNoNewline);
}

}  // namespace

CaseFile::CaseFile(const std::filesystem::path& path) : path_(path) {
  std::ifstream in(path, std::ios::binary);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(kSectionMark)) {
      sections_.push_back({line.substr(kSectionMark.size()), ""});
    } else if (!sections_.empty()) {
      sections_.back().text += line + '\n';
    } else {
      header_.push_back(line);
      readKey(line);
    }
  }
  for (Section& section : sections_) section.text = decode(std::move(section.text));
  if (run_.empty()) refuse("it has no \"run:\" line");
}

void CaseFile::readKey(const std::string& line) {
  if (line.empty() || line.front() == '#') return;
  const size_t colon = line.find(": ");
  if (colon == std::string::npos) refuse("not a key with its value: " + line);
  const std::string key = line.substr(0, colon);
  const std::string value = line.substr(colon + 2);
  if (key == "run") {
    run_ = value;
  } else if (key == "exit") {
    exit_ = std::stoi(value);
  } else if (key == "terminal") {
    if (value != "stdout" && value != "stderr" && value != "stdout stderr") refuse("no such terminal: " + value);
    terminal_ = value;
  } else if (key == "env") {
    environment_.push_back(value);
  } else {
    refuse("unknown key: " + key);
  }
}

void CaseFile::refuse(const std::string& why) const { throw std::runtime_error(path_.string() + ": " + why); }

bool CaseFile::terminal(std::string_view stream) const { return terminal_.find(stream) != std::string::npos; }

std::string CaseFile::text(std::string_view name) const {
  const auto found = std::ranges::find(sections_, name, &Section::name);
  return found == sections_.end() ? "" : found->text;
}

std::vector<CaseFile::Section> CaseFile::files() const {
  std::vector<Section> files;
  std::ranges::copy_if(sections_, std::back_inserter(files), [](const Section& s) { return !isStream(s.name); });
  return files;
}

void CaseFile::expect(int exit_status, const std::vector<Section>& streams) {
  if (exit_status != exit_) {
    exit_ = exit_status;
    std::erase_if(header_, [](const std::string& line) { return line.starts_with("exit: "); });
    const auto run = std::ranges::find_if(header_, [](const std::string& line) { return line.starts_with("run: "); });
    header_.insert(run + 1, "exit: " + std::to_string(exit_status));
  }
  for (const Section& stream : streams) {
    const auto found = std::ranges::find(sections_, stream.name, &Section::name);
    if (found != sections_.end()) {
      found->text = stream.text;
    } else {
      sections_.push_back(stream);
    }
  }
  std::erase_if(sections_, [](const Section& s) { return isStream(s.name) && s.text.empty(); });
}

void CaseFile::write() const {
  std::ofstream out(path_, std::ios::binary);
  for (const std::string& line : header_) out << line << '\n';
  for (const Section& section : sections_) out << kSectionMark << section.name << '\n' << encode(section.text);
}

}  // namespace quillon
