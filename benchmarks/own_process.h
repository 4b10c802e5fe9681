#ifndef QUILLON_BENCHMARKS_OWN_PROCESS_H_
#define QUILLON_BENCHMARKS_OWN_PROCESS_H_

#include <functional>
#include <map>
#include <string>

namespace quillon {

/// What can be run in a process of its own, by name; takes a file's path.
using Works = std::map<std::string, std::function<void(const char* path)>>;

/// The peak memory, in bytes, of a new process of this program that does the work `name` once. It has to be new: in
/// this one, memory that is free again would be used.
double peakMemory(const std::string& name, const char* path);

/// The main function of a benchmark program: either does one of `works` for peakMemory(), or runs what `enrol` has
/// registered.
int benchmarkMain(int argc, char* argv[], const Works& works, const std::function<void()>& enrol);

}  // namespace quillon

#endif  // QUILLON_BENCHMARKS_OWN_PROCESS_H_
