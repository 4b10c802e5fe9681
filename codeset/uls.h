#ifndef QUILLON_CODESET_ULS_H_
#define QUILLON_CODESET_ULS_H_

#include <cwchar>

#include "codeset/codeset.h"

/// String helpers for text in any codeset and for wide text, and the way to message catalogues. Those that take a
/// codeset or the length of wide text, and the classes, are a library of their own, quillon_codeset_text, since they
/// need libunistring; whoever only converts does not.
///
/// Texts. A text is a pointer and its length: bytes in the codeset `cs` (null: the process default, which is set up on
/// first use), wchar_t for wide text, which is UTF-32. A negative length means NUL-terminated, a null pointer is the
/// empty text. Texts must be shorter than 2 GiB. All places in a text are offsets from its start, in the same units.
///
/// Characters. Wherever a character begins is found by the codeset's own rules, so that a second byte that looks like
/// ASCII (the 5C of Shift_JIS) is never taken for a character. A piece that is no character of the codeset counts as
/// one character, of the bytes that the converters replace by one "?", or one byte where the end of the text cuts it
/// off; it is copied as it is, has no case and no class, and equals the same bytes alone. Text that passes through
/// unconverted (kPassThroughKind) is read as UTF-8. In mixed EBCDIC a text begins in the single-byte state; a
/// shift-out belongs to the character after it, a shift-in to the one before; results shift no more than they must and
/// end in the single-byte state.
///
/// Results. What is written to `dst` consists of whole characters and takes at most `dst_len`; what does not fit is
/// dropped. The function returns what was written. When the source is NUL-terminated so is the result, and the
/// terminator counts. With a null `dst` nothing is written, and the result is what the whole would take. 0 when
/// `dst_len` is 0 or less. `dst` may be the source where nothing else is said, but must not overlap it otherwise.
///
/// Case and classes follow the Unicode Standard, version 14 (libunistring 1.0): full mappings, so that one character
/// may become several ("ß" "SS") and a capital sigma depends on its place (SpecialCasing.txt); full folding
/// (CaseFolding.txt) where case is ignored. The language of `LC_ALL`, `LC_CTYPE` or `LANG` counts, whether the C
/// library has that locale or not: it makes a difference for tr, az and lt. A character whose counterpart the codeset
/// does not have stays as it is.
///
/// Nothing is kept between calls but the process default, and `cs` is only read: threads may share a codeset, though
/// the first use of the default belongs to one of them, and none may change the environment meanwhile.

/// A number no character has: what a piece of text is that is no character.
inline constexpr wchar_t kNoWideCharacter = -1;

/// Bytes of the first character; 0 for the empty text.
int nxl_mb_len(nxl_cs* cs, const char* text, int len);

/// The characters of a text.
int nxl_mb_count(nxl_cs* cs, const char* text, int len);

/// 1 when every byte is part of a character, else 0; in mixed EBCDIC a text must end in the single-byte state too.
/// `where` may be null and gets the offset of the first piece that is no character, or the length.
int nxl_mb_valid(nxl_cs* cs, const char* text, int len, int* where);

/// The place of the character after the one at `at`; the length at the end. `c` may be null and gets the character at
/// `at`: its Unicode number, kNoWideCharacter for what is none, 0 at the end. In mixed EBCDIC this takes time in
/// proportion to `at`, since only from the start the shift state is sure: convert a long text to wide to walk in it.
int nxl_mb_next(nxl_cs* cs, const char* text, int len, int at, wchar_t* c);

/// The place of the character before `at`, a place between characters; 0 at the start. Goes back no further than it
/// must to be sure where characters begin: in UTF-8 and single bytes no further than the character, in double-byte
/// codesets to a byte below 0x80, in GB 18030 and multi-byte ones below 0x30 (no codeset in use continues a character
/// with such a byte), in mixed EBCDIC to the start.
int nxl_mb_prev(nxl_cs* cs, const char* text, int len, int at);

/// Copies a text; within itself it cuts it to `dst_len`.
int nxl_str_copy(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);

