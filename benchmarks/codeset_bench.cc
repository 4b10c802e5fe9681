// The converters beside the C library's iconv, on the same text in the same run. Each case has a twin that ends in
// "/iconv"; bytes a second are bytes of the source.

#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "codeset/codeset.h"

namespace {

constexpr std::size_t kTextBytes = 64 << 10;

// A language as far as conversion goes: how often which characters come. Words are separated by a blank, but for those
// of a "solid" text.
struct Language {
  const char* name;
  std::vector<const char*> frequent;  // nine of ten characters
  std::vector<const char*> rare;
  bool solid = false;
};

const Language kLanguages[] = {
    {"ascii-text", {"a", "e", "i", "o", "n", "r", "s", "t", "0", "1", ":", "["}, {"q", "z", "X"}},
    {"latin-text", {"a", "e", "i", "o", "n", "r", "s", "t", "l", "d", "u"}, {"\u00e9", "\u00fc", "\u00df", "\u00f1"}},
    {"accented-text", {"a", "e", "\u00e9", "\u00fc", "n", "\u00df"}, {"\u00f1", "s"}},
    {"cyrillic-text",
     {"\u0430", "\u0435", "\u0438", "\u043e", "\u043d", "\u0440", "\u0441"},
     {"\u0416", "\u044f", "7"}},
    {"cyrillic-solid", {"\u0430", "\u0435", "\u0438", "\u043e", "\u043d"}, {"\u0416", "\u044f"}, true},
    {"japanese-text",
     {"\u3042", "\u306e", "\u3092", "\u30af", "\u65e5", "\u672c", "\u8a9e"},
     {"\u3001", "\u6f22", "7"}},
    {"japanese-solid", {"\u3042", "\u306e", "\u3092", "\u65e5", "\u672c", "\u8a9e"}, {"\u3001", "\u6f22"}, true},
    {"thai-text", {"\u0e01", "\u0e23", "\u0e19", "\u0e32", "\u0e40", "\u0e48"}, {"\u0e2b", "7"}},
    {"korean-text", {"\uac00", "\ub098", "\ub2e4", "\ud55c", "\uad6d", "\uc5b4"}, {"\ub984", "7"}},
    {"chinese-text", {"\u7684", "\u4e00", "\u662f", "\u4e2d", "\u6587", "\u5b57"}, {"\u570b", "7"}},
};

std::string makeText(const Language& language) {
  std::mt19937 random(42);
  const auto pick = [&random](const std::vector<const char*>& from) { return from[random() % from.size()]; };
  std::string text;
  while (text.size() < kTextBytes) {
    for (std::size_t left = 2 + random() % 9; left > 0; --left)
      text += pick(random() % 10 ? language.frequent : language.rare);
    if (!language.solid) text += random() % 12 ? ' ' : '\n';
  }
  return text;
}

std::string iconvAll(iconv_t descriptor, const std::string& text) {
  std::string result(4 * text.size() + 16, '\0');
  char* in = const_cast<char*>(text.data());
  std::size_t in_left = text.size();
  char* out = result.data();
  std::size_t out_left = result.size();
  iconv(descriptor, &in, &in_left, &out, &out_left);
  iconv(descriptor, nullptr, nullptr, &out, &out_left);
  result.resize(result.size() - out_left);
  return result;
}

struct Case {
  const char *table, *charset, *language;
};

const Case kCases[] = {
    {"UTF8", "UTF-8", "ascii-text"},
    {"UTF8", "UTF-8", "cyrillic-text"},
    {"ISO88591", "ISO-8859-1", "ascii-text"},
    {"ISO88591", "ISO-8859-1", "latin-text"},
    {"ISO88591", "ISO-8859-1", "accented-text"},
    {"1047", "IBM1047", "accented-text"},
    {"CP1252", "CP1252", "latin-text"},
    {"KOI8R", "KOI8-R", "cyrillic-text"},
    {"KOI8R", "KOI8-R", "cyrillic-solid"},
    {"TIS620", "TIS-620", "thai-text"},
    {"SHIFTJIS", "SJIS", "japanese-text"},
    {"SHIFTJIS", "SJIS", "japanese-solid"},
    {"EUCJP", "EUC-JP", "japanese-text"},
    {"EUCKR", "EUC-KR", "korean-text"},
    {"BIG5", "BIG5", "chinese-text"},
    {"EUCTW", "EUC-TW", "chinese-text"},
    {"GBK", "GBK", "chinese-text"},
    {"GB18030", "GB18030", "chinese-text"},
    {"GB18030", "GB18030", "cyrillic-text"},
    {"GB18030", "GB18030", "cyrillic-solid"},
    {"GB18030", "GB18030", "thai-text"},  // four bytes each
    {"1047", "IBM1047", "latin-text"},
    {"939", "IBM939", "japanese-text"},
};

const Language& languageOf(const Case& c) {
  for (const Language& language : kLanguages) {
    if (std::strcmp(language.name, c.language) == 0) return language;
  }
  std::abort();
}

using Convert = int(nxl_cs*, const char*, int, char*, int);

void runOurs(benchmark::State& state, const Case& c, Convert* convert, const std::string& text) {
  nxl_cs* cs = nxl_cs_new(c.table);
  if (!cs) return state.SkipWithError("no table");
  std::string target(4 * text.size() + 16, '\0');
  for (auto _ : state) {
    const int written =
        convert(cs, text.data(), static_cast<int>(text.size()), target.data(), static_cast<int>(target.size()));
    benchmark::DoNotOptimize(written);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
  nxl_cs_free(cs);
}

void runIconv(benchmark::State& state, const std::string& to, const std::string& from, const std::string& text) {
  const iconv_t descriptor = iconv_open(to.c_str(), from.c_str());
  std::string target(4 * text.size() + 16, '\0');
  for (auto _ : state) {
    char* in = const_cast<char*>(text.data());
    std::size_t in_left = text.size();
    char* out = target.data();
    std::size_t out_left = target.size();
    iconv(descriptor, nullptr, nullptr, nullptr, nullptr);
    benchmark::DoNotOptimize(iconv(descriptor, &in, &in_left, &out, &out_left));
    benchmark::ClobberMemory();
    if (in_left != 0) state.SkipWithError("iconv stopped");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
  iconv_close(descriptor);
}

void addCase(const Case& c) {
  const iconv_t encoder = iconv_open(c.charset, "UTF-8");
  if (encoder == reinterpret_cast<iconv_t>(-1)) return;  // this C library does not have it
  const std::string utf8 = makeText(languageOf(c));
  const std::string local = iconvAll(encoder, utf8);
  iconv_close(encoder);
  const std::string tail = std::string(c.table) + "/" + c.language;
  const std::string charset = c.charset;
  benchmark::RegisterBenchmark(("codeset/to_utf8/" + tail).c_str(),
                               [c, local](benchmark::State& state) { runOurs(state, c, nxl_to_utf8, local); });
  benchmark::RegisterBenchmark(("codeset/to_utf8/" + tail + "/iconv").c_str(),
                               [charset, local](benchmark::State& state) { runIconv(state, "UTF-8", charset, local); });
  benchmark::RegisterBenchmark(("codeset/from_utf8/" + tail).c_str(),
                               [c, utf8](benchmark::State& state) { runOurs(state, c, nxl_from_utf8, utf8); });
  benchmark::RegisterBenchmark(("codeset/from_utf8/" + tail + "/iconv").c_str(),
                               [charset, utf8](benchmark::State& state) { runIconv(state, charset, "UTF-8", utf8); });
}

void runMemcpy(benchmark::State& state) {
  const std::string text(kTextBytes, 'a');
  std::string target(kTextBytes, '\0');
  for (auto _ : state) {
    std::memcpy(target.data(), text.data(), text.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

}  // namespace

int main(int argc, char** argv) {
  setenv("NXLDIR", CODESET_DATA, 1);
  benchmark::RegisterBenchmark("codeset/memcpy", runMemcpy);
  for (const Case& c : kCases) addCase(c);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
