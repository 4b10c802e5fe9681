#ifndef QUILLON_SERVER_INTAKE_H_
#define QUILLON_SERVER_INTAKE_H_

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "daemon/Log.h"
#include "delivery/Record.h"
#include "delivery/client/Client.h"
#include "delivery/protocol/frames.h"
#include "server/ClassSets.h"
#include "server/Parked.h"
#include "server/ServerConfig.h"
#include "server/Throttle.h"

namespace quillon {

/// What was counted since the start.
struct IntakeFigures {
  std::uint64_t records = 0;                                  ///< That came and were not known.
  std::uint64_t repeated = 0;                                 ///< That came again.
  std::uint64_t made = 0;                                     ///< Events made of attributes.
  std::map<std::string, std::uint64_t> setAside;              ///< By the reason.
  std::vector<std::pair<std::string, std::uint64_t>> parked;  ///< What waits now, by the set.
  std::uint64_t clients = 0;                                  ///< That are remembered.
};

/// Between the clients and the server's own cache: takes each record once, makes events of attributes, and says from
/// when on a client's records are safe.
///
/// A batch goes into the cache with the number below which each client's records are in it, so that after a crash
/// neither is there without the other. What comes for class definitions that are not there is parked, see Parked.h, and
/// comes into the cache when they are: with the number below which the parked ones are in. What can never become an
/// event is put aside for good, and told. For one thread.
class Intake {
 public:
  /// One who sends, known by its client id.
  struct Sender {
    std::string id;
    std::uint64_t accepted = 0;  ///< All below were taken,
    std::uint64_t safe = 0;      ///< and all below are safe.
    std::int64_t seen = 0;       ///< Seconds since 1970 when it was last heard of.
    bool isConnected = false;
    bool isTouched = false;  ///< `accepted` is to go into the cache.
  };

  /// Refers to all of it for its life.
  Intake(const ServerConfig& config, delivery::Client& client, ClassSets& sets, const Log& log);

  /// False with the reason in `error`. Call it first.
  [[nodiscard]] bool open(std::string& error);

  /// Stays until it is not connected and others need its place. Null when all places are taken by who is connected.
  Sender* sender(std::string_view id);

  /// Takes the records of a batch from number `at` of them on, which it moves. False when the rest has to wait, for
  /// room in the cache or, of this sender alone, among what is parked.
  [[nodiscard]] bool take(Sender& sender, const delivery::NumberedRecords& records, std::size_t& at);

  /// Takes what was parked for sets that are there now, some of it. True when there is more.
  bool takeParked();

  /// Hands on what was taken. False when there is no room; nothing is to be taken until there is.
  bool flush();
  bool isBlocked() const { return isBlocked_; }

  /// Finds out what is safe by now.
  void settle();

  /// About once a second.
  void tidy();
  IntakeFigures figures() const;

 private:
  struct Waiting {
    std::string name;  ///< Of the set, in hex digits.
    std::string key;   ///< What the server's cache knows its place by.
    std::unique_ptr<Parked> records;
    std::uint64_t taken = 0;  ///< All below are taken into the cache.
    bool isTouched = false;
    bool isTold = false;  ///< That there is no room.
  };
  /// What becomes safe with a ticket.
  struct Promise {
    delivery::Client::Ticket ticket;
    Sender* sender;  ///< One of both.
    Waiting* waiting;
    std::uint64_t end;
  };

  bool openParked(std::string& error);
  std::unique_ptr<Waiting> openWaiting(const std::string& name, std::string& error);
  void forgetOthersOf(const Waiting& waiting);
  bool isLeftover(const Waiting& waiting) const;
  bool add(Sender& sender, const delivery::Event& event);
  bool park(Sender& sender, const delivery::Event& event);
  Waiting* waitingFor(const delivery::SetId& set);
  void touch(Sender& sender, std::uint64_t accepted);
  void store(const delivery::Record& record, std::string_view bytes);
  const char* makeEvent(EventMaker& maker);
  void setAside(std::string_view from, const delivery::Event& event, const std::string& why, const std::string& detail);
  void tell(const std::string& text);
  bool forgetSomebody();

  const ServerConfig& config_;
  delivery::Client& client_;
  ClassSets& sets_;
  const Log& log_;
  std::unordered_map<std::string, std::unique_ptr<Sender>> senders_;
  std::map<delivery::SetId, std::unique_ptr<Waiting>> waiting_;
  std::unique_ptr<Parked> aside_;
  delivery::Batch batch_;
  std::vector<Sender*> touched_;
  std::deque<Promise> promises_;
  bool isBlocked_ = false;

  delivery::Record record_, event_;
  std::string bytes_;
  Throttle throttle_;
  IntakeFigures figures_;
};

}  // namespace quillon

#endif  // QUILLON_SERVER_INTAKE_H_
