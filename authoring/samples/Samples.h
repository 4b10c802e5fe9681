#ifndef QUILLON_AUTHORING_SAMPLES_SAMPLES_H_
#define QUILLON_AUTHORING_SAMPLES_SAMPLES_H_

#include <string>
#include <string_view>
#include <vector>

#include "src/adapters/logfile/common/FormatPlaces.h"
#include "src/adapters/logfile/common/Report.h"

/// Samples: messages of which an author says what must become of them. They stand in comments of the format file,
///
///     //@ sample: Mar  5 12:00:01 web1 login: user marta logged in
///     //@   user = marta
///     //@   $1 = Mar 5 12:00:01
///     //@ not: Mar  5 12:00:01 web1 login: user marta logged out
///     FORMAT Login
///
/// or in a file of their own, which alone can hold messages as they are, ended by NUL. A comment is read as a sample
/// only when its line begins with "//@", and such a line that says nothing is a fault: no sample is passed over because
/// of a slip, and no prose is taken for one.
///
///     sample: LINE          the block below binds the line
///     sample NAME: LINE     the block NAME does
///     NAME = VALUE          in the event of the sample above the slot NAME, or the variable $N, has this value
///     not: LINE             another block than the one below binds it, or none
///     not NAME: LINE        the same of the block NAME
///     unmatched: LINE       no block binds it
///
/// LINE and VALUE go to the end of their line without white space at either end, or stand in double quotes, with \",
/// \\, \t, \n and \xHH for bytes that could not stand there otherwise.
///
/// Threads: values, and functions on what they are given alone.
namespace quillon {

struct Sample {
  enum class Kind {
    kBound,      ///< `block` binds the message.
    kNotBound,   ///< `block` does not.
    kUnmatched,  ///< No block does.
  };

  /// What a slot or a variable of the event must be.
  struct Value {
    std::string name;  ///< Of a variable: "$7".
    std::string text;
    Place place;  ///< Of both and what is between.

    /// The N of `$N`; 0 for a slot.
    int variable() const;
  };

  Kind kind = Kind::kBound;
  std::string block;    ///< The name of its class; empty in one that nothing binds.
  std::string message;  ///< In the codeset of the file, as all its texts are. May have newlines, but no NUL byte.
  std::vector<Value> values;
  Place place;       ///< Of the message, as it is written.
  Place blockPlace;  ///< Of the name of the block; no place where the sample does not give it.
};

/// A line that should be part of a sample and is not, or looks as if.
struct SampleFault {
  enum class Kind {
    kMalformed,  ///< It cannot be understood.
    kMisplaced,  ///< It belongs to no block or to no sample.
    kLooksLike,  ///< A comment of prose, to all but its reader.
  };
  Kind kind;
  Place place;
  std::string text;  ///< What is wrong,
  std::string hint;  ///< and what would be right; may be empty.
};

/// What a file holds, in its order.
struct SampleList {
  std::vector<Sample> samples;
  std::vector<SampleFault> faults;
};

/// The samples in the comments of a format file that has been read with its places, be it up to an error.
SampleList samplesIn(const FormatPlaces& places);

/// The samples of a file of their own: a line for each line of a comment, without the "//@", which may stand there all
/// the same. Every block is named. Empty lines and those that begin with "//" say nothing. Where the text holds a NUL
/// byte all lines are ended by NUL, and LINE and VALUE are taken as they stand, from behind the blank that follows ":"
/// or "=" on, white space, newlines, quotes and all.
SampleList samplesInText(std::string_view text);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SAMPLES_SAMPLES_H_
