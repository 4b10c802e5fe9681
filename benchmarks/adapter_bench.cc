// The adapter as a process of its own: from a file to the file of events beside quillon-match on the same log, from a
// write to its event, the memory while many bytes pass, and what thousands of files cost that nobody writes to.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/run_program.h"
#include "foundation/descriptor.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

/// A directory for one measurement, with a configuration for the format file of the SSH example.
class Workplace {
 public:
  Workplace(const std::string& place, const std::string& source, const std::string& output) {
    std::string name = place + "/quillon-bench-XXXXXX";
    if (!mkdtemp(name.data())) std::abort();
    path_ = name;
    write("adapter.toml", "state = \"state\"\n[log]\nlevel = \"error\"\n[output]\n" + output +
                              "[source.s]\nformats = \"" + EXAMPLES + "/sshd.fmt\"\n" + source);
  }
  ~Workplace() { fs::remove_all(path_); }

  std::string file(const std::string& name) const { return (path_ / name).string(); }
  void write(const std::string& name, const std::string& text) const {
    fs::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary) << text;
  }

 private:
  fs::path path_;
};

/// Lines of the SSH example with other numbers in them.
std::string manyLines(std::size_t count) {
  std::vector<std::string> lines;
  std::ifstream example(std::string(EXAMPLES) + "/sshd.log");
  for (std::string line; std::getline(example, line);) lines.push_back(line + '\n');
  std::mt19937 random(1);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    std::string line = lines[i % lines.size()];
    for (char& c : line) {
      if (c >= '0' && c <= '9') c = static_cast<char>('0' + random() % 10);
    }
    text += line;
  }
  return text;
}

/// An adapter that runs, and what it takes meanwhile.
class LiveAdapter {
 public:
  LiveAdapter(const Workplace& place, int input, int output) : id_(fork()) {
    if (id_ != 0) return;
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    execl(ADAPTER, ADAPTER, place.file("adapter.toml").c_str(), nullptr);
    _exit(127);
  }
  ~LiveAdapter() {
    kill(id_, SIGTERM);
    waitpid(id_, nullptr, 0);
  }

  double residentMiB() const {
    std::ifstream statm("/proc/" + std::to_string(id_) + "/statm");
    double size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 0x1p20;
  }
  double processorSeconds() const {
    std::ifstream stat("/proc/" + std::to_string(id_) + "/stat");
    std::string field;
    for (int i = 1; i < 14; ++i) stat >> field;
    double user = 0, system = 0;
    stat >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
  }

 private:
  const pid_t id_;
};

void throughput(const std::string& directory, std::size_t lines) {
  const Workplace place(directory, "type = \"file\"\npath = \"log\"\n", "path = \"events\"\n");
  place.write("log", manyLines(lines));
  const std::string adapter = "rm -rf " + place.file("state") + " " + place.file("events") + "; exec " + ADAPTER +
                              " --once " + place.file("adapter.toml");
  const std::string match = std::string("exec ") + MATCH + " --jobs 1 " + EXAMPLES + "/sshd.fmt " + place.file("log") +
                            " >" + place.file("matched");
  std::vector<double> ratios, adapterSpeed, matchSpeed;
  double peak = 0;
  for (int round = 0; round < 7; ++round) {
    const Expense a = runProgram({"/bin/sh", "-c", adapter});
    const Expense m = runProgram({"/bin/sh", "-c", match});
    if (a.status != 0 || m.status != 0) std::abort();
    ratios.push_back(m.processorSeconds / a.processorSeconds);
    adapterSpeed.push_back(static_cast<double>(lines) / a.processorSeconds);
    matchSpeed.push_back(static_cast<double>(lines) / m.processorSeconds);
    peak = std::max(peak, a.peakBytes);
  }
  std::printf(
      "file to event file      %.2f million lines a second of a processor; quillon-match %.2f; ratio %.2f; peak %.0f "
      "MiB\n",
      median(adapterSpeed) / 1e6, median(matchSpeed) / 1e6, median(ratios), peak / 0x1p20);
}

void latency(const std::string& directory, int count) {
  const Workplace place(directory, "type = \"file\"\npath = \"log\"\n", "");
  place.write("log", "");
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  const LiveAdapter adapter(place, STDIN_FILENO, ends[1]);
  const Descriptor log(open(place.file("log").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  const std::string line =
      "Mar  5 07:31:44 gate1 sshd[2045]: Accepted password for marta from 192.0.2.17 port 50122 ssh2\n";
  std::vector<double> times;
  char room[65536];
  for (int i = -10; i < count; ++i) {  // the first ones wait for its start
    std::this_thread::sleep_for(milliseconds(3));
    const auto start = Clock::now();
    if (writeAll(log.get(), line) != 0) std::abort();
    if (read(ends[0], room, sizeof room) <= 0) std::abort();
    if (i >= 0) times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  std::ranges::sort(times);
  std::printf("write to event          median %.2f ms, 99 of 100 below %.2f ms, at most %.2f ms\n",
              times[times.size() / 2], times[times.size() * 99 / 100], times.back());
}

void memory(const std::string& directory, double gigabytes) {
  const Workplace place(directory, "type = \"stdin\"\n", "");
  const std::string block = manyLines(10'000);
  int ends[2];
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  const LiveAdapter adapter(place, ends[0], nowhere);
  const auto blocks = static_cast<std::size_t>(gigabytes * 1e9 / static_cast<double>(block.size()));
  std::printf("resident memory         ");
  for (std::size_t i = 0; i < blocks; ++i) {
    if (writeAll(ends[1], block) != 0) std::abort();
    if ((i + 1) * 10 / blocks != i * 10 / blocks) std::printf("%.1f ", adapter.residentMiB());
  }
  std::printf("MiB at each tenth of %.1f GB\n", gigabytes);
  close(nowhere);
}

void manyFiles(const std::string& directory, int count) {
  const Workplace place(directory, "type = \"file\"\npath = \"logs/**/*.log\"\n", "path = \"events\"\n");
  for (int i = 0; i < count; ++i) {
    place.write("logs/" + std::to_string(i % 100) + "/" + std::to_string(i) + ".log", "a line that all begin with\n");
  }
  const LiveAdapter adapter(place, STDIN_FILENO, STDOUT_FILENO);
  for (double before = -1; before != adapter.processorSeconds();) {  // until it has read them all
    before = adapter.processorSeconds();
    std::this_thread::sleep_for(milliseconds(1500));
  }
  const double before = adapter.processorSeconds();
  const auto start = Clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(15));
  const double idle =
      (adapter.processorSeconds() - before) / std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("%d files, idle       %.0f MiB, %.2f %% of a processor\n", count, adapter.residentMiB(), 100 * idle);
}

}  // namespace
}  // namespace quillon

int main(int argc, char* argv[]) {
  quillon::runAsStarter(argc, argv);
  double gigabytes = 1;
  std::size_t lines = 2'000'000;
  int files = 10'000;
  std::string directory = std::filesystem::temp_directory_path();
  CLI::App app("Measures the adapter.", "adapter_bench");
  app.add_option("--gigabytes", gigabytes, "Bytes that pass while memory is looked at (1)");
  app.add_option("--lines", lines, "Lines of the log that is read (2000000)");
  app.add_option("--files", files, "Files that are followed (10000)");
  app.add_option("--directory", directory, "Where the files are made");
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  quillon::throughput(directory, lines);
  quillon::latency(directory, 2000);
  quillon::memory(directory, gigabytes);
  quillon::manyFiles(directory, files);
}
