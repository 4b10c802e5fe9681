#include "tests/server/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "delivery/cache/inspection.h"
#include "delivery/record_json.h"
#include "foundation/checkpoint.h"
#include "foundation/sockets.h"
#include "server/Server.h"

namespace quillon {
namespace {

std::string killAt;
int passes;

void passCheckpoint(const char* name) {
  if (killAt == name && --passes == 0) kill(getpid(), SIGKILL);
}

}  // namespace

Process::Process(const std::function<int()>& work, const std::string& place, int killAfter) : id_(fork()) {
  if (id_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that is ended takes it along
  killAt = place;
  passes = killAfter;
  if (!killAt.empty()) atCheckpoint = passCheckpoint;
  _exit(work());
}

Process::Process(const std::filesystem::path& config, const std::filesystem::path& log) : id_(fork()) {
  if (id_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
  execl(QUILLON_SERVER, QUILLON_SERVER, config.c_str(), nullptr);
  _exit(127);
}

Process::~Process() {
  if (hasEnded_) return;
  kill(id_, SIGKILL);
  waitpid(id_, nullptr, 0);
}

void Process::signal(int number) const { kill(id_, number); }

bool Process::runs() {
  if (!hasEnded_) hasEnded_ = waitpid(id_, &status_, WNOHANG) == id_;
  return !hasEnded_;
}

int Process::wait() {
  EXPECT_TRUE(waitUntil([this] { return !runs(); })) << "it goes on";
  return status_;
}

int runServer(const std::filesystem::path& config) {
  const int quiet = open((config.string() + ".log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(quiet, STDERR_FILENO);
  Server::blockSignals();
  std::vector<ConfigFault> faults;
  std::optional<ServerConfig> read = readServerConfig(config, faults);
  for (const ConfigFault& fault : faults) dprintf(STDERR_FILENO, "%s\n", fault.text.c_str());
  return read ? Server(std::move(*read)).run() : 2;
}

bool waitUntil(const std::function<bool()>& holds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(30);
  while (!holds()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::vector<std::string> bytesIn(const std::filesystem::path& cache) {
  std::vector<std::string> records;
  delivery::CacheContents contents;
  std::string path;
  if (readContents(delivery::Files::real(), cache, contents, path) != 0) return records;
  for (const delivery::Segment& segment : contents.log.segments) {
    delivery::SegmentHealth health;
    const auto add = [&](const delivery::Event& event) { records.emplace_back(event.bytes); };
    EXPECT_EQ(0, examine(delivery::Files::real(), cache, segment, health, add));
  }
  return records;
}

std::vector<std::string> recordsIn(const std::filesystem::path& cache) {
  std::vector<std::string> records = bytesIn(cache);
  for (std::string& bytes : records) {
    delivery::Record record;
    std::string json = "malformed";
    if (decode(bytes, record)) {
      json.clear();
      appendJson(json, record);
    }
    bytes = json;
  }
  return records;
}

std::string eventBytes(int number) {
  const std::string text = std::to_string(number);
  delivery::Record record;
  record.source = "s";
  record.position = text;
  record.className = "C";
  record.values = {{"n", text}};
  std::string bytes;
  encode(record, bytes);
  return bytes;
}

std::string attributeBytes(const delivery::SetId& set, int number) {
  const std::string event = eventBytes(number);
  delivery::Record record;
  EXPECT_TRUE(decode(event, record));
  record.form = delivery::RecordForm::kAttributes;
  record.set = set;
  std::string bytes;
  encode(record, bytes);
  return bytes;
}

int freePort() {
  std::string error;
  const Descriptor socket = openInternetSocket("127.0.0.1:0", SOCK_STREAM, error);
  const std::string address = boundAddress(socket.get());
  return std::stoi(address.substr(address.rfind(':') + 1));
}

}  // namespace quillon
