#include <cstdio>

#include "codeset/uls.h"

int main() {
  char text[16];
  nxl_str_upper(nxl_get_utf8_cs(), "stra\u00dfe", -1, text, sizeof text);
  std::puts(text);
}
