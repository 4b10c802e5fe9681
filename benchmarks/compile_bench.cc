#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "benchmarks/generated_formats.h"
#include "benchmarks/own_process.h"
#include "eConfig.tab.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/eConfig.h"
#include "src/adapters/logfile/common/eConfig_parser.h"

namespace {

void compile(const char* path) {
  if (!LogDriver(path, nullptr, 1).write_cds("/dev/null")) std::abort();
}

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

const quillon::Works kWorks = {{"scan", scan}, {"compile", compile}};

void measure(benchmark::State& state, const char* work) {
  const int blocks = static_cast<int>(state.range(0));
  const std::string text = quillon::generatedFormats(blocks);
  const quillon::TemporaryFile file(text);
  const quillon::TemporaryFile none("");
  for (auto _ : state) kWorks.at(work)(file.path());
  state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
  state.counters["time/block"] =
      benchmark::Counter(blocks, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  const double peak = quillon::peakMemory(work, file.path()) - quillon::peakMemory(work, none.path());
  state.counters["memory/block"] = peak / blocks;
}

void enrol() {
  for (int blocks : {100, 1000, 10000, 100000}) {
    benchmark::RegisterBenchmark("compile/scanner-alone", measure, "scan")->Arg(blocks)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("compile/whole", measure, "compile")->Arg(blocks)->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

int main(int argc, char* argv[]) { return quillon::benchmarkMain(argc, argv, kWorks, enrol); }