/// Adds `src`, which is another text, behind the NUL-terminated text in `dst`, and terminates the result in any case.
/// Returns what `dst` then holds, the terminator included; 0, and changes nothing, when `dst` has no terminator in its
/// `dst_len` bytes. A null `dst` is an empty one.
int nxl_str_append(nxl_cs* cs, char* dst, int dst_len, const char* src, int src_len);

/// The place of the first or last character `c` of a text; -1 when there is none.
int nxl_str_chr(nxl_cs* cs, const char* text, int len, wchar_t c);
int nxl_str_rchr(nxl_cs* cs, const char* text, int len, wchar_t c);

/// The place where `part` stands first in a text, from one character's start to another's end; -1 when it does not, -2
/// when memory is short. `found_len` may be null and gets the bytes found there, which need not be as many as `part`
/// has where case is ignored: "STRASSE" stands in "die Straße". Takes time in proportion to both texts (Knuth, Morris
/// and Pratt, "Fast pattern matching in strings", 1977), and memory for `part`.
int nxl_str_find(nxl_cs* cs, const char* text, int len, const char* part, int part_len, int* found_len);
int nxl_str_casefind(nxl_cs* cs, const char* text, int len, const char* part, int part_len, int* found_len);

/// Bytes of the longest start of a text that consists of characters of `set`, or of none of them. Takes time in
/// proportion to both texts multiplied.
int nxl_str_span(nxl_cs* cs, const char* text, int len, const char* set, int set_len);
int nxl_str_cspan(nxl_cs* cs, const char* text, int len, const char* set, int set_len);

/// Compares texts by the Unicode numbers of their characters: -1, 0 or 1. What is no character comes after all that
/// are. The forms with an `n` compare at most `n` characters of each; those with "case" ignore case.
int nxl_str_cmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len);
int nxl_str_ncmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len, int n);
int nxl_str_casecmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len);
int nxl_str_ncasecmp(nxl_cs* cs, const char* a, int a_len, const char* b, int b_len, int n);

/// Writes a text in upper or lower case, or folded: two texts are equal without regard to case when their folded forms
/// are equal, unless the codeset lacks characters of these. `dst` is not `src`.
int nxl_str_upper(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);
int nxl_str_lower(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);
int nxl_str_fold(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);

/// Columns of a text on a terminal with characters of fixed width (Unicode Standard Annex #11): 2 for a wide character,
/// 0 for what combines with the one before and for controls, 1 for all else. Characters of ambiguous width are wide
/// where they take several bytes of a double-byte, multi-byte or mixed codeset.
int nxl_str_width(nxl_cs* cs, const char* text, int len);

/// Converts to wide text and back, as nxl_to_ucs2() and nxl_from_ucs2() do for UCS-2. What has no counterpart becomes
/// "?"; every character makes one wchar_t.
int nxl_to_wcs(nxl_cs* cs, const char* src, int src_len, wchar_t* dst, int dst_len);
int nxl_from_wcs(nxl_cs* cs, const wchar_t* src, int src_len, char* dst, int dst_len);

/// The same for wide text, where every wchar_t is a character and a place between characters. One that Unicode does
/// not have (a surrogate, a number above 10FFFF) is a piece that is no character.
int nxl_wcs_len(const wchar_t* text);
int nxl_wcs_valid(const wchar_t* text, int len, int* where);
int nxl_wcs_copy(const wchar_t* src, int src_len, wchar_t* dst, int dst_len);
int nxl_wcs_append(wchar_t* dst, int dst_len, const wchar_t* src, int src_len);
int nxl_wcs_chr(const wchar_t* text, int len, wchar_t c);
int nxl_wcs_rchr(const wchar_t* text, int len, wchar_t c);
int nxl_wcs_find(const wchar_t* text, int len, const wchar_t* part, int part_len, int* found_len);
int nxl_wcs_casefind(const wchar_t* text, int len, const wchar_t* part, int part_len, int* found_len);
int nxl_wcs_span(const wchar_t* text, int len, const wchar_t* set, int set_len);
int nxl_wcs_cspan(const wchar_t* text, int len, const wchar_t* set, int set_len);
int nxl_wcs_cmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len);
int nxl_wcs_ncmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len, int n);
int nxl_wcs_casecmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len);
int nxl_wcs_ncasecmp(const wchar_t* a, int a_len, const wchar_t* b, int b_len, int n);
int nxl_wcs_upper(const wchar_t* src, int src_len, wchar_t* dst, int dst_len);
int nxl_wcs_lower(const wchar_t* src, int src_len, wchar_t* dst, int dst_len);
int nxl_wcs_fold(const wchar_t* src, int src_len, wchar_t* dst, int dst_len);
int nxl_wcs_width(const wchar_t* text, int len);

