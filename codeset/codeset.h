#ifndef QUILLON_CODESET_CODESET_H_
#define QUILLON_CODESET_CODESET_H_

#include <cstdint>
#include <memory>

namespace quillon {
struct Forms;
}

/// The codeset services: which character set the user's text is in, and its conversion to and from UTF-8 and UCS-2.
///
/// Every function reports by its result alone and prints nothing. A null `nxl_cs` stands for the process default.
/// The services set themselves up on first use. Lengths of UTF-8 and of local text are bytes;
/// lengths of UCS-2 text are char16_t units in the machine's byte order. UCS-2 holds the Basic Multilingual Plane
/// only: a character beyond it, and a surrogate, becomes "?".
///
/// Threads: nxl_init() and all that makes, frees or chooses codesets is for one thread, before others convert or after.
/// In between, codesets are only read: any number of threads may convert whole strings, and allocate results, with one
/// and the same codeset, the default included. Who converts piece by piece changes the shift state of the object, and
/// so uses a copy of its own.
///
/// The converters of the single families are in codeset/conv.h, the locale-aware string helpers in codeset/uls.h.

/// Which converter family a codeset belongs to; any other value converts as kPassThroughKind does.
enum NxlKind : std::uint16_t {
  kSingleByteKind = 1,
  kDoubleByteKind = 2,
  kMultiByteKind = 3,
  kMixedEbcdicKind = 4,
  kUtf8Kind = 6,
  kPassThroughKind = 7,
  kEbcdicKind = 8,
  kInternal37Kind = 9,
  kGb18030Kind = 10,
};

/// A codeset with its conversion state. Objects from nxl_cs_new() own their table and live until nxl_cs_free(); two
/// objects never share a table. A plain copy is a second conversion state over the same table: it must not outlive the
/// original and must not be freed.
struct nxl_cs {
  unsigned char* table = nullptr;       ///< The whole table file, allocated with malloc; null for a built-in codeset.
  std::uint16_t kind = 0;               ///< An NxlKind, or whatever the table file says.
  std::uint16_t unused[2] = {};         ///< Zero.
  std::uint16_t table_loaded = 0;       ///< 1 with a table, 0 for a built-in codeset.
  std::uint16_t param_a = 0;            ///< Word at file offset 62.
  std::uint16_t param_b = 0;            ///< Word at file offset 56.
  unsigned char header_bytes[16] = {};  ///< File offsets 64 to 79.
  std::uint8_t state0 = 0;              ///< Zero.
  std::uint8_t state1 = 0;              ///< Shift state of mixed EBCDIC: 0 single-byte, 1 double-byte.
  std::uint32_t table_size = 0;         ///< Bytes at `table`.
  quillon::Forms* forms = nullptr;      ///< Made from the table for speed; may be null.
};

/// Chooses the default codeset (`NXL_CODESET`, else that of the locale, else the table "DEFAULT") and the codeset of
/// the locale (else the table "OSDEFAULT"). Without any of them text passes through unchanged. Sets the process locale
/// from the environment. A second call does nothing. Returns 0.
int nxl_init();

/// Frees the default codeset, also one that the caller has set, and that of the locale; the next use sets the services
/// up again. Returns 0.
int nxl_uninit();

/// A new codeset, or null when no table of that name is found or memory is short. A name with a slash or a backslash
/// is a table file as it stands; any other is normalised and looked up in the alias file first. "UTF8" and
/// "INTERNAL37" are built in. The caller frees the result.
[[nodiscard]] nxl_cs* nxl_cs_new(const char* name);

/// Frees a codeset and its table. Null and the built-in objects are left alone; a codeset in use as the default is
/// replaced there by the pass-through codeset. Returns 0.
int nxl_cs_free(nxl_cs* cs);

/// The table file of a codeset and its size in bytes; null and 0 for a built-in one. The table stays the codeset's.
const unsigned char* nxl_cs_table(nxl_cs* cs, std::uint32_t* size_out);

