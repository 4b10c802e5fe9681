#ifndef QUILLON_CODESET_CONV_H_
#define QUILLON_CODESET_CONV_H_

#include "codeset/codeset.h"

/// The converter family: one function for each kind of codeset and direction. nxl_to_utf8_r() and its siblings choose
/// among them by the codeset's kind.
///
/// All follow one contract. Source and target are a pointer, which advances, and an end.
///   0  the whole source is converted;
///   1  the target is full, or the next character does not fit in what is left of it; nothing of it is written and the
///      source stands on it;
///   2  the source ends within a character; the source stands on its first byte.
/// A null source, `src` itself or `*src`, ends a text: the shift state (`state1`) is reset, 0 returned. Only mixed
/// EBCDIC has one.
/// Threads may share a table, not an `nxl_cs`: its shift state changes.
/// What has no counterpart, or no entry in a damaged table, becomes "?"; so does each malformed piece of UTF-8. No
/// table, however damaged, leads to a read outside it.

/// The direction of a converter, named for its source and target.
using NxlToUtf8 = int(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end);
using NxlFromUtf8 = NxlToUtf8;
using NxlToUcs2 = int(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end);
using NxlFromUcs2 = int(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end);

/// The OS codeset. Bytes are copied one for one; as UCS-2 a byte is the unit of the same value, and a unit above 0xFF
/// becomes "?".
NxlToUtf8 os_to_utf8_r;
NxlFromUtf8 os_from_utf8_r;
NxlToUcs2 os_to_ucs2_r;
NxlFromUcs2 os_from_ucs2_r;

/// UTF-8 as it is. Bytes that are not UTF-8 are copied too, so that no text is lost; a well-formed character is never
/// split at the end of the target.
NxlToUtf8 utf8_to_utf8_r;
NxlToUcs2 utf8_to_ucs2_r;
NxlFromUcs2 utf8_from_ucs2_r;

/// Single-byte, double-byte and multi-byte codesets that contain ASCII. A byte sequence without a character is one "?",
/// and never takes a byte below 0x80 with it.
NxlToUtf8 ascii_sbcs_to_utf8_r, ascii_dbcs_to_utf8_r, ascii_mbcs_to_utf8_r;
NxlFromUtf8 ascii_sbcs_from_utf8_r, ascii_dbcs_from_utf8_r, ascii_mbcs_from_utf8_r;
NxlToUcs2 ascii_sbcs_to_ucs2_r, ascii_dbcs_to_ucs2_r, ascii_mbcs_to_ucs2_r;
NxlFromUcs2 ascii_sbcs_from_ucs2_r, ascii_dbcs_from_ucs2_r, ascii_mbcs_from_ucs2_r;

/// GB 18030. The planes beyond the Basic Multilingual Plane convert too, towards UTF-8 and back.
NxlToUtf8 ascii_gb18030_to_utf8_r;
NxlFromUtf8 ascii_gb18030_from_utf8_r;
NxlToUcs2 ascii_gb18030_to_ucs2_r;
NxlFromUcs2 ascii_gb18030_from_ucs2_r;

/// Single-byte EBCDIC, through the table alone; "INTERNAL37" through the invariant set alone.
NxlToUtf8 ebcdic_sbcs_to_utf8_r;
NxlFromUtf8 ebcdic_sbcs_from_utf8_r;
NxlToUcs2 ebcdic_sbcs_to_ucs2_r;
NxlFromUcs2 ebcdic_sbcs_from_ucs2_r;

/// Mixed EBCDIC, with shift-out and shift-in. Characters of the invariant set convert through it, all others through
/// the table. Towards EBCDIC, a double-byte character is written only where one more byte fits behind it: the flush can
/// always add the last shift-in to the same target. Such a target must have four bytes to get on.
NxlToUtf8 ebcdic_dbcs_to_utf8_r;
NxlFromUtf8 ebcdic_dbcs_from_utf8_r;
NxlToUcs2 ebcdic_dbcs_to_ucs2_r;
NxlFromUcs2 ebcdic_dbcs_from_ucs2_r;

#endif  // QUILLON_CODESET_CONV_H_
