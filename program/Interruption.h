#ifndef QUILLON_PROGRAM_INTERRUPTION_H_
#define QUILLON_PROGRAM_INTERRUPTION_H_

namespace quillon {

/// While it lives, SIGINT, SIGTERM and SIGHUP do not end the process but ask it to end, so that it can hand over what
/// it has. One that was ignored stays ignored, and the second of a kind ends the process at once. One object at a time;
/// its functions may be called by all threads.
class Interruption {
 public:
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

  /// Can be read, by poll() or the like, once a signal has come; nobody should take what is there. -1 when the system
  /// has no descriptor left.
  static int descriptor();

  static bool isAsked();

  /// Ends the process by the signal that has come; returns when none has.
  static void endIfAsked();
};

}  // namespace quillon

#endif  // QUILLON_PROGRAM_INTERRUPTION_H_
