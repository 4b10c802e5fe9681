#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGUTILS_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGUTILS_H_

#include "foundation/list.h"
#include "foundation/strobj.h"

/// A host that a message named, and what its name resolved to.
struct hostinfo {
  qlStrobj name;
  qlStrobj address;  ///< Dotted decimal, or "???".
};

/// Helpers for the text of messages. What they remember lives as long as the process.
///
/// Threads: init() in any, the rest in one.
class SysLogUtils {
 public:
  /// Makes the empty list of hosts. Called by every format driver; only the first call has an effect.
  static void init();

  /// The dotted-decimal IPv4 address of `host`, or "???" when it cannot be resolved. Each name is asked for once in a
  /// process, so a later change of its address is not seen. The result stays valid. init() must have run.
  static const char* IPaddr(const char* host);

 private:
  static qlList<hostinfo*>* hosts;
  static qlStrobj* unresolved;
};

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_SYSLOGUTILS_H_
