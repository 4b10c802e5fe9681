#ifndef QUILLON_AUTHORING_SHADOW_PROOFS_H_
#define QUILLON_AUTHORING_SHADOW_PROOFS_H_

#include <cstdint>

#include "src/adapters/logfile/match/Literal.h"

namespace quillon {

/// The component that no message gets past, by its place in the format; -1 when none is found that does that, which
/// says nothing. Of "%s%s" it is 1: the first field takes the whole word, and the second one has nothing to take.
int impassable(const Literal& literal, std::uint32_t place);

/// True when every message that the format at `place` binds is one that the format at `other` binds. False says
/// nothing. For messages of log files; in one from an event log a newline is white space.
bool bindsAllOf(const Literal& literal, std::uint32_t other, std::uint32_t place);

}  // namespace quillon

#endif  // QUILLON_AUTHORING_SHADOW_PROOFS_H_
