#ifndef QUILLON_PROGRAM_PROGRAM_H_
#define QUILLON_PROGRAM_PROGRAM_H_

namespace quillon {

/// What every program does before anything else.
///
/// A standard stream that the caller has closed is occupied, so that no file is opened in its place; reading or
/// writing there fails, as it would without this. A reader that goes away and a file that has reached the largest size
/// allowed are errors of the write and not the end of the process. Exhausted memory is a report and exit status 1.
void prepareProcess();

/// Says that standard output could not be written, for the reason in errno; not when its reader has gone away, who
/// knows that. Returns EXIT_FAILURE.
int outputFailed(const char* program);

}  // namespace quillon

#endif  // QUILLON_PROGRAM_PROGRAM_H_
