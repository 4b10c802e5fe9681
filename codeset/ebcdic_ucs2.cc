#include "codeset/conv.h"
#include "codeset/ebcdic.h"

using quillon::convert;

int ebcdic_sbcs_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::EbcdicSource, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int ebcdic_sbcs_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::EbcdicTarget>(cs, src, src_end, dst, dst_end);
}

int ebcdic_dbcs_to_ucs2_r(nxl_cs* cs, const char** src, const char* src_end, char16_t** dst, char16_t* dst_end) {
  return convert<quillon::MixedEbcdicSource, quillon::Ucs2Target>(cs, src, src_end, dst, dst_end);
}

int ebcdic_dbcs_from_ucs2_r(nxl_cs* cs, const char16_t** src, const char16_t* src_end, char** dst, char* dst_end) {
  return convert<quillon::Ucs2Source, quillon::MixedEbcdicTarget>(cs, src, src_end, dst, dst_end);
}
