#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATPLACES_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATPLACES_H_

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "src/adapters/logfile/common/Report.h"

class FormatSpec;
class MapSpec;
class MsgMapEntry;

namespace quillon {

/// Where the parts of formats stand in the file that they were read from. Made by a reading that is asked for it;
/// refers to formats and entries by their addresses and holds none of them, so ask it only about those that live.
///
/// Threads: filled by its reading, constant afterwards.
class FormatPlaces {
 public:
  /// One slot line, whether its entry is still in the format or a later line of the same slot has replaced it.
  struct Slot {
    const MsgMapEntry* entry = nullptr;  ///< Only to be compared with.
    std::string name;                    ///< As written, with its "-".
    Place namePlace;
    Place value;                   ///< Of a PRINTF: its format text.
    std::vector<Place> arguments;  ///< Of a PRINTF: the names behind its format text.
  };

  struct Block {
    const FormatSpec* format = nullptr;
    Place name;
    Place parent;                   ///< The name behind FOLLOWS; no place when there is none.
    std::string parentName;         ///< Also of a parent that does not exist.
    std::vector<Place> components;  ///< In the order of getComponents(). A run of blanks is one, with all its bytes.
    std::vector<Slot> slots;        ///< In the order of the lines.
    Place end;                      ///< END; no place when the block was not read to its end.

    /// The line of `entry`; null when it stands in another block, as that of an inherited entry does.
    const Slot* slotOf(const MsgMapEntry& entry) const;
    /// The field of `$n`; no place when there is none.
    Place variable(int n) const;

   private:
    friend class FormatPlaces;
    friend class Reading;

    std::unordered_map<const MsgMapEntry*, std::size_t> byEntry_;  ///< Of `slots`.
  };

  /// A comment with its delimiters, without the newline that ends a line comment.
  struct Comment {
    Place place;
    std::string text;
  };

  /// A token as the parser was given it. Behind a syntax error there are none up to the next block.
  struct Token {
    enum Kind : int {  ///< A single character stands for itself.
      kEndOfFile = 0,
      kWord = 257,
      kField,
      kBlank,
      kQuoted,
      kAtom,
      kNewline,
      kFormat,
      kEnd,
      kFollows,
      kPrintf,
      kDefault,
      kLabel,
      kFilename,
    };

    int kind;
    Place place;
  };

  /// In the order of the file.
  const std::vector<Token>& tokens() const { return tokens_; }
  const std::deque<Block>& blocks() const { return blocks_; }
  const std::vector<Comment>& comments() const { return comments_; }

  /// The block that became `format`; null when that was not read from this file.
  const Block* blockOf(const FormatSpec& format) const;
  /// The line that became `entry`, in whatever block; null when it was not read from this file.
  const Slot* slotOf(const MsgMapEntry& entry) const;
  /// Where the subject of a report stands: its entry, its variable or its format.
  Place of(const Subject& subject) const;

 private:
  friend class Reading;

  Block& begin(const FormatSpec* format);

  std::vector<Token> tokens_;
  std::deque<Block> blocks_;
  std::unordered_map<const MapSpec*, const Block*> byFormat_;
  std::vector<Comment> comments_;
};

/// Passes on reports about a model that has been read, with the places that their subjects had in the file.
class PlacedReports : public ReportSink {
 public:
  /// Both must outlive this object.
  PlacedReports(const FormatPlaces& places, std::string file, ReportSink& sink)
      : places_(places), file_(std::move(file)), sink_(sink) {}
  void take(Report report) override;

 private:
  const FormatPlaces& places_;
  const std::string file_;
  ReportSink& sink_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_FORMATPLACES_H_
