#ifndef QUILLON_AUTHORING_COMPARE_MESSAGESHAPES_H_
#define QUILLON_AUTHORING_COMPARE_MESSAGESHAPES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillon {

/// `message` with what differs from one message of its kind to the next folded: "<number>", "<hex>" (0x1f, or at least
/// four digits and letters that only hexadecimal explains), "<address>" (IPv4, IPv6, MAC), "<path>"; white space is one
/// blank. Cut after 500 bytes. For any thread.
std::string shapeOf(std::string_view message);

/// How many messages there are of each shape. Bounded: beyond 10,000 shapes the rarer half is counted as one, so that
/// what is said of the frequent ones is at most too low, by less than that rest. One thread at a time; each thread
/// counts for itself, and sums are made in the order of the log.
class MessageShapes {
 public:
  struct Shape {
    std::string shape;
    std::uint64_t count = 0;
    std::string example;  ///< The first message of it, up to 2,000 bytes.
  };

  static constexpr std::size_t kMostShapes = 10'000;

  void add(std::string_view message);
  /// Those of `later` come behind these.
  void add(MessageShapes&& later);
  void clear();

  bool empty() const { return shapes_.empty(); }
  /// The most frequent first; those of one frequency in the order of their first messages.
  std::vector<const Shape*> byCount() const;
  /// Messages that are counted under no shape.
  std::uint64_t rest() const { return rest_; }

 private:
  Shape& of(std::string shape);
  void prune();

  std::unordered_map<std::string, std::size_t> places_;  ///< In `shapes_`.
  std::vector<Shape> shapes_;
  std::uint64_t rest_ = 0;
};

}  // namespace quillon

#endif  // QUILLON_AUTHORING_COMPARE_MESSAGESHAPES_H_
