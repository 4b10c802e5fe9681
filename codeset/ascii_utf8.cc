#include "codeset/ascii.h"
#include "codeset/conv.h"

using quillon::resolve;
using quillon::SingleByteSource;
using quillon::transcode;
using quillon::Utf8Target;

int ascii_sbcs_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return transcode(resolve(cs), SingleByteSource(resolve(cs)), Utf8Target(), src, src_end, dst, dst_end);
}
