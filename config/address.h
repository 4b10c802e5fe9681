#ifndef QUILLON_CONFIG_ADDRESS_H_
#define QUILLON_CONFIG_ADDRESS_H_

#include <string_view>

namespace quillon {

/// What a configuration may give as an address, "HOST:PORT". The port is a number from 1 to 65535. The host is a name,
/// an IPv4 address, or an IPv6 address in brackets. Nothing is looked up.

/// Where a socket may listen; an empty host stands for all addresses, as in ":514".
bool isAddress(std::string_view text);

/// Whether only this machine can reach it: 127.0.0.0/8, [::1] or "localhost".
bool isLoopbackAddress(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_CONFIG_ADDRESS_H_
