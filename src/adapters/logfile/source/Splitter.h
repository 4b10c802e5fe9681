#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_SPLITTER_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_SPLITTER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace quillon {

/// A piece of a stream that is a message of its own.
struct Frame {
  std::string_view text;    ///< Without what framed it; valid until the splitter is used again. Message::roomy.
  std::string_view before;  ///< The last bytes of the stream up to the end of this frame, as many as were asked for.
  std::uint64_t bytes = 0;  ///< That the frame takes in the stream.
  bool cut = false;         ///< `text` is only the beginning.
};

/// The beginning of a text that was cut, without the character of UTF-8 that the cut went through, if it did.
std::string_view withoutCutCharacter(std::string_view text);

/// Takes a stream apart into messages. The caller reads into room() and says how much there was; so a splitter can be
/// fed from anything that does not block. Its room grows with the messages, to twice the longest at most.
class Splitter {
 public:
  /// Bytes of a message that are kept; what is behind them is dropped and the message marked.
  static constexpr std::size_t kLongest = std::size_t{64} << 20;

  /// `before` bytes of the stream stand ready before the end of each frame.
  Splitter(std::size_t longest, std::size_t firstRoom, std::size_t before);
  Splitter(const Splitter&) = delete;
  Splitter& operator=(const Splitter&) = delete;
  virtual ~Splitter() = default;

  /// Where to read to; between kLeastRead and kMostRead bytes.
  std::span<char> room();
  /// So many bytes were read into room().
  void filled(std::size_t count) { end_ += count; }

  /// Takes the next message off what was read. False when there is no whole one.
  virtual bool next(Frame& frame) = 0;
  /// The stream is at its end: what is left is a message, if there is anything.
  virtual bool finish(Frame& frame) = 0;
  /// finish() has found that the stream ended within a message.
  virtual bool endedShort() const { return false; }
  /// The stream cannot be understood, now or ever.
  virtual bool isBroken() const { return false; }

  /// Bytes of the stream that were read and belong to no frame yet.
  std::uint64_t pending() const { return end_ - begin_ + dropped_; }

 protected:
  static constexpr std::size_t kLeastRead = 4096;
  static constexpr std::size_t kMostRead = std::size_t{256} << 10;

  /// The text of a frame that has `length` bytes in the buffer, of which the longest may keep so many.
  std::string_view textOf(std::size_t length) const;
  /// Forgets all.
  void restart();
  std::string_view last(std::size_t end) const;
  /// Gives up bytes behind the `kept` first ones of the frame at hand, all of which were looked at.
  void dropBehind(std::size_t kept);

  const std::size_t longest_;
  const std::size_t firstRoom_;
  const std::size_t before_;
  std::size_t room_;
  std::unique_ptr<char[]> buffer_;
  std::size_t begin_ = 0;      ///< Where the frame at hand begins
  std::size_t end_ = 0;        ///< and where the bytes end that were read.
  std::uint64_t dropped_ = 0;  ///< Bytes of the frame at hand that are not in the buffer any more.
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_SOURCE_SPLITTER_H_
