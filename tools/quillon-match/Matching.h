#ifndef QUILLON_TOOLS_QUILLON_MATCH_MATCHING_H_
#define QUILLON_TOOLS_QUILLON_MATCH_MATCHING_H_

#include "tools/quillon-match/options.h"

namespace quillon {

/// Binds the messages of all logs and writes what comes of them. Returns the exit status, or ends the process, with
/// status 1 when the format file cannot be read, and by the signal that asked for it.
int match(const MatchOptions& options);

}  // namespace quillon

#endif  // QUILLON_TOOLS_QUILLON_MATCH_MATCHING_H_
