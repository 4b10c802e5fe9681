#ifndef QUILLON_AUTHORING_SAMPLES_SAMPLE_FINDINGS_H_
#define QUILLON_AUTHORING_SAMPLES_SAMPLE_FINDINGS_H_

#include <string>
#include <vector>

#include "authoring/report/Finding.h"
#include "authoring/samples/SampleRunner.h"
#include "authoring/samples/Samples.h"
#include "src/adapters/logfile/common/FormatPlaces.h"

class LogDriver;

namespace quillon {

/// A sample that has been run.
struct SampleOutcome {
  Sample sample;
  std::string file;  ///< Where it stands.
  SampleResult result;
  std::vector<Finding> findings;  ///< None when it passed and there is nothing else to say.

  /// "Sshd_Login binds Mar  5 07:31:44 ...", for lists of all samples.
  std::string title() const;
};

/// True for what keeps a sample from passing: it fails, or cannot be run. The file may compile all the same.
bool failsSample(FindingCode code);

/// A format file that has been read without an error, for its samples to be run.
struct SampledFormats {
  LogDriver& formats;          ///< In the order of the file.
  const FormatPlaces& places;  ///< What they were read with.
  std::string file;
  bool fromEventLog = false;  ///< A newline is white space.
};

/// What is wrong with the lines of `list`, which stand in `file`. Also for formats that cannot be read.
std::vector<Finding> sampleFaults(const SampleList& list, const std::string& file);

/// Runs the samples of the format file and then those of `beside`, a file of samples named `besideFile`, and says of
/// each that fails what bound it instead, which value is another, and why its block did not bind it. For the thread
/// that the formats belong to.
std::vector<SampleOutcome> runSamples(const SampledFormats& formats, const SampleList& own, const SampleList& beside,
                                      const std::string& besideFile);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SAMPLES_SAMPLE_FINDINGS_H_
