#ifndef QUILLON_DELIVERY_CACHE_LEDGER_H_
#define QUILLON_DELIVERY_CACHE_LEDGER_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "delivery/cache/Files.h"

namespace quillon::delivery {

/// What a cache remembers besides its events: how far each reader has acknowledged, which numbers may have been given
/// to events, and what is known to be on the disk. For one thread at a time.
///
/// The file `ledger` is text, a fact a line: "CRC SERIAL cursor NUMBER NAME", "CRC SERIAL numbers NUMBER", "CRC SERIAL
/// synced NUMBER", "CRC SERIAL removed NUMBER", "CRC SERIAL suspect NUMBER", the CRC being crc32c() of the rest of the
/// line in eight hex digits. Lines are appended, and the last one of a name counts. One that is damaged counts for
/// nothing, nor does one with a lower serial than stood before it: after a loss of power a file may end in what another
/// one held. Now and then the file is written anew, aside, and each line twice, so that no single damage takes a cursor
/// away. A file that failed to take a line or a sync is not touched again but replaced.
class Ledger {
 public:
  struct Contents {
    std::map<std::string, std::uint64_t>
        cursors;                ///< By the reader's name, the number of the first event that it wants.
    std::uint64_t numbers = 0;  ///< No event has had this number or a higher one.
    std::uint64_t synced = 0;   ///< All events below were on the disk.
    std::uint64_t removed = 0;  ///< Segments with lower numbers were removed.
    std::uint64_t suspect = 0;  ///< Not all below could be synced: what is not known to be on the disk never will be.
    std::uint64_t serial = 0;   ///< Of the last line.
    int damagedLines = 0;
  };

  [[nodiscard]] static Contents parse(std::string_view text);
  /// What the ledger of a directory holds; nothing when there is none. 0 or an errno.
  [[nodiscard]] static int read(Files& files, const std::string& directory, Contents& contents);

  /// Names that a cursor can have: 1 to 200 letters, digits and marks, without white space.
  static bool isName(std::string_view name);

  Ledger(Files& files, std::string directory, Contents contents);

  const Contents& contents() const { return contents_; }
  /// What a loss of power would leave at least.
  const std::map<std::string, std::uint64_t>& durableCursors() const { return durable_; }

  /// These hold in memory whatever they return, 0 or an errno, and what could not be written is written with the next
  /// one that can be. A process that is killed then has them; sync() makes that true for a loss of power.
  int setCursor(const std::string& name, std::uint64_t number);
  int forgetCursor(const std::string& name);
  int setSynced(std::uint64_t number);
  int setRemoved(std::uint64_t number);
  int setSuspect(std::uint64_t number);
  /// On the disk when it returns 0.
  [[nodiscard]] int setNumbers(std::uint64_t number);
  [[nodiscard]] int sync();

 private:
  int append(std::string_view kind, std::uint64_t number, std::string_view name);
  int rewrite();
  int failed(int error);

  Files& files_;
  std::string directory_;
  Contents contents_;
  std::map<std::string, std::uint64_t> durable_;
  File file_;  ///< None when the file has to be written anew.
  std::uint64_t size_ = 0;
  std::uint64_t rewriteAt_ = 0;
  bool isSynced_ = false;
};

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_CACHE_LEDGER_H_
