#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "benchmarks/generated_formats.h"
#include "eConfig.tab.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/common/eConfig_parser.h"

namespace {

void compile(const char* path) { LogDriver(path, nullptr, 1).write_cds("/dev/null"); }

/// Reads all tokens; tells the scanner where blocks begin and end, as the parser does.
void scan(const char* path) {
  std::FILE* const file = std::fopen(path, "r");
  eConfig_start(file);
  bool ended = false;
  while (const int token = eConfig_yylex()) {
    if (token == FORMAT) offset = 1;
    if (token == NEWLINE && ended) offset = 0;
    ended = token == END;
  }
  std::fclose(file);
}

struct Work {
  const char* name;
  void (*run)(const char* path);
};

constexpr Work kScan = {"scan", scan};
constexpr Work kCompile = {"compile", compile};

/// The most memory that this process has had, in bytes.
long peakOfThisProcess() {
  std::ifstream status("/proc/self/status");
  std::string word;
  long kibibytes = 0;
  while (status >> word && word != "VmHWM:") continue;
  status >> kibibytes;
  return kibibytes * 1024;
}

/// The peak memory, in bytes, of a new process that does `work` once. It has to be new: in this one, memory that is
/// free again would be used.
double peakMemory(const Work& work, const char* path) {
  const std::string command =
      std::filesystem::read_symlink("/proc/self/exe").string() + " --once " + work.name + " " + path;
  std::FILE* const child = popen(command.c_str(), "r");
  long peak = 0;
  if (!child || std::fscanf(child, "%ld", &peak) != 1 || pclose(child) != 0) std::abort();
  return static_cast<double>(peak);
}

void measure(benchmark::State& state, const Work& work) {
  const int blocks = static_cast<int>(state.range(0));
  const std::string text = quillon::generatedFormats(blocks);
  const quillon::TemporaryFile file(text);
  const quillon::TemporaryFile none("");
  for (auto _ : state) work.run(file.path());
  state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
  state.counters["time/block"] =
      benchmark::Counter(blocks, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["bytes/block"] = (peakMemory(work, file.path()) - peakMemory(work, none.path())) / blocks;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc == 4 && std::string_view(argv[1]) == "--once") {
    (std::string_view(argv[2]) == kScan.name ? kScan : kCompile).run(argv[3]);
    std::printf("%ld\n", peakOfThisProcess());
    return 0;
  }
  for (int blocks : {100, 1000, 10000, 100000}) {
    benchmark::RegisterBenchmark("compile/scanner-alone", measure, kScan)->Arg(blocks)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("compile/whole", measure, kCompile)->Arg(blocks)->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
