#ifndef QUILLON_ADAPTER_SENDER_H_
#define QUILLON_ADAPTER_SENDER_H_

#include <memory>
#include <string>
#include <string_view>

#include "adapter/Positions.h"
#include "daemon/Log.h"
#include "delivery/client/Client.h"

namespace quillon {

/// Where events go when there are destinations: gathers them, with the positions behind them, and hands both to the
/// client in one batch, which is kept whole or not at all. For one thread.
class Sender {
 public:
  /// Null when the cache cannot be opened, with the reason in `error`. Refers to `log`.
  static std::unique_ptr<Sender> open(const delivery::DeliveryConfig& config, const Log& log, std::string& error);

  /// What records of a source are sent as, and under which name.
  delivery::RecordForm form() const { return form_; }
  std::string nameOf(const std::string& source) const { return name_ + "/" + source; }

  /// Where sources are, and where they come to: what is kept there goes with the next send().
  std::unique_ptr<Positions> positions();

  /// Adds the record, unless nobody wants it.
  void add(const delivery::Record& record);
  /// True when so much is gathered that it should be sent.
  bool isFull() const { return batch_.bytes() >= kBatch; }

  /// Hands over what was gathered; `ticket` stays as it is when that is nothing. 0; EAGAIN when there is no room: then
  /// the same call is worth another try when descriptor() is readable. EMSGSIZE when it is too large for ever and was
  /// thrown away.
  [[nodiscard]] int send(delivery::Client::Ticket& ticket);

  delivery::Client& client() { return *client_; }
  int descriptor() const { return client_->descriptor(); }

 private:
  static constexpr std::uint64_t kBatch = 256 << 10;

  Sender(const delivery::DeliveryConfig& config, std::unique_ptr<delivery::Client> client);

  const delivery::RecordForm form_;
  const std::string name_;
  const std::unique_ptr<delivery::Client> client_;
  delivery::Batch batch_;
  std::string bytes_;
};

}  // namespace quillon

#endif  // QUILLON_ADAPTER_SENDER_H_
