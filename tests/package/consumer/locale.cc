#include <cstdio>
#include <cstring>

#include "codeset/uls.h"

/// What of the string helpers needs no other library.
int main() {
  char path[8];
  const char text[] = "\u20ac5";
  std::printf("%d %d\n", nxl_mb_count(text, std::strchr(text, '\0')), nxl_msg_path("none", path, sizeof path));
}
