#include <gtest/gtest.h>

#include <string>

#include "src/adapters/logfile/source/FileRecord.h"
#include "src/adapters/logfile/source/StateFile.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

TEST(FileRecord, ComesBackAsItWas) {
  FileRecord record;
  record.id = 7;
  record.path = "/var/log/a b=%\n\xFF.log";
  record.place = record.path + ".1";
  record.identity = {.device = ~0ULL, .inode = 2, .born = -3};
  record.offset = 1ULL << 40;
  record.away = true;
  const std::string text = encode(record);
  EXPECT_EQ(std::string::npos, text.find('\n'));
  std::string error;
  const auto back = decodeFileRecord(text, error);
  ASSERT_TRUE(back) << error;
  EXPECT_EQ(text, encode(*back));
  EXPECT_EQ(record.place, back->place);
  EXPECT_EQ(-3, back->identity.born);

  for (std::size_t i = 0; i < text.size(); ++i) {  // each byte counts
    std::string damaged = text;
    damaged[i] = static_cast<char>(damaged[i] ^ 1);
    EXPECT_FALSE(decodeFileRecord(damaged, error)) << damaged;
    EXPECT_FALSE(decodeFileRecord(text.substr(0, i), error));
  }
}

TEST(StateFile, KeepsWhatItWasGiven) {
  const ScratchDirectory directory;
  const std::string path = directory.path() / "state";
  std::string error, trouble;
  auto file = StateFile::open(path, error, trouble);
  ASSERT_TRUE(file) << error;
  EXPECT_FALSE(StateFile::open(path, error, trouble));
  EXPECT_NE(std::string::npos, error.find(std::to_string(getpid()))) << error;
  for (int i = 0; i < 40'000; ++i) {  // more than it lets stand without writing it anew
    ASSERT_TRUE(file->keep("one", {{"key", "value " + std::to_string(i)}, {"long", std::string(50, 'x')}}, false));
  }
  ASSERT_TRUE(file->keep("two", {{"a", "1"}, {"b", "2"}}, true));
  ASSERT_TRUE(file->keep("two", {{"a", ""}}, true));
  file.reset();
  EXPECT_GT(3'000'000U, std::filesystem::file_size(path));

  const auto dump = [&] {
    auto opened = StateFile::open(path, error, trouble);
    std::string all;
    for (const std::string& source : opened->sources()) {
      for (const StateRecord& record : opened->state(source))
        all += source + ' ' + record.key + '=' + record.value + '\n';
    }
    return all;
  };
  const std::string expected = "one key=value 39999\none long=" + std::string(50, 'x') + "\ntwo b=2\n";
  EXPECT_EQ(expected, dump());
  EXPECT_EQ("", trouble);
}

TEST(StateFile, LosesOnlyWhatIsDamaged) {
  const ScratchDirectory directory;
  const std::string path = directory.path() / "state";
  std::string error, trouble;
  auto file = StateFile::open(path, error, trouble);
  for (const char* key : {"a", "b", "c"}) ASSERT_TRUE(file->keep("s", {{key, "value"}}, false));
  file.reset();
  const std::string good = readFile(path);
  for (std::size_t i = 0; i < good.size(); ++i) {
    std::string text = good;
    text[i] = static_cast<char>(text[i] ^ 0x10);
    StateFile::Kept kept;
    EXPECT_FALSE(StateFile::parse(text, kept)) << i;
    EXPECT_LE(2U, kept["s"].size()) << text;
    StateFile::Kept cut;
    static_cast<void>(StateFile::parse(good.substr(0, i), cut));  // it survives it
  }
  writeFile(path, "rubbish");
  EXPECT_TRUE(StateFile::open(path, error, trouble));
  EXPECT_NE("", trouble);
  EXPECT_EQ("rubbish", readFile(path + ".damaged"));
}

}  // namespace
}  // namespace quillon
