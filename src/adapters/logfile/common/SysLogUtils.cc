#include "src/adapters/logfile/common/SysLogUtils.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>

qlList<hostinfo*>* SysLogUtils::hosts = nullptr;
qlStrobj* SysLogUtils::unresolved = nullptr;

void SysLogUtils::init() {
  [[maybe_unused]] static const bool once = [] {
    hosts = new qlList<hostinfo*>;
    unresolved = new qlStrobj(qlStrobj::permanent("???"));
    return true;
  }();
}

const char* SysLogUtils::IPaddr(const char* host) {
  for (const hostinfo* known : *hosts) {
    if (known->name == host) return known->address.getString();
  }
  auto* info = new hostinfo{host, *unresolved};
  const hostent* found = host ? gethostbyname(host) : nullptr;
  if (found && found->h_addrtype == AF_INET && found->h_addr_list[0]) {
    in_addr address{};
    std::memcpy(&address, found->h_addr_list[0], sizeof address);
    info->address = inet_ntoa(address);
  }
  (*hosts)(info);
  return info->address.getString();
}
