#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_ENGINE_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_ENGINE_H_

#include "src/adapters/logfile/match/FirstPass.h"
#include "src/adapters/logfile/match/FixedIndex.h"
#include "src/adapters/logfile/match/Index.h"
#include "src/adapters/logfile/match/Literal.h"

namespace quillon {

/// All that a FormatSet holds. Once made it is only read, by any number of threads.
struct Engine {
  Literal literal;
  FirstPass firstPass;
  Index index;       ///< Of the formats with variables.
  FixedIndex fixed;  ///< Of those without.
  bool inFileOrder = true;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_ENGINE_H_
