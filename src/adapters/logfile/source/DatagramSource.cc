#include "src/adapters/logfile/source/DatagramSource.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "foundation/sockets.h"
#include "src/adapters/logfile/source/Splitter.h"
#include "src/adapters/logfile/source/fingerprint.h"

namespace quillon {
namespace {

/// No datagram of UDP is longer, and those of Unix sockets seldom are.
constexpr std::size_t kMostBytes = std::size_t{256} << 10;
/// What a datagram counts at least of what may be read at once: many small ones take their time too.
constexpr std::size_t kLeastCount = 1024;

bool unixAddress(const std::string& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return true;
}

/// What came with a message of this type; `otherwise` when nothing did.
template <typename Value>
Value controlOf(msghdr& header, int type, Value otherwise) {
  for (cmsghdr* c = CMSG_FIRSTHDR(&header); c; c = CMSG_NXTHDR(&header, c)) {
    if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == type && c->cmsg_len >= CMSG_LEN(sizeof otherwise)) {
      std::memcpy(&otherwise, CMSG_DATA(c), sizeof otherwise);
    }
  }
  return otherwise;
}

/// A number for who sent the message.
std::uint64_t senderOf(msghdr& header) {
  std::string sender(static_cast<const char*>(header.msg_name), header.msg_namelen);
  sender += std::to_string(controlOf(header, SCM_CREDENTIALS, ucred{}).pid);
  return hashOf(sender);
}

}  // namespace

DatagramSource::DatagramSource(const DatagramOptions& options, Descriptor socket)
    : socket_(std::move(socket)),
      longest_(std::min(kMostBytes, options.longest)),
      room_(longest_ + 1),
      buffer_(std::make_unique_for_overwrite<char[]>(room_)) {
  const int on = 1;
  setsockopt(socket_.get(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
  if (options.local) setsockopt(socket_.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
  setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &options.receiveBuffer, sizeof options.receiveBuffer);
  setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &options.receiveBuffer, sizeof options.receiveBuffer);
  counters_.watching = 1;
}

std::unique_ptr<DatagramSource> DatagramSource::open(const DatagramOptions& options, SourceObserver& /*observer*/,
                                                     std::string& error) {
  std::unique_ptr<LockFile> lock;
  if (options.local) {
    lock = LockFile::take(options.address + ".lock", error);
    if (!lock) {
      error = options.address + ": " + error;
      return nullptr;
    }
  }
  Descriptor socket =
      options.local ? openUnixSocket(options, error) : openInternetSocket(options.address, SOCK_DGRAM, error);
  if (!socket) return nullptr;
  std::unique_ptr<DatagramSource> source(new DatagramSource(options, std::move(socket)));
  source->address_ = options.local ? options.address : boundAddress(source->socket_.get());
  source->lock_ = std::move(lock);
  return source;
}

Descriptor DatagramSource::openUnixSocket(const DatagramOptions& options, std::string& error) {
  sockaddr_un address;
  if (!unixAddress(options.address, address)) {
    error = options.address + ": is too long for the path of a socket";
    return {};
  }
  const auto* const target = reinterpret_cast<const sockaddr*>(&address);
  Descriptor opened(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  struct stat status;
  if (opened && lstat(options.address.c_str(), &status) == 0) {
    if (!S_ISSOCK(status.st_mode)) {
      error = options.address + ": is not a socket";
      return {};
    }
    const Descriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), target, sizeof address) == 0 || errno != ECONNREFUSED) {
      error = options.address + ": another process listens there";
      return {};
    }
    unlink(options.address.c_str());
  }
  if (!opened || bind(opened.get(), target, sizeof address) != 0 || chmod(options.address.c_str(), options.mode) != 0) {
    error = options.address + ": " + std::strerror(errno);
    return {};
  }
  return opened;
}

DatagramSource::~DatagramSource() {
  if (lock_) unlink(address_.c_str());
}

bool DatagramSource::next(TimePoint now, Message& message) {
  if (finishing_ && !stopBy_) stopBy_ = now + std::chrono::seconds(1);
  allowance_.begin();
  while (!ended_ && !allowance_.isUsedUp(now)) {
    sockaddr_storage sender = {};
    iovec part{.iov_base = buffer_.get(), .iov_len = room_};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(std::uint32_t)) + CMSG_SPACE(sizeof(ucred))];
    msghdr header = {};
    header.msg_name = &sender;
    header.msg_namelen = sizeof sender;
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    const ssize_t count = recvmsg(socket_.get(), &header, MSG_TRUNC);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 || (stopBy_ && now >= *stopBy_)) {
      ended_ = finishing_;
      return false;
    }
    const std::uint32_t overrun = controlOf(header, SO_RXQ_OVFL, lastOverrun_);
    counters_.overrun += overrun - std::exchange(lastOverrun_, overrun);  // the kernel's counter may wrap
    const auto bytes = static_cast<std::size_t>(count);
    std::string_view text(buffer_.get(), std::min(bytes, room_));
    allowance_.took(std::max(bytes, kLeastCount));
    if (bytes <= room_ && !text.empty() && (text.back() == '\n' || text.back() == '\0')) text.remove_suffix(1);
    const bool cut = text.size() > longest_;
    if (cut) text = withoutCutCharacter(text.substr(0, longest_));
    if (text.empty()) continue;
    if (!lock_) sender_ = hostOf(sender, header.msg_namelen);
    message = {
        .text = text, .path = lock_ ? address_ : sender_, .stream = senderOf(header), .position = {}, .cut = cut};
    this->count(message, bytes);
    return true;
  }
  return false;
}

void DatagramSource::finish(Finish /*how*/) {
  finishing_ = true;
  if (lock_) unlink(address_.c_str());  // so that senders are told, and wait for who comes next
}

}  // namespace quillon
