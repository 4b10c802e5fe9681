#include "codeset/ascii.h"
#include "codeset/conv.h"

using quillon::convert;

int ascii_sbcs_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::SingleByteSource, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}

int ascii_sbcs_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Utf8Source, quillon::SingleByteTarget>(cs, src, src_end, dst, dst_end);
}

int ascii_dbcs_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::DoubleByteSource, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}

int ascii_dbcs_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Utf8Source, quillon::DoubleByteTarget>(cs, src, src_end, dst, dst_end);
}

int ascii_mbcs_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::MultiByteSource, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}

int ascii_mbcs_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Utf8Source, quillon::MultiByteTarget>(cs, src, src_end, dst, dst_end);
}

int ascii_gb18030_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Gb18030Source, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}

int ascii_gb18030_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Utf8Source, quillon::Gb18030Target>(cs, src, src_end, dst, dst_end);
}
