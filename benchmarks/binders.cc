#include "benchmarks/binders.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace quillon {

namespace {

class Floor : public Binder {
 public:
  std::size_t bindAll(std::string_view text) override {
    text_ = text;
    return countLines(text, [this](std::string_view line) { return findWords(line) > 0; });
  }

 private:
  static constexpr std::size_t kMostEdges = 1024;

  /// Puts where words begin and end, in turn, into `edges_`.
  std::size_t findWords(std::string_view line) {
    std::size_t count = 0;
    std::uint64_t before = 1;  // as if a blank stood in front
    std::size_t at = 0;
    for (; at < line.size(); at += 64) {
      std::uint64_t blanks = blanksIn(line.data() + at);
      if (line.size() - at < 64) blanks |= ~std::uint64_t{0} << (line.size() - at);
      std::uint64_t edges = blanks ^ (blanks << 1 | before);
      before = blanks >> 63;
      for (; edges != 0 && count < kMostEdges; edges &= edges - 1) {
        edges_[count++] = static_cast<std::uint32_t>(at) + static_cast<std::uint32_t>(std::countr_zero(edges));
      }
    }
    return count;
  }

  /// One bit for each of 64 bytes from `place`, as far as the text goes.
  std::uint64_t blanksIn(const char* place) const {
    char last[64] = {};
    const auto left = static_cast<std::size_t>(text_.data() + text_.size() - place);
    if (left < sizeof last) {
      std::memcpy(last, place, left);
      place = last;
    }
    std::uint64_t bits = 0;
#ifdef __SSE2__
    for (int part = 0; part < 4; ++part) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(place) + part);
      const __m128i fromTab = _mm_sub_epi8(bytes, _mm_set1_epi8('\t'));
      const __m128i inRange = _mm_cmpeq_epi8(_mm_min_epu8(fromTab, _mm_set1_epi8('\r' - '\t')), fromTab);
      const __m128i space = _mm_or_si128(_mm_andnot_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n')), inRange),
                                         _mm_cmpeq_epi8(bytes, _mm_set1_epi8(' ')));
      bits |= static_cast<std::uint64_t>(static_cast<std::uint16_t>(_mm_movemask_epi8(space))) << (16 * part);
    }
#else
    for (int i = 0; i < 64; ++i) {
      const char c = place[i];
      bits |= static_cast<std::uint64_t>(c == ' ' || (c >= '\t' && c <= '\r' && c != '\n')) << i;
    }
#endif
    return bits;
  }

  std::string_view text_;
  std::uint32_t edges_[kMostEdges] = {};
};

class EngineBinder : public Binder {
 public:
  explicit EngineBinder(const LogDriver& driver) : matcher_(FormatSet::make(driver)) {}
  std::size_t bindAll(std::string_view text) override {
    return countLines(text, [this](std::string_view line) { return matcher_.bind(line) != nullptr; });
  }

 private:
  Matcher matcher_;
};

class Plain : public Binder {
 public:
  explicit Plain(const LogDriver& driver) : driver_(driver) {}
  std::size_t bindAll(std::string_view text) override {
    return countLines(text, [this](std::string_view line) {
      line_ = line;
      SysLogMsg message = FormatSpec::toUtf8(line_.c_str(), 0);
      for (FormatSpec* format : driver_.getFormats()) {
        if (format->bindConverted(message)) return true;
      }
      return false;
    });
  }

 private:
  const LogDriver& driver_;
  std::string line_;
};

}  // namespace

std::unique_ptr<Binder> makeFloor() { return std::make_unique<Floor>(); }
std::unique_ptr<Binder> makeEngine(const LogDriver& driver) { return std::make_unique<EngineBinder>(driver); }
std::unique_ptr<Binder> makePlain(const LogDriver& driver) { return std::make_unique<Plain>(driver); }

}  // namespace quillon
