#include "authoring/samples/sample_findings.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "authoring/check/checks.h"
#include "authoring/explain/explanation_text.h"
#include "authoring/explain/reasons.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace quillon {
namespace {

std::string nameOf(const FormatSpec& format) { return std::string(format.getName().view()); }

/// True when `format` follows `parent`, be it over others.
bool follows(const FormatSpec* format, const FormatSpec* parent) {
  while (format && format != parent) format = format->getFollows();
  return format != nullptr;
}

/// A hint to the one of `names` that `name` is probably a slip for; empty when there is none.
std::string meant(const std::string& name, const std::vector<std::string>& names) {
  const std::string* const found = nearest(name, names);
  return found ? "there is " + *found : "";
}

/// Makes the findings of samples that stand in one file.
class OutcomeFindings {
 public:
  /// `besideFile` is null for samples of the format file.
  OutcomeFindings(const SampledFormats& formats, const SampleList& list, const std::string* besideFile)
      : formats_(formats),
        list_(list),
        file_(besideFile ? *besideFile : formats.file),
        ownFile_(besideFile == nullptr) {}

  std::vector<Finding> of(const Sample& sample, const SampleResult& result) const {
    switch (result.verdict) {
      case SampleResult::Verdict::kPassed:
        return ofOrder(sample, result);
      case SampleResult::Verdict::kNoSuchBlock:
        return {unknownBlock(sample)};
      case SampleResult::Verdict::kNotBound:
        return {notBound(sample, result)};
      case SampleResult::Verdict::kWronglyBound:
        return {wronglyBound(sample, result)};
      case SampleResult::Verdict::kOtherValues:
        return otherValues(sample, result);
    }
    return {};
  }

 private:
  Finding unknownBlock(const Sample& sample) const {
    Finding finding(FindingCode::kUnknownSampleBlock, file_, sample.blockPlace, "there is no block " + sample.block);
    std::vector<std::string> names;
    for (const FormatPlaces::Block& block : formats_.places.blocks()) names.push_back(nameOf(*block.format));
    finding.hint = meant(sample.block, names);
    return finding;
  }

  Finding notBound(const Sample& sample, const SampleResult& result) const {
    Finding finding(FindingCode::kSampleNotBound, file_, sample.place,
                    sample.block + " does not bind this line: " +
                        (result.bound ? nameOf(*result.bound) + " does" : "no block does"));
    note(finding, *result.expected, "the block that should bind it");
    if (result.bound) note(finding, *result.bound, "the block that binds it");
    if (result.why->binds) {
      finding.hint = sample.block + " describes the line, too, but later blocks are tried first: move it behind " +
                     nameOf(*result.bound);
    } else {
      finding.notes.push_back({markIn(sample, *result.why), stopText(*result.why)});
      finding.hint = result.why->reason;
    }
    return finding;
  }

  Finding wronglyBound(const Sample& sample, const SampleResult& result) const {
    const bool isForNone = sample.kind == Sample::Kind::kUnmatched;
    Finding finding(
        FindingCode::kSampleWronglyBound, file_, sample.place,
        nameOf(*result.bound) + " binds this line, which " + (isForNone ? "no block should" : "it should not"));
    note(finding, *result.bound, "the block that binds it");
    return finding;
  }

  std::vector<Finding> otherValues(const Sample& sample, const SampleResult& result) const {
    std::vector<Finding> findings;
    findings.reserve(result.differences.size());
    for (const SampleResult::Difference& difference : result.differences) {
      const Sample::Value& value = sample.values[difference.value];
      std::string text = value.name + " is " + inQuotes(difference.actual) + ", not " + inQuotes(value.text);
      if (!difference.exists) {
        text = sample.block + (value.variable() > 0 ? " has no " : " has no slot ") + value.name;
      }
      Finding& finding = findings.emplace_back(FindingCode::kSampleValue, file_, value.place, std::move(text));
      const Subject source{
          .format = result.bound, .entry = result.bound->find(value.name), .variable = value.variable(), .part = 0};
      if (!difference.exists && value.variable() == 0) {
        std::vector<std::string> names;
        for (const MsgMapEntry* entry : result.bound->getMaps()) names.emplace_back(entry->getName().view());
        finding.hint = meant(value.name, names);
      }
      if (difference.exists && ownFile_) finding.notes.push_back({formats_.places.of(source), "where it comes from"});
    }
    return findings;
  }

