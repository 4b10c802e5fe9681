#ifndef QUILLON_TESTS_CLI_CASE_FILE_H_
#define QUILLON_TESTS_CLI_CASE_FILE_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

/// One whole run of a program, as a file tells it:
///
///     # Any comment.
///     run: quillon FORMATS          the command, for sh -c
///     exit: 1                       its exit status; 0 when left out
///     terminal: stdout stderr       which of its outputs are a terminal; none when left out
///     env: NAME=VALUE               any number of them
///     --- FORMATS                   a file in the directory where the command runs
///     --- stdin                     what it reads; nothing when left out
///     --- stdout                    what it writes; nothing when left out. So are stderr and terminal.
///
/// A section's text ends with a newline unless its last line is "\ no newline".
class CaseFile {
 public:
  struct Section {
    std::string name;
    std::string text;
  };

  /// Throws std::runtime_error naming the file and what is wrong with it: a case that says nothing must not pass.
  explicit CaseFile(const std::filesystem::path& path);

  const std::string& command() const { return run_; }
  int exitStatus() const { return exit_; }
  bool terminal(std::string_view stream) const;
  const std::vector<std::string>& environment() const { return environment_; }
  /// The text of a section; empty where there is none of that name.
  std::string text(std::string_view name) const;
  /// The sections that are files for the command.
  std::vector<Section> files() const;

  /// What the run should have given. A stream without text loses its section.
  void expect(int exit_status, const std::vector<Section>& streams);
  void write() const;

 private:
  void readKey(const std::string& line);
  [[noreturn]] void refuse(const std::string& why) const;

  std::filesystem::path path_;
  std::vector<std::string> header_;  ///< The lines before the first section, as they are.
  std::vector<Section> sections_;
  std::string run_;
  int exit_ = 0;
  std::string terminal_;
  std::vector<std::string> environment_;
};

}  // namespace quillon

#endif  // QUILLON_TESTS_CLI_CASE_FILE_H_