/// Makes `cs` the default, null the pass-through codeset. The services then free `cs` in nxl_uninit(), unless
/// nxl_cs_free() was there first. Returns 0.
int nxl_set_def_cs(nxl_cs* cs);

/// The default codeset, never null. It stays the services' object.
nxl_cs* nxl_get_def_cs();

/// The built-in UTF-8 codeset, never freed.
nxl_cs* nxl_get_utf8_cs();

/// Writes the normalised name of the locale's codeset, cut to `len` - 1 bytes and terminated. Sets the process locale
/// from the environment. Returns 0.
int nxl_os_cs_name(char* buf, int len);

/// Writes `LANG`, or "C" when it is unset or empty, cut to `len` - 1 bytes and terminated. Returns 0.
int nxl_os_lang_name(char* buf, int len);

/// Writes the canonical form of a locale or language name, cut to `len` - 1 bytes and terminated: the fixed one of a
/// known name, else the first six characters with a hyphen in third place made an underscore. Returns 1 and leaves
/// `buf` empty when anything else in those six is not an ASCII letter.
[[nodiscard]] int nxl_canonical_loc(const char* name, char* buf, int len);
[[nodiscard]] int nxl_canonical_lang(const char* name, char* buf, int len);

/// Converts `src` and returns the units written to `dst`. A negative `src_len` means NUL-terminated; the result is then
/// terminated too, and the terminator is counted. What does not fit is dropped, and so is an incomplete character at
/// the end of `src`. What has no counterpart becomes "?". The shift state of `cs` stays as it was; a result in mixed
/// EBCDIC ends in the single-byte state. Nothing is written, and 0 returned, when `dst_len` is 0 or less; else what is
/// behind the result in `dst` may have been overwritten.
int nxl_to_utf8(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);
int nxl_from_utf8(nxl_cs* cs, const char* src, int src_len, char* dst, int dst_len);
int nxl_to_ucs2(nxl_cs* cs, const char* src, int src_len, char16_t* dst, int dst_len);
int nxl_from_ucs2(nxl_cs* cs, const char16_t* src, int src_len, char* dst, int dst_len);

/// Converts piece by piece. Pointers and counts advance over what was done. Returns
///   0  the source is used up;
///   1  the next character does not fit in the target: `*src` stands on it, call again with a fresh target;
///   2  the source ends within a character: `*src` stands on its first byte, call again with the rest behind it.
/// A null source ends a text: it resets the shift state of `cs` and returns 0. Towards mixed EBCDIC it first writes the
/// shift-in that is still missing, for which the converters always leave room in the target; a null target skips that.
[[nodiscard]] int nxl_to_utf8_r(nxl_cs* cs, const char** src, int* src_left, char** dst, int* dst_left);
[[nodiscard]] int nxl_from_utf8_r(nxl_cs* cs, const char** src, int* src_left, char** dst, int* dst_left);
[[nodiscard]] int nxl_to_ucs2_r(nxl_cs* cs, const char** src, int* src_left, char16_t** dst, int* dst_left);
[[nodiscard]] int nxl_from_ucs2_r(nxl_cs* cs, const char16_t** src, int* src_left, char** dst, int* dst_left);

/// nxl_to_utf8() and nxl_from_utf8() into a new buffer with room for the worst case (3 and 2 bytes for each byte of
/// `src`). `src_len` is not negative; the result is not terminated. Null, and `*out_len` 0, when `src_len` is negative
/// or too large for an int result, or memory is short. nxl_free() releases the buffer.
[[nodiscard]] char* nxl_tou_alloc(nxl_cs* cs, const char* src, int src_len, int* out_len);
[[nodiscard]] char* nxl_fromu_alloc(nxl_cs* cs, const char* src, int src_len, int* out_len);
void nxl_free(void* p);

namespace quillon {

struct FreeCodeset {
  void operator()(nxl_cs* cs) const { nxl_cs_free(cs); }
};

/// A codeset that is freed with its holder.
using Codeset = std::unique_ptr<nxl_cs, FreeCodeset>;

}  // namespace quillon

#endif  // QUILLON_CODESET_CODESET_H_
