#include "program/Interruption.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace quillon {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> wakeup = -1;
std::atomic<int> received = 0;

void ask(int signal) {
  const int error = errno;
  received = signal;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wakeup, &one, sizeof one);
  errno = error;
}

}  // namespace

Interruption::Interruption() {
  wakeup = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wakeup < 0) return;
  struct sigaction action {};
  action.sa_handler = ask;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // whoever waits meanwhile is to wake up
  for (int signal : kSignals) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

Interruption::~Interruption() {
  if (wakeup < 0) return;
  for (int signal : kSignals) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler == ask) std::signal(signal, SIG_DFL);
  }
  close(wakeup.exchange(-1));
}

int Interruption::descriptor() { return wakeup; }

bool Interruption::isAsked() { return received != 0; }

void Interruption::endIfAsked() {
  const int signal = received;
  if (signal == 0) return;
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace quillon
