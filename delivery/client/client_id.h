#ifndef QUILLON_DELIVERY_CLIENT_CLIENT_ID_H_
#define QUILLON_DELIVERY_CLIENT_CLIENT_ID_H_

#include <string>

#include "delivery/cache/Cache.h"

namespace quillon::delivery {

/// "NAME-" and 32 hexadecimal digits, which are drawn when a cache is new and stay with it, in its file "identity": so
/// a number that the cache gave to an event never means another one under the same id. Empty, with the reason in
/// `error`, when they cannot be kept. To be called when the cache was opened, and nothing was appended yet.
std::string clientId(const std::string& name, const std::string& directory, const Cache& cache, std::string& error,
                     Files& files = Files::real());

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CLIENT_CLIENT_ID_H_
