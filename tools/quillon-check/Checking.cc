#include "tools/quillon-check/Checking.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "authoring/check/CheckedFile.h"
#include "authoring/check/checks.h"
#include "authoring/check/fixes.h"
#include "authoring/check/matcher_checks.h"
#include "authoring/report/finding_json.h"
#include "authoring/report/finding_text.h"
#include "authoring/samples/sample_findings.h"
#include "authoring/samples/test_report.h"
#include "foundation/descriptor.h"
#include "foundation/visible.h"
#include "program/program.h"

namespace quillon {
namespace {

bool isError(const Finding& finding) { return finding.severity == Severity::kError; }
bool isFatal(const Finding& finding) { return isError(finding) || failsSample(finding.code); }

/// All of the file `path`; false, with the reason in errno, when it cannot be read.
bool readAll(const std::string& path, std::string& text) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return false;
  constexpr std::size_t kPiece = 1 << 16;
  for (;;) {
    const std::size_t size = text.size();
    text.resize(size + kPiece);
    const ssize_t length = read(file.get(), text.data() + size, kPiece);
    text.resize(size + static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    if (length == 0) return true;
    if (length < 0 && errno != EINTR) return false;
  }
}

/// Puts a file with `text` and the same permissions in the place of `path`, or of what it links to. 0, or an errno.
int replaceFile(const std::string& path, const std::string& text) {
  char target[PATH_MAX];
  struct stat status {};
  if (!realpath(path.c_str(), target) || stat(target, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  std::string beside = std::string(target) + ".XXXXXX";
  Descriptor file(mkostemp(beside.data(), O_CLOEXEC));
  if (!file) return errno;
  int error = writeAll(file.get(), text);
  if (error == 0 && fchmod(file.get(), status.st_mode & 07777) != 0) error = errno;
  if (error == 0 && fsync(file.get()) != 0) error = errno;
  if (!file.close() && error == 0) error = errno;
  if (error == 0 && std::rename(beside.c_str(), target) != 0) error = errno;
  if (error != 0) unlink(beside.c_str());
  return error;
}

bool wantsColours() {
  const char* const none = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool isDumb = terminal && std::strcmp(terminal, "dumb") == 0;
  return isatty(STDOUT_FILENO) && !(none && *none) && !isDumb;
}

/// "2 errors", "1 error"
std::string counted(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

class Checking {
 public:
  explicit Checking(const CheckOptions& options) : options_(options), colours_(wantsColours()) {}

  int run() {
    if (!options_.samples.empty()) readSamples();
    for (const std::string& file : options_.files) checkFile(file);
    if (options_.dryRun) {
      // what is to be seen has been written
    } else if (options_.output == "json") {
      write(findingsJson(results_));
    } else if (options_.output == "sarif") {
      write(findingsSarif(results_));
    } else if (options_.output == "tap") {
      write(tapText(tests_));
    } else if (options_.output == "junit") {
      write(junitText(tests_));
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) return outputFailed(kCheckProgram);
    const auto hasFailed = [](const FileFindings& file) { return std::ranges::any_of(file.findings, isFatal); };
    return failed_ || std::ranges::any_of(results_, hasFailed) ? EXIT_FAILURE : EXIT_SUCCESS;
  }

 private:
  /// A text with its lines, for as long as results point to it.
  struct Text {
    explicit Text(std::string all) : text(std::move(all)), lines(text) {}
    const std::string text;
    const TextLines lines;
  };

  static void write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

  bool isWanted(const Finding& finding) const { return !options_.ignored.contains(finding.code); }

  void checkFile(const std::string& name) {
    std::string text;
    errno = 0;
    if (!readAll(name, text)) return addUnreadable(name, errno);
    int fixes = 0;
    if (options_.fix) fixes = fixFile(name, text);
    const CheckedFile checked(name, text);
    std::vector<Finding> findings = wanted(check(checked));
    const SampleList own = samplesIn(checked.places());
    append(findings, wanted(sampleFaults(own, name)));
    const MatcherFindings matcher =
        checkMatcher(checked, options_.fileOrder ? TryOrder::kFileOrder : TryOrder::kLastFirst);
    append(findings, wanted(matcher.findings));
    TestedFile test{name, findings, {}};
    append(test.findings, besideFaults_);
    std::vector<Finding> beside = besideFaults_;
    if (checked.compiles()) {
      const SampledFormats formats{checked.driver(), checked.places(), name, options_.eventLog};
      test.samples = runSamples(formats, own, beside_, options_.samples);
    }
    for (SampleOutcome& outcome : test.samples) {
      outcome.findings = wanted(std::move(outcome.findings));
      append(outcome.file == options_.samples ? beside : findings, outcome.findings);
    }
    std::ranges::stable_sort(findings, {}, [](const Finding& finding) { return finding.place.line; });
    const Text& kept = *texts_.emplace_back(std::make_unique<Text>(std::move(text)));
    results_.push_back({name, &kept.lines, checked.compiles(), std::move(findings)});
    if (besideText_) results_.push_back({options_.samples, &besideText_->lines, {}, std::move(beside)});
    if (options_.output == "text" && !options_.dryRun) {
      if (besideText_) show(*std::prev(results_.end(), 2));
      show(results_.back());
      sumUp(checked, fixes, test, own.samples.size() + beside_.samples.size(), matcher.undecided());
    }
    tests_.push_back(std::move(test));
  }

  /// Reads the file of samples.
  void readSamples() {
    std::string text;
    if (!readAll(options_.samples, text)) {
      complain(kCheckProgram, "read", options_.samples, errno);
      failed_ = true;
      return;
    }
    besideText_ = std::make_unique<Text>(std::move(text));
    beside_ = samplesInText(besideText_->text);
    besideFaults_ = wanted(sampleFaults(beside_, options_.samples));
  }

  /// Without those that are to be left out, and with the severity that is asked for.
  std::vector<Finding> wanted(std::vector<Finding> findings) const {
    std::erase_if(findings, [this](const Finding& finding) { return !isWanted(finding); });
    for (Finding& finding : findings) {
      if (options_.errors.contains(finding.code)) finding.severity = Severity::kError;
    }
    return findings;
  }

  static void append(std::vector<Finding>& findings, const std::vector<Finding>& more) {
    findings.insert(findings.end(), more.begin(), more.end());
  }

  void addUnreadable(const std::string& name, int error) {
    Finding finding(FindingCode::kCannotRead, name, {},
                    std::string("the file cannot be read: ") + std::strerror(error));
    tests_.push_back({name, {finding}, {}});
    results_.push_back({name, nullptr, false, {std::move(finding)}});
    if (options_.output == "text") write(findingText(results_.back().findings[0], TextLines(""), colours_));
  }

  /// Makes `text` what it is with its fixes, which the file becomes unless they are only shown. How many there were.
  int fixFile(const std::string& name, std::string& text) {
    Fixed fixed = fixAll(name, text, [this](const Finding& finding) { return isWanted(finding); });
    if (options_.dryRun) {
      write(unifiedDiff(visible(name), text, fixed.text));
    } else if (fixed.fixes > 0) {
      if (const int error = replaceFile(name, fixed.text); error != 0) {
        complain(kCheckProgram, "write", name, error);
        failed_ = true;
        return 0;
      }
    }
    text = std::move(fixed.text);
    return fixed.fixes;
  }

  void show(const FileFindings& file) const {
    for (const Finding& finding : file.findings) write(findingText(finding, *file.lines, colours_) + "\n");
  }

  /// The last line about a file.
  void sumUp(const CheckedFile& file, int fixes, const TestedFile& test, std::size_t samples,
             const std::string& undecided) const {
    std::size_t errors = 0, warnings = 0;
    const auto count = [&](const std::vector<Finding>& findings) {
      const auto found = static_cast<std::size_t>(std::ranges::count_if(findings, isError));
      errors += found;
      warnings += findings.size() - found;
    };
    count(test.findings);
    for (const SampleOutcome& outcome : test.samples) count(outcome.findings);
    std::string line = visible(file.name()) + ": " + (file.compiles() ? "compiles" : "does not compile") + "; " +
                       counted(file.blocks().size(), "block");
    if (fixes > 0) line += ", " + std::to_string(fixes) + " fixed";
    if (errors > 0) line += ", " + counted(errors, "error");
    if (warnings > 0) line += ", " + counted(warnings, "warning");
    const auto failed = std::ranges::count_if(
        test.samples, [](const SampleOutcome& outcome) { return std::ranges::any_of(outcome.findings, isFatal); });
    if (samples > test.samples.size()) {
      line += ", " + counted(samples, "sample") + " not run";
    } else if (failed > 0) {
      line += ", " + std::to_string(failed) + " of " + counted(samples, "sample") + (failed == 1 ? " fails" : " fail");
    } else if (samples > 0) {
      line += ", " + counted(samples, "sample") + (samples == 1 ? " passes" : " pass");
    }
    if (!undecided.empty()) line += "; " + undecided;
    write(line + "\n");
  }

  const CheckOptions& options_;
  const bool colours_;
  std::vector<std::unique_ptr<Text>> texts_;
  std::vector<FileFindings> results_;
  std::vector<TestedFile> tests_;
  std::unique_ptr<const Text> besideText_;  ///< Of the file of samples.
  SampleList beside_;
  std::vector<Finding> besideFaults_;
  bool failed_ = false;
};

int written() { return std::fflush(stdout) == 0 && !std::ferror(stdout) ? EXIT_SUCCESS : outputFailed(kCheckProgram); }

}  // namespace

int checkFiles(const CheckOptions& options) { return Checking(options).run(); }

int explainCode(FindingCode code) {
  std::fputs(codeExplanation(codeEntry(code)).c_str(), stdout);
  return written();
}

int listCodes() {
  for (const CodeEntry& entry : allCodes()) {
    std::printf("%s %-7s %-24s %s\n", codeText(entry.code).c_str(),
                entry.severity == Severity::kError ? "error" : "warning", entry.name, entry.title);
  }
  return written();
}

}  // namespace quillon
