#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_ENGINE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_ENGINE_H_

#include "src/adapters/logfile/match/Literal.h"

namespace quillon {

/// All that a FormatSet holds.
struct Engine {
  Literal literal;
  bool inFileOrder = true;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_ENGINE_H_
