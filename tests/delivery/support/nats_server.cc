#include "tests/delivery/support/nats_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <utility>

#include "delivery/brokers/NatsConnection.h"
#include "foundation/descriptor.h"

namespace quillon::delivery {
namespace {

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

bool isListening(int port) {
  const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(port);
  return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

int freePort() {
  const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (bind(probe.get(), reinterpret_cast<sockaddr*>(&address), size) != 0) std::abort();
  getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

NatsServer::NatsServer(std::string store, std::vector<std::string> more, std::string name)
    : store_(std::move(store)), more_(std::move(more)), name_(std::move(name)), port_(freePort()) {
  start();
}

void NatsServer::start() {
  std::vector<std::string> words = {"nats-server",         "-js", "-a",   "127.0.0.1", "-p",
                                    std::to_string(port_), "-sd", store_, "-n",        name_};
  words.insert(words.end(), more_.begin(), more_.end());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    const int log = open((store_ + ".log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(log, 1);
    dup2(log, 2);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!isListening(port_)) {
    if (waitpid(process_, nullptr, WNOHANG) == process_ || std::chrono::steady_clock::now() > until) {
      std::cerr << "nats-server does not start; see " << store_ << ".log\n";
      std::abort();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void NatsServer::kill() {
  if (process_ < 0) return;
  ::kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

void NatsServer::freeze(bool isFrozen) const { ::kill(process_, isFrozen ? SIGSTOP : SIGCONT); }

std::vector<StreamMessage> messagesIn(const std::string& url, const std::string& stream) {
  natsConnection* made = nullptr;
  std::vector<StreamMessage> messages;
  if (natsConnection_ConnectTo(&made, url.c_str()) != NATS_OK) return messages;
  const NatsPtr<natsConnection> connection(made);
  jsCtx* context = nullptr;
  natsConnection_JetStream(&context, made, nullptr);
  const NatsPtr<jsCtx> jetStream(context);
  jsStreamInfo* asked = nullptr;
  if (js_GetStreamInfo(&asked, context, stream.c_str(), nullptr, nullptr) != NATS_OK) return messages;
  const NatsPtr<jsStreamInfo> info(asked);
  for (std::uint64_t n = info->State.FirstSeq; n > 0 && n <= info->State.LastSeq; ++n) {
    natsMsg* got = nullptr;
    if (js_GetMsg(&got, context, stream.c_str(), n, nullptr, nullptr) != NATS_OK) continue;
    const NatsPtr<natsMsg> message(got);
    const char* id = "";
    natsMsgHeader_Get(got, "Nats-Msg-Id", &id);
    messages.push_back(
        {n, id, std::string(natsMsg_GetData(got), static_cast<std::size_t>(natsMsg_GetDataLength(got)))});
  }
  return messages;
}

}  // namespace quillon::delivery
