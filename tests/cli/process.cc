#include "tests/cli/process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>

namespace quillon {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(30);

int checked(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

/// An open descriptor, closed at the end of the scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

/// A file without a name: unlike a pipe it takes any amount of output while nobody reads.
int unnamedFile() { return checked(memfd_create("stream", MFD_CLOEXEC), "memfd_create"); }

std::string contents(const Descriptor& file) {
  std::string text;
  char buffer[4096];
  lseek(file.get(), 0, SEEK_SET);
  for (ssize_t n; (n = read(file.get(), buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
  return text;
}

struct Terminal {
  int master;
  int slave;
};

/// A pseudo-terminal that passes bytes on unchanged: no carriage return before a newline.
Terminal openTerminal() {
  termios raw{};
  cfmakeraw(&raw);
  cfsetspeed(&raw, B38400);  // speed 0 would hang up
  Terminal terminal{};
  checked(openpty(&terminal.master, &terminal.slave, nullptr, &raw, nullptr), "openpty");
  checked(fcntl(terminal.master, F_SETFL, O_NONBLOCK), "fcntl");
  return terminal;
}

[[noreturn]] void execute(const Run& what, int in, int out, int err) {
  setsid();  // a group of its own, to be killed with all that it starts
  signal(SIGPIPE, SIG_DFL);
  if (chdir(what.directory.c_str()) != 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
  closefrom(3);
  for (const std::string& setting : what.environment) {
    const size_t equals = setting.find('=');
    setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
  }
  execl("/bin/sh", "sh", "-c", what.command.c_str(), nullptr);
  _exit(127);
}

void drain(int terminal, std::string& text) {
  char buffer[4096];
  for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
}

/// Waits for the child, reading the terminal meanwhile, so that a full one does not block it.
int await(pid_t child, int terminal, std::string& shown) {
  const Descriptor ended(checked(static_cast<int>(syscall(SYS_pidfd_open, child, 0)), "pidfd_open"));
  const auto deadline = Clock::now() + kPatience;
  pollfd events[] = {{ended.get(), POLLIN, 0}, {terminal, POLLIN, 0}};
  while (!(events[0].revents & POLLIN)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) kill(-child, SIGKILL);
    poll(events, 2, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 100)));
    if (events[1].revents & POLLIN) drain(terminal, shown);
    if (events[1].revents & POLLHUP) events[1].fd = -1;  // nobody holds the other end: it would never block again
  }
  drain(terminal, shown);
  int status = 0;
  checked(waitpid(child, &status, 0), "waitpid");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Outcome run(const Run& what) {
  const Descriptor in(unnamedFile());
  const Descriptor out(unnamedFile());
  const Descriptor err(unnamedFile());
  checked(static_cast<int>(write(in.get(), what.input.data(), what.input.size())), "write");
  lseek(in.get(), 0, SEEK_SET);
  const Terminal terminal = openTerminal();
  const Descriptor master(terminal.master);
  Descriptor slave(terminal.slave);

  const pid_t child = checked(fork(), "fork");
  if (child == 0) {
    execute(what, in.get(), what.stdout_is_terminal ? slave.get() : out.get(),
            what.stderr_is_terminal ? slave.get() : err.get());
  }
  slave.close();
  Outcome outcome{};
  outcome.status = await(child, master.get(), outcome.terminal);
  outcome.out = contents(out);
  outcome.err = contents(err);
  return outcome;
}

}  // namespace quillon
