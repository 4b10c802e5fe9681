#include "config/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <charconv>
#include <optional>
#include <string>

namespace quillon {
namespace {

bool isPort(std::string_view text) {
  unsigned port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

std::optional<in_addr> parseIPv4(std::string_view host) {
  in_addr address{};
  if (inet_pton(AF_INET, std::string(host).c_str(), &address) != 1) return std::nullopt;
  return address;
}

/// Without its brackets.
std::optional<in6_addr> parseIPv6(std::string_view host) {
  in6_addr address{};
  if (inet_pton(AF_INET6, std::string(host).c_str(), &address) != 1) return std::nullopt;
  return address;
}

bool isBracketed(std::string_view host) { return host.starts_with('[') && host.ends_with(']'); }

/// "[fe80::1%eth0]": a link-local address means something only with its interface.
bool isBracketedIPv6(std::string_view host) {
  host = host.substr(1, host.size() - 2);
  const std::size_t scope = host.find('%');
  return scope + 1 != host.size() && parseIPv6(host.substr(0, scope));
}

bool isName(std::string_view host) {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";
  return host.find_first_not_of(kLetters) == std::string_view::npos;
}

/// The host of "HOST:PORT"; nothing when the port is wrong.
std::optional<std::string_view> hostIn(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos || !isPort(text.substr(colon + 1))) return std::nullopt;
  return text.substr(0, colon);
}

}  // namespace

bool isAddress(std::string_view text) {
  const std::optional<std::string_view> host = hostIn(text);
  if (!host) return false;
  if (host->empty()) return true;
  if (isBracketed(*host)) return isBracketedIPv6(*host);
  const bool isNumeric = host->find_first_not_of("0123456789.") == std::string_view::npos;
  return isNumeric ? parseIPv4(*host).has_value() : isName(*host);
}

bool isLoopbackAddress(std::string_view text) {
  const std::optional<std::string_view> host = hostIn(text);
  if (!host) return false;
  if (*host == "localhost") return true;
  if (isBracketed(*host)) {
    const std::optional<in6_addr> address = parseIPv6(host->substr(1, host->size() - 2));
    return address && IN6_IS_ADDR_LOOPBACK(&*address);
  }
  const std::optional<in_addr> address = parseIPv4(*host);
  return address && ntohl(address->s_addr) >> 24 == IN_LOOPBACKNET;
}

}  // namespace quillon
