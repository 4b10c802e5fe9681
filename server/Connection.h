#ifndef QUILLON_SERVER_CONNECTION_H_
#define QUILLON_SERVER_CONNECTION_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "delivery/protocol/frames.h"
#include "delivery/transport/Stream.h"
#include "server/Intake.h"
#include "server/Listener.h"

namespace quillon {

/// One client's connection, at the server's end of doc/event-protocol.md: takes what comes and hands it to the intake,
/// and never has more to say than a few frames. What it holds is bounded by the largest batch. For one thread.
class Connection {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Refers to all of it for its life.
  Connection(Listener::Accepted accepted, const Listener& listener, const ServerConfig& config, Intake& intake,
             TimePoint now);

  int descriptor() const { return stream_.descriptor(); }
  const std::string& peer() const { return peer_; }
  const Listener& listener() const { return listener_; }
  /// Who it is; null before that is known.
  Intake::Sender* sender() const { return sender_; }

  /// There is something to do for work().
  bool isAwake() const { return isAwake_; }
  void wake() { isAwake_ = true; }

  /// Takes some of what has come, or can be taken now. True when there may be more at once.
  bool work(TimePoint now);
  /// Says what is to be said: acknowledges, and is alive.
  void speak(TimePoint now);
  /// Ends it when the client is gone, or takes too long.
  void checkTime(TimePoint now);

  /// Its client gets to know why, if it can still be told.
  void refuse(delivery::RefusalCode code, const std::string& reason);

  /// What poll(2) is to wait for: POLLIN, POLLOUT, both or nothing.
  short events() const;

  bool isOver() const { return state_ == State::kOver; }
  /// Why it is over, or will be; empty when the client simply went.
  const std::string& reason() const { return reason_; }
  /// The client was refused, or could not be understood.
  bool wasRefused() const { return wasRefused_; }

 private:
  enum class State {
    kSecuring,
    kGreeting,  ///< The hello has to come.
    kOpen,
    kParting,  ///< The refusal is to be written yet.
    kOver,
  };

  void end(const std::string& reason = "");
  bool takeWhatCame(TimePoint now);
  bool secure();
  bool read(TimePoint now, std::size_t& budget);
  void take(const delivery::Frame& frame);
  void greet(const delivery::Frame& frame);
  void write();

  delivery::Stream stream_;
  const std::string peer_;
  const Listener& listener_;
  const ServerConfig& config_;
  Intake& intake_;
  State state_ = State::kSecuring;
  std::string reason_;
  bool wasRefused_ = false;
  delivery::FrameReader reader_;
  delivery::NumberedRecords records_;  ///< Of the batch that is being taken,
  std::size_t at_ = 0;                 ///< from there on.
  bool hasRecords_ = false;            ///< Not all of them could be taken yet.
  Intake::Sender* sender_ = nullptr;
  std::uint64_t told_ = 0;  ///< That all below is safe.
  bool isAwake_ = true;
  std::string out_;
  bool isWriting_ = false;  ///< Waits until it can write.
  std::chrono::milliseconds clientsPatience_{};
  TimePoint begun_;   ///< When it began, or the frame that is not whole yet.
  TimePoint heard_;   ///< When the last frame was whole.
  TimePoint spoken_;  ///< When the last byte was written.
};

}  // namespace quillon

#endif  // QUILLON_SERVER_CONNECTION_H_
