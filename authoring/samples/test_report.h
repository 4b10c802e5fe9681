#ifndef QUILLON_AUTHORING_SAMPLES_TEST_REPORT_H_
#define QUILLON_AUTHORING_SAMPLES_TEST_REPORT_H_

#include <span>
#include <string>
#include <vector>

#include "authoring/report/Finding.h"
#include "authoring/samples/sample_findings.h"

/// What was found in format files as the result of tests, for what runs tests and shows their history. Each file is a
/// test, and each of its samples is another one. An error fails a test, and so does what keeps a sample from passing;
/// warnings are told and fail none. For any thread.
namespace quillon {

struct TestedFile {
  std::string file;
  std::vector<Finding> findings;  ///< But for those of samples that were run.
  std::vector<SampleOutcome> samples;
};

/// The Test Anything Protocol, version 13: a line for each test, and behind it what was found, in YAML.
std::string tapText(std::span<const TestedFile> files);

/// XML in the form that JUnit gave its name to: a suite for each file, a case for each test. Bytes that XML cannot hold
/// are shown as visible() does, what is not UTF-8 becomes U+FFFD.
std::string junitText(std::span<const TestedFile> files);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SAMPLES_TEST_REPORT_H_
