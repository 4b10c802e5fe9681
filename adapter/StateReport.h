#ifndef QUILLON_ADAPTER_STATEREPORT_H_
#define QUILLON_ADAPTER_STATEREPORT_H_

#include <string>

#include "adapter/Config.h"

namespace quillon {

enum class StateForm { kTable, kJson };

/// What is kept of the files of all sources, for people or, as one JSON array, for programs: the source, the file as it
/// is followed and where it is, its identity, the position, its size and the bytes in between. Sizes are looked up now.
/// Nothing is locked, so it may be asked while the adapter runs; positions are then as they were last kept. What is
/// damaged is left out, and `trouble` says so. False when the state cannot be read at all, with the reason in `error`.
[[nodiscard]] bool reportState(const Config& config, StateForm form, std::string& text, std::string& error,
                               std::string& trouble);

}  // namespace quillon

#endif  // QUILLON_ADAPTER_STATEREPORT_H_
