#ifndef QUILLON_CODESET_TABLES_H_
#define QUILLON_CODESET_TABLES_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "codeset/codeset.h"

/// Finding and reading table files; doc/codeset-tables.md describes their layout. One thread at a time.

/// The buffer for every path. One byte more than a path and its terminator take stays free.
inline constexpr int kPathBytes = 256;

/// Searches the table directories: NXLDIR/codeset, NXLDIR, BINDIR/../generic/codeset and the current directory, unless
/// setTableSearch() has said otherwise. Returns the table (release with std::free) and its size, or null and 0.
[[nodiscard]] unsigned char* get_table(const char* name, std::uint32_t* size_out);

/// Loads the table `name` from one directory, following redirection files, five files in all. `dir` ends in "/" or is
/// empty. Result as get_table(). Only regular files of at most 64 MiB are read. The first call in the process also
/// looks for a file "930variant" in the directory, which takes the lower-case letters out of the EBCDIC invariant set.
[[nodiscard]] unsigned char* load_table(const char* dir, const char* name, std::uint32_t* size_out);

/// A codeset for an already normalised name, or null. Release with nxl_cs_free().
[[nodiscard]] nxl_cs* cs_new(const char* name);

namespace quillon {

/// A codeset over a table of at least kMinTableBytes, allocated with malloc, which it takes; null, and the table freed,
/// when memory is short.
[[nodiscard]] nxl_cs* codesetOf(unsigned char* table, std::uint32_t size);

/// Where tables and the alias file are looked for besides what the environment names. As it stands here, the current
/// directory is always the last place, which `quillon` has promised its users. It also means that a file that happens
/// to lie there, named "aliases" or like a codeset, changes what texts mean; other programs therefore look there only
/// where NXLDIR names no place. A name with a slash or a backslash says itself where, and is found from there always.
struct TableSearch {
  bool always_current_directory = true;

  /// Takes the place of NXLDIR where that is unset or empty, such as the directory of the installed tables; none when
  /// empty. The current directory still comes last then.
  std::string instead_of_nxldir;
};

/// Sets the search for the rest of the process. To be called by a program's main, before anything else here.
void setTableSearch(TableSearch search);

/// The directory that NXLDIR names, or what stands in for it; "" when there is none.
const char* tablePlace();

/// True when the current directory belongs to the search.
bool searchesCurrentDirectory();

/// The table directories in the order of search, each ready to be followed by a file name; the current directory is "".
/// A directory whose path is too long is left out.
std::vector<std::string> tableDirectories();

/// Opens a regular file for reading; null for anything else, without waiting for a FIFO's writer.
[[nodiscard]] std::FILE* openRegularFile(const char* path);

/// Writes a path in printf style into `path`; false when it does not fit.
[[nodiscard, gnu::format(printf, 2, 3)]] bool formatPath(char (&path)[kPathBytes], const char* format, ...);

/// The value of an environment variable, "" when it is unset.
const char* environmentOrEmpty(const char* name);

/// The name of the locale that the environment gives for a category: the value of LC_ALL, of `category` or of LANG, the
/// first that is set and not empty; else "C".
const char* localeName(const char* category);

}  // namespace quillon

#endif  // QUILLON_CODESET_TABLES_H_
