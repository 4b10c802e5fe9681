#ifndef QUILLON_PROGRAM_PROGRAM_H_
#define QUILLON_PROGRAM_PROGRAM_H_

#include <string_view>

namespace quillon {

/// What every program does before anything else, and before it has a second thread. The rest is for any thread.
///
/// A standard stream that the caller has closed is occupied, so that no file is opened in its place; reading or
/// writing there fails, as it would without this. A reader that goes away and a file that has reached the largest size
/// allowed are errors of the write and not the end of the process. Exhausted memory is a report and exit status 1.
void prepareProcess();

/// The same for a program that people talk to, which all are but the compiler, whose ways are older: reports are told
/// whoever watches, a comment that is never closed is an error, text is converted from one codeset throughout, and no
/// table is taken from the current directory unless nothing else says where tables are.
void prepareTool();

/// "quillon-match: cannot read x.log: Permission denied", on standard error. `failed` is what could not be done with
/// the file `name`, `error` the errno of that.
void complain(const char* program, const char* failed, std::string_view name, int error);

/// True when standard output writes to the file `path`.
bool isStandardOutput(const char* path);

/// Says that `name` is not read because the program writes to it.
void complainOfWritten(const char* program, std::string_view name);

/// True when `path`, a format file, can be read, and is not what standard output writes to; otherwise says why not.
[[nodiscard]] bool canRead(const char* program, const char* path);

/// Says that standard output could not be written, for the reason in errno; not when its reader has gone away, who
/// knows that. Returns EXIT_FAILURE.
int outputFailed(const char* program);

}  // namespace quillon

#endif  // QUILLON_PROGRAM_PROGRAM_H_
