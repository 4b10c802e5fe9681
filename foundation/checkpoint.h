#ifndef QUILLON_FOUNDATION_CHECKPOINT_H_
#define QUILLON_FOUNDATION_CHECKPOINT_H_

namespace quillon {

/// Called at each checkpoint with its name when it is set; a test sets it before there are threads, to end the process
/// at the very place where that would hurt.
inline void (*atCheckpoint)(const char* name) = nullptr;

/// A place between two steps that are only safe in their order, such as writing an event and recording that it was
/// written. Costs a look at a variable, so it belongs to what happens once for many messages.
inline void checkpoint(const char* name) {
  if (atCheckpoint) atCheckpoint(name);
}

}  // namespace quillon

#endif  // QUILLON_FOUNDATION_CHECKPOINT_H_
