#include "tests/adapter/adapter_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "adapter/Adapter.h"
#include "adapter/Setup.h"
#include "foundation/checkpoint.h"

namespace quillon {
namespace {

std::string killAt;
std::atomic<int> passes;  // of any thread

void passCheckpoint(const char* name) {
  if (killAt == name && --passes == 0) kill(getpid(), SIGKILL);
}

[[noreturn]] void runAdapter(const AdapterProcess::Options& options) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that is ended takes it along
  const int log = open(options.log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(log, STDERR_FILENO);
  if (!options.killAt.empty()) {
    killAt = options.killAt;
    passes = options.killAfter;
    atCheckpoint = passCheckpoint;
  }
  Adapter::blockSignals();
  std::vector<SetupReport> reports;
  const std::shared_ptr<const Setup> setup = loadSetup(options.config, reports);
  for (const SetupReport& report : reports) dprintf(STDERR_FILENO, "%s\n", report.text.c_str());
  _exit(setup ? Adapter(options.config, setup).run(options.once) : 2);
}

}  // namespace

AdapterProcess::AdapterProcess(const Options& options) : id_(fork()) {
  if (id_ == 0) runAdapter(options);
}

AdapterProcess::~AdapterProcess() {
  if (ended_) return;
  kill(id_, SIGKILL);
  waitpid(id_, nullptr, 0);
}

void AdapterProcess::signal(int number) const { kill(id_, number); }

bool AdapterProcess::runs() {
  if (!ended_) ended_ = waitpid(id_, &status_, WNOHANG) == id_;
  return !ended_;
}

int AdapterProcess::wait() {
  EXPECT_TRUE(waitUntil([this] { return !runs(); })) << "it goes on";
  return status_;
}

bool waitUntil(const std::function<bool()>& holds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(30);
  while (!holds()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace quillon