  /// The block that binds the message in the order of the file is no surprise when it is the more general one by the
  /// author's own word: the other follows it, or a sample says that it shall not bind this.
  std::vector<Finding> ofOrder(const Sample& sample, const SampleResult& result) const {
    if (sample.kind != Sample::Kind::kBound || !result.dependsOnOrder()) return {};
    if (follows(result.bound, result.firstInFile)) return {};
    const auto isSettled = [&](const Sample& other) {
      return other.kind == Sample::Kind::kNotBound && other.message == sample.message &&
             other.block == result.firstInFile->getName().view();
    };
    if (std::ranges::any_of(list_.samples, isSettled)) return {};
    const std::string first = nameOf(*result.firstInFile);
    Finding finding(FindingCode::kSampleOrder, file_, sample.place,
                    first + " binds this line, too, and stands before " + sample.block);
    note(finding, *result.firstInFile, "takes it where the first block is tried first");
    note(finding, *result.bound, "takes it where the last block is tried first");
    finding.hint = "if that is meant, say so before " + first + ": a sample \"not:\" with the same line";
    return {std::move(finding)};
  }

  /// Where the message departs from its block, in the file; no place where that cannot be told because the file has the
  /// message in other bytes.
  Place markIn(const Sample& sample, const NearBlock& why) const {
    const bool isAsWritten = sample.place.length == static_cast<int>(sample.message.size()) &&
                             sample.place.line == sample.place.endLine && isUtf8(platformCodeset());
    if (!isAsWritten || !ownFile_) return {};
    Place place = sample.place;
    place.column += static_cast<int>(why.markFrom);
    place.length = static_cast<int>(why.markTo - why.markFrom);
    place.endColumn = place.column + place.length;
    return place;
  }

  /// A note at the name of `format`, or one that says where that is, as places of notes are in the file of the finding.
  void note(Finding& finding, const FormatSpec& format, std::string text) const {
    const FormatPlaces::Block* const block = formats_.places.blockOf(format);
    if (!block) return;
    if (ownFile_) return finding.notes.push_back({block->name, std::move(text)});
    text += ": " + nameOf(format) + ", " + formats_.file + ":" + std::to_string(block->name.line);
    finding.notes.push_back({{}, std::move(text)});
  }

  const SampledFormats& formats_;
  const SampleList& list_;
  const std::string& file_;
  const bool ownFile_;
};

}  // namespace

std::string SampleOutcome::title() const {
  switch (sample.kind) {
    case Sample::Kind::kBound:
      return sample.block + " binds " + sample.message;
    case Sample::Kind::kNotBound:
      return sample.block + " does not bind " + sample.message;
    case Sample::Kind::kUnmatched:
      break;
  }
  return "no block binds " + sample.message;
}

bool failsSample(FindingCode code) {
  switch (code) {
    case FindingCode::kMalformedSample:
    case FindingCode::kMisplacedSample:
    case FindingCode::kUnknownSampleBlock:
    case FindingCode::kSampleNotBound:
    case FindingCode::kSampleWronglyBound:
    case FindingCode::kSampleValue:
      return true;
    default:
      return false;
  }
}

std::vector<Finding> sampleFaults(const SampleList& list, const std::string& file) {
  static constexpr FindingCode kCodes[] = {FindingCode::kMalformedSample, FindingCode::kMisplacedSample,
                                           FindingCode::kLooksLikeSample};
  std::vector<Finding> findings;
  findings.reserve(list.faults.size());
  for (const SampleFault& fault : list.faults) {
    Finding& finding =
        findings.emplace_back(kCodes[static_cast<std::size_t>(fault.kind)], file, fault.place, fault.text);
    finding.hint = fault.hint;
  }
  return findings;
}

std::vector<SampleOutcome> runSamples(const SampledFormats& formats, const SampleList& own, const SampleList& beside,
                                      const std::string& besideFile) {
  std::vector<SampleOutcome> outcomes;
  if (own.samples.empty() && beside.samples.empty()) return outcomes;
  SampleRunner runner(formats.formats, formats.fromEventLog);
  outcomes.reserve(own.samples.size() + beside.samples.size());
  const auto run = [&](const SampleList& list, const std::string* besideName) {
    const OutcomeFindings findings(formats, list, besideName);
    for (const Sample& sample : list.samples) {
      SampleResult result = runner.run(sample);
      std::vector<Finding> found = findings.of(sample, result);
      outcomes.push_back({sample, besideName ? *besideName : formats.file, std::move(result), std::move(found)});
    }
  };
  run(own, nullptr);
  run(beside, &besideFile);
  return outcomes;
}

}  // namespace quillon