/// The classes of characters, as Unicode Technical Standard #18, Annex C, recommends them.
enum NxlClass {
  kAlnumClass,
  kAlphaClass,
  kBlankClass,
  kCntrlClass,
  kDigitClass,  ///< Decimal digits of any script.
  kGraphClass,
  kLowerClass,
  kPrintClass,
  kPunctClass,
  kSpaceClass,
  kUpperClass,
  kXdigitClass,
};

/// 1 when a character is of the class, else 0.
int nxl_wc_is(wchar_t c, NxlClass which);

/// A character's counterpart in upper or lower case where that is one character, else the character itself
/// (UnicodeData.txt); no language counts.
wchar_t nxl_wc_upper(wchar_t c);
wchar_t nxl_wc_lower(wchar_t c);

/// Text of the process locale, for which no codeset is named: what is a character and what its counterpart is, one for
/// one, are the C library's answers. They are in the library quillon_codeset. The first use sets the services up, and
/// so the locale, unless the program has called setlocale() itself. What is no character is single bytes. `end` is the
/// end of the text, all other texts are NUL-terminated.

/// Bytes of the character at `p`, 0 at the end; the characters up to `end`; the character after and before the one at
/// `p`, `end` and `start` where there is none. The last takes time in proportion to the distance.
int nxl_mb_len(const char* p, const char* end);
int nxl_mb_count(const char* p, const char* end);
const char* nxl_mb_next(const char* p, const char* end);
const char* nxl_mb_prev(const char* start, const char* p);

/// Writes whole characters of a text in upper or lower case and a terminator, and returns the bytes, the terminator
/// included. What does not fit is dropped. 0 when `dst_len` is 0 or less.
int nxl_str_upper(const char* src, char* dst, int dst_len);
int nxl_str_lower(const char* src, char* dst, int dst_len);

/// Compares without regard to case, by the numbers of the lower case: below, equal to or above 0. The second compares
/// at most `n` characters of each.
int nxl_str_casecmp(const char* a, const char* b);
int nxl_str_ncasecmp(const char* a, const char* b, int n);

/// The same for wide text. The copy is cut to `dst_len` - 1; the first comparison is by numbers.
int nxl_wcs_copy(const wchar_t* src, wchar_t* dst, int dst_len);
int nxl_wcs_cmp(const wchar_t* a, const wchar_t* b);
int nxl_wcs_casecmp(const wchar_t* a, const wchar_t* b);

/// Finds the message catalogue `name`. The templates of `NLSPATH` are tried first, then NXLDIR/msg/%L/%N.cat and
/// NXLDIR/msg/C/%N.cat; %N stands for the name, %L for the locale of the messages (`LC_ALL`, `LC_MESSAGES`, `LANG`,
/// else "C"), %l, %t and %c for its language, territory and codeset, %% for a percent sign (POSIX, environment variable
/// NLSPATH). A template with %L is tried with each name that the locale xx_YY.codeset@modifier has: as it is, then
/// xx_YY.codeset, xx_YY and xx. Writes the path of the first file that can be read and returns 0; returns 1, and leaves
/// `buf` empty, when there is none or its path does not fit, 2 when memory is short. Paths of 256 bytes and more are
/// left out, and a locale that contains a slash is "C". This too is in the library quillon_codeset.
int nxl_msg_path(const char* name, char* buf, int len);

#endif  // QUILLON_CODESET_ULS_H_
