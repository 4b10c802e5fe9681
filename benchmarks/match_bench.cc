#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "benchmarks/generated_formats.h"
#include "benchmarks/own_process.h"
#include "foundation/refcnt.h"
#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMessages = 1000;

/// Messages spread evenly over all blocks.
std::vector<std::string> generatedMessages(int blocks) {
  std::vector<std::string> messages;
  for (int i = 0; i < kMessages; ++i) {
    messages.push_back(quillon::generatedMessage(static_cast<int>(static_cast<long>(i) * blocks / kMessages), i));
  }
  return messages;
}

/// What happens to messages, one stage after the other for all of them, so that each can be timed.
struct Stages {
  double conversion = 0;
  double matching = 0;
  double output = 0;

  void run(const LogDriver& driver, const std::vector<std::string>& messages, std::FILE* sink) {
    const auto start = Clock::now();
    std::vector<SysLogMsg> converted;
    for (const std::string& message : messages) converted.push_back(FormatSpec::toUtf8(message.c_str(), 0));
    const auto convertedAt = Clock::now();
    output_ = Clock::duration::zero();
    for (SysLogMsg& message : converted) {
      for (FormatSpec* format : driver.getFormats()) {
        if (!format->bindConverted(message)) continue;
        const auto bound = Clock::now();
        std::fprintf(sink, "%s\n", format->aevent().getString());
        output_ += Clock::now() - bound;
        break;
      }
    }
    const auto end = Clock::now();
    conversion += std::chrono::duration<double>(convertedAt - start).count();
    matching += std::chrono::duration<double>(end - convertedAt - output_).count();
    output += std::chrono::duration<double>(output_).count();
  }

 private:
  Clock::duration output_{};
};

void matchOnce(const char* path) {
  LogDriver driver(path, nullptr, 1);
  driver.orderFmts();
  int index = 0;
  int blocks = 0;
  for ([[maybe_unused]] FormatSpec* format : driver.getFormats()) ++blocks;
  if (blocks == 0) return;
  for (const std::string& message : generatedMessages(blocks)) driver.bind(message.c_str(), index);
}

const quillon::Works kWorks = {{"match", matchOnce}};

void formats(benchmark::State& state) {
  const int blocks = static_cast<int>(state.range(0));
  const quillon::TemporaryFile file(quillon::generatedFormats(blocks));
  const quillon::TemporaryFile none("");
  LogDriver driver(file.path(), nullptr, 1);
  driver.orderFmts();
  const std::vector<std::string> messages = generatedMessages(blocks);
  std::FILE* const sink = std::fopen("/dev/null", "w");
  Stages stages;
  for (auto _ : state) stages.run(driver, messages, sink);
  std::fclose(sink);
  std::int64_t bytes = 0;
  for (const std::string& message : messages) bytes += static_cast<std::int64_t>(message.size()) + 1;
  state.SetBytesProcessed(bytes * state.iterations());
  state.SetItemsProcessed(kMessages * state.iterations());
  const double all = stages.conversion + stages.matching + stages.output;
  state.counters["%conversion"] = 100 * stages.conversion / all;
  state.counters["%matching"] = 100 * stages.matching / all;
  state.counters["%output"] = 100 * stages.output / all;
  state.counters["memory"] =
      benchmark::Counter(quillon::peakMemory("match", file.path()) - quillon::peakMemory("match", none.path()),
                         benchmark::Counter::kDefaults, benchmark::Counter::kIs1024);
}

std::string repeated(const char* text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

struct Hostile {
  const char* name;
  const char* format;
  const char* field;  ///< The field of the format that is tried again and again,
  const char* bound;  ///< and the constant that bounds it.
  std::string message;
};

double seconds(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double secondsToBind(const Hostile& worst) {
  quillon::Ref<FormatSpec> spec(new FormatSpec("Hostile"));
  spec->setFmtStr(worst.format);
  SysLogMsg message(worst.message.c_str());
  const auto start = Clock::now();
  spec->bindConverted(message);
  return seconds(start);
}

/// One pass: the field runs over every occurrence of its bound, to the end of the message.
double secondsToPass(const Hostile& worst) {
  const quillon::Ref<FormatComponent> field(FormatComponent::create(worst.field));
  const quillon::Ref<ConstComponent> bound(ConstComponent::create(worst.bound));
  static_cast<StringComponent*>(field.get())->set_steps(1000000);
  SysLogMsg message(worst.message.c_str());
  qlStrobj value;
  const auto start = Clock::now();
  field.get()->matches(message, bound.get(), value);
  return seconds(start);
}

/// A message that makes a field be tried again as often as it can. "passes" says how many passes over the message take
/// as long as the bind, which may be 101 passes.
void hostile(benchmark::State& state, const Hostile& worst) {
  double pass = 0;
  double bind = 0;
  for (auto _ : state) {
    pass += secondsToPass(worst);
    bind += secondsToBind(worst);
  }
  state.counters["passes"] = bind / pass;
  state.counters["bind_ms"] = 1000 * bind / static_cast<double>(state.iterations());
}

void enrol() {
  for (int blocks : {10, 100, 1000, 10000}) {
    benchmark::RegisterBenchmark("match/formats", formats)->Arg(blocks)->Unit(benchmark::kMillisecond);
  }
  static const Hostile kHostile[] = {
      {"star/one-word-of-bounds", "w %s*! z", "%s*", "!", "w " + std::string(60000, '!')},
      {"star/one-letter-words", "%s*a z", "%s*", "a", repeated("a ", 30000)},
      {"plus/one-letter-words", "%s+a z", "%s+", "a", repeated("a ", 30000)},
      {"string/glued-constants", "%sab z", "%s", "ab", repeated("ab", 500)},
      {"star/glued-constants", "%s*ab z", "%s*", "ab", repeated("ab", 500)},
      {"star/three-fields", "%s*a%s*a%s*a z", "%s*", "a", repeated("a ", 30000)},
      {"star/long-bound", "%s*aaaaaaaaaaaaaaaab z", "%s*", "aaaaaaaaaaaaaaaab", std::string(60000, 'a')},
      {"star/white-space", "%s* %s* %s* z", "%s*", "z", "w" + std::string(60000, ' ') + "x"},
  };
  for (const Hostile& worst : kHostile) {
    benchmark::RegisterBenchmark(("match/hostile/" + std::string(worst.name)).c_str(), hostile, worst)
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  // Components need the shared instances that a driver makes.
  const quillon::TemporaryFile none("");
  if (argc == 1 || std::string(argv[1]) != "--once") LogDriver(none.path(), nullptr, 1);
  return quillon::benchmarkMain(argc, argv, kWorks, enrol);
}
