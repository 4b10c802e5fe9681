#ifndef QUILLON_CODESET_ULS_H_
#define QUILLON_CODESET_ULS_H_

#include <cwchar>

/// String helpers that follow the process locale (setlocale(), which nxl_init() calls): what is a character, and what
/// its upper case is, are the C library's answers. Lengths of multibyte text are bytes, of wide text wchar_t. A byte
/// that is not part of a character counts as a character of its own; nothing is ever split or dropped because of one.

/// Bytes of the character at `p`, from 1 to `end - p`; 0 when `p` is the end.
int nxl_mb_len(const char* p, const char* end);

/// The characters between `p` and `end`.
int nxl_mb_count(const char* p, const char* end);

/// The character after the one at `p`; `end` at the end.
const char* nxl_mb_next(const char* p, const char* end);

/// The character before `p` in the text that begins at `start`; `start` at the start. Takes time in proportion to the
/// distance, since only from the start it is sure where characters begin.
const char* nxl_mb_prev(const char* start, const char* p);

/// Writes NUL-terminated `src` in upper or lower case to `dst`, terminated, and returns the bytes written, the
/// terminator included. Only whole characters are written; what does not fit is dropped. 0 when `dst_len` is 0 or less.
int nxl_str_upper(const char* src, char* dst, int dst_len);
int nxl_str_lower(const char* src, char* dst, int dst_len);

/// Compares NUL-terminated texts without regard to case: below, equal to or above 0. Characters compare by code.
int nxl_str_casecmp(const char* a, const char* b);

/// The same for at most `n` characters of each.
int nxl_str_ncasecmp(const char* a, const char* b, int n);

/// Copies NUL-terminated wide text, cut to `dst_len` - 1 and terminated; returns the characters written, the terminator
/// included. 0 when `dst_len` is 0 or less.
int nxl_wcs_copy(const wchar_t* src, wchar_t* dst, int dst_len);

/// Compares NUL-terminated wide texts by code: below, equal to or above 0; the second without regard to case.
int nxl_wcs_cmp(const wchar_t* a, const wchar_t* b);
int nxl_wcs_casecmp(const wchar_t* a, const wchar_t* b);

/// Finds the message catalogue `name`. The templates of `NLSPATH` are tried first, then NXLDIR/msg/%L/%N.cat,
/// NXLDIR/msg/%l/%N.cat and NXLDIR/msg/C/%N.cat; %N stands for the name, %L for the locale of the messages (`LC_ALL`,
/// `LC_MESSAGES`, `LANG`, else "C"), %l, %t and %c for its language, territory and codeset, %% for a percent sign
/// (POSIX, environment variable NLSPATH). Writes the path of the first file that can be read and returns 0; returns 1,
/// and leaves `buf` empty, when there is none or its path does not fit. Paths of 256 bytes and more are left out, and
/// so is a locale that contains a slash.
int nxl_msg_path(const char* name, char* buf, int len);

#endif  // QUILLON_CODESET_ULS_H_
