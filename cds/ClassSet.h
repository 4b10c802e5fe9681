#ifndef QUILLON_CDS_CLASSSET_H_
#define QUILLON_CDS_CLASSSET_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

/// The classes of one file of class definitions: what selects each, and how its slots are made. readCds() makes it and
/// EventMaker makes events with it. A value that refers to nothing; once made it only is read, by any number of
/// threads.
class ClassSet {
 public:
  std::size_t size() const { return classes_.size(); }

  /// The place of the class with this `_event_id`, from 0 in the order of the file.
  std::optional<std::size_t> find(std::uint32_t eventId) const;

  // Of the class at `place`.
  std::uint32_t eventId(std::size_t place) const { return classes_[place].eventId; }
  std::string_view name(std::size_t place) const { return view(classes_[place].name); }
  /// The attributes that it selects besides its number, and their names from 0 in the order of SELECT.
  std::size_t attributeCount(std::size_t place) const { return behind(place).attribute - classes_[place].attribute; }
  std::string_view attribute(std::size_t place, std::size_t n) const {
    return view(attributes_[classes_[place].attribute + n]);
  }
  /// The slots that MAP assigns, and their names from 0 in its order.
  std::size_t slotCount(std::size_t place) const { return behind(place).slot - classes_[place].slot; }
  std::string_view slot(std::size_t place, std::size_t n) const { return view(slots_[classes_[place].slot + n].name); }

 private:
  friend class ClassSetBuilder;
  friend class EventMaker;

  /// In `texts_`.
  struct Text {
    std::uint32_t at = 0;
    std::uint32_t size = 0;
  };

  /// A text, and behind it the value of a line of SELECT; no value when that is 0.
  struct Piece {
    Text text;
    std::uint32_t line = 0;
  };

  /// Ends with the first piece of the next one.
  struct Slot {
    Text name;
    std::uint32_t piece = 0;
  };

  /// Ends with the first attribute and slot of the next one.
  struct Class {
    Text name;
    Text number;  ///< `eventId`, as it was written.
    std::uint32_t eventId = 0;
    std::uint32_t attribute = 0;
    std::uint32_t slot = 0;
  };

  /// What the class behind `place` begins with, or would.
  Class behind(std::size_t place) const;
  std::uint32_t pieceBehind(std::size_t slot) const;

  std::string_view view(Text text) const { return std::string_view(texts_).substr(text.at, text.size); }

  std::string texts_;
  std::vector<Class> classes_;
  std::vector<Text> attributes_;
  std::vector<std::uint32_t> byName_;  ///< For each class the numbers of its attributes, ordered by their names.
  std::vector<Slot> slots_;
  std::vector<Piece> pieces_;
  std::vector<std::uint32_t> byId_;  ///< Places, ordered by `_event_id`.
};

}  // namespace quillon

#endif  // QUILLON_CDS_CLASSSET_H_
