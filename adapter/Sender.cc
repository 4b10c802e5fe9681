#include "adapter/Sender.h"

#include <cerrno>
#include <utility>

namespace quillon {

using delivery::Client;
using delivery::Feed;

std::unique_ptr<Sender> Sender::open(const delivery::DeliveryConfig& config, const Log& log, std::string& error) {
  const auto report = [&log](Feed::Level level, std::string_view text) {
    switch (level) {
      case Feed::Level::kError:
        return log.error(text);
      case Feed::Level::kWarning:
        return log.warning(text);
      case Feed::Level::kInfo:
        return log.info(text);
    }
  };
  std::unique_ptr<Client> client = Client::start(config, report, error);
  return client ? std::unique_ptr<Sender>(new Sender(config, std::move(client))) : nullptr;
}

Sender::Sender(const delivery::DeliveryConfig& config, std::unique_ptr<Client> client)
    : form_(config.form), name_(config.client), client_(std::move(client)) {}

std::unique_ptr<Positions> Sender::positions() {
  return Positions::in(client_->positions(), !client_->hasPositions(), batch_);
}

void Sender::add(const delivery::Record& record) {
  if (!client_->wants(record)) return;
  bytes_.clear();
  delivery::encode(record, bytes_);
  batch_.add(bytes_, static_cast<std::uint32_t>(record.form));
}

int Sender::send(Client::Ticket& ticket) {
  if (batch_.empty()) return 0;
  switch (client_->send(batch_, ticket)) {
    case Client::Result::kTaken:
      return 0;
    case Client::Result::kFull:
      return EAGAIN;
    case Client::Result::kTooLarge:
      batch_.clear();
      return EMSGSIZE;
  }
  return 0;
}

}  // namespace quillon
