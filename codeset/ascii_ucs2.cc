#include "codeset/ascii.h"
#include "codeset/conv.h"

using quillon::convert;

int ascii_sbcs_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::SingleByteSource, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int ascii_sbcs_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::SingleByteTarget>(cs, src, src_end, dst, dst_end);
}

int ascii_dbcs_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::DoubleByteSource, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int ascii_dbcs_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::DoubleByteTarget>(cs, src, src_end, dst, dst_end);
}

int ascii_mbcs_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::MultiByteSource, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int ascii_mbcs_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::MultiByteTarget>(cs, src, src_end, dst, dst_end);
}

int ascii_gb18030_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::Gb18030Source, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int ascii_gb18030_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::Gb18030Target>(cs, src, src_end, dst, dst_end);
}
