#ifndef QUILLON_CODESET_INIT_H_
#define QUILLON_CODESET_INIT_H_

#include <atomic>

#include "codeset/codeset.h"

/// Names of codesets and the process-wide choice of them. One thread at a time: names depend on the process locale,
/// which is set here, and on the environment.

/// Writes the name of the locale's codeset as the platform gives it, "ISO88591" when it gives none; cut to `len` - 1
/// bytes and terminated. Sets the process locale from the environment. `name` is the name that is being resolved; every
/// one resolves to the same codeset here. Returns 1 when `len` is 0.
int get_cs_name(const char* name, char* buf, int len);

/// Normalises a codeset name: upper case, the locale's codeset for "OS", "DOS" and "WIN", a leading "ORB" and all that
/// is not an ASCII letter or digit dropped, cut to `len` - 1 bytes, and replaced by its alias. Returns 1 when `len` is
/// 0.
int get_table_name(const char* name, char* buf, int len);

/// Replaces a normalised name by its alias, cut to `len` - 1 bytes. Returns 1 when there is no alias file, else 0.
int get_alias(char* name, int len);

namespace quillon {

/// The codesets that belong to the process. `nxl_*` functions are the only users.
class Registry {
 public:
  static Registry& instance();

  /// The registry after nxl_init().
  static Registry& initialised();

  void initialise();
  void uninitialise();

  nxl_cs* defaultCodeset() { return def_cs_; }
  nxl_cs* osCodeset() { return &os_cs_; }
  nxl_cs* utf8Codeset() { return &utf8_cs_; }
  void setDefault(nxl_cs* cs) { def_cs_ = cs; }

  bool isBuiltIn(const nxl_cs* cs) const { return cs == &utf8_cs_ || cs == &os_cs_; }

  /// Takes a codeset that is about to be freed out of every slot.
  void forget(const nxl_cs* cs);

 private:
  bool initialised_ = false;
  nxl_cs utf8_cs_{.kind = kUtf8Kind};
  nxl_cs os_cs_{.kind = kPassThroughKind};  ///< Text passes through unchanged; never freed.
  std::atomic<nxl_cs*> def_cs_ = &os_cs_;   ///< May be replaced while others convert.
  nxl_cs* os_loc_cs_ = &os_cs_;
  nxl_cs* initial_cs_ = nullptr;  ///< The default that initialise() made; ours to free after another replaced it.
};

}  // namespace quillon

#endif  // QUILLON_CODESET_INIT_H_
