#include "src/adapters/logfile/common/utf8_text.h"

#include <gtest/gtest.h>

#include <string>

namespace quillon {
namespace {

// Short texts are converted in place, long ones on the heap; what is UTF-8 already is not copied at all.
TEST(ConvertedText, OfAnyLength) {
  const Codeset ebcdic(nxl_cs_new("INTERNAL37"));
  ASSERT_TRUE(ebcdic);
  for (const std::size_t length : {0UL, 1UL, 332UL, 333UL, 334UL, 500UL, 5000UL}) {
    const ConvertedText converted(nxl_from_utf8, ebcdic.get(), std::string(length, 'a'));
    EXPECT_EQ(std::string(length, '\x81'), converted.text()) << length;
  }
  const std::string source = "a";
  EXPECT_EQ(source.data(), ConvertedText(nxl_to_utf8, nxl_get_utf8_cs(), source).text());
}

}  // namespace
}  // namespace quillon
