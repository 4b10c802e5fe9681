#include "benchmarks/own_process.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace quillon {

namespace {

long peakOfThisProcess() {
  std::ifstream status("/proc/self/status");
  std::string word;
  long kibibytes = 0;
  while (status >> word && word != "VmHWM:") continue;
  status >> kibibytes;
  return kibibytes * 1024;
}

}  // namespace

double peakMemory(const std::string& name, const char* path) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
  std::FILE* const child = popen((program + " --once " + name + " " + path).c_str(), "r");
  long peak = 0;
  if (!child || std::fscanf(child, "%ld", &peak) != 1 || pclose(child) != 0) std::abort();
  return static_cast<double>(peak);
}

int benchmarkMain(int argc, char* argv[], const Works& works, const std::function<void()>& enrol) {
  if (argc == 4 && std::string_view(argv[1]) == "--once") {
    works.at(argv[2])(argv[3]);
    std::printf("%ld\n", peakOfThisProcess());
    return 0;
  }
  enrol();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace quillon
