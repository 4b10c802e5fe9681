#ifndef QUILLON_PROGRAM_PROGRAM_H_
#define QUILLON_PROGRAM_PROGRAM_H_

#include <string_view>

namespace quillon {

/// What every program does before anything else.
///
/// A standard stream that the caller has closed is occupied, so that no file is opened in its place; reading or
/// writing there fails, as it would without this. A reader that goes away and a file that has reached the largest size
/// allowed are errors of the write and not the end of the process. Exhausted memory is a report and exit status 1.
void prepareProcess();

/// "quillon-match: cannot read x.log: Permission denied", on standard error. `failed` is what could not be done with
/// the file `name`, `error` the errno of that.
void complain(const char* program, const char* failed, std::string_view name, int error);

/// True when standard output writes to the file `path`.
bool isStandardOutput(const char* path);

/// Says that `name` is not read because the program writes to it.
void complainOfWritten(const char* program, std::string_view name);

/// True when `path`, a format file, can be read, and is not what standard output writes to; otherwise says why not.
bool canRead(const char* program, const char* path);

/// Says that standard output could not be written, for the reason in errno; not when its reader has gone away, who
/// knows that. Returns EXIT_FAILURE.
int outputFailed(const char* program);

}  // namespace quillon

#endif  // QUILLON_PROGRAM_PROGRAM_H_
