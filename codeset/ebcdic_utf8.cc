#include "codeset/conv.h"
#include "codeset/ebcdic.h"

using quillon::convert;

int ebcdic_sbcs_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::EbcdicSource, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}

int ebcdic_sbcs_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Utf8Source, quillon::EbcdicTarget>(cs, src, src_end, dst, dst_end);
}

int ebcdic_dbcs_to_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::MixedEbcdicSource, quillon::Utf8Target>(cs, src, src_end, dst, dst_end);
}

int ebcdic_dbcs_from_utf8_r(nxl_cs* cs, const char** src, const char* src_end, char** dst, char* dst_end) {
  return convert<quillon::Utf8Source, quillon::MixedEbcdicTarget>(cs, src, src_end, dst, dst_end);
}
