// Random sequences of what happens to logs, judged by a model: QUILLON_SEQUENCES of them (2000), or as many as go into
// QUILLON_SOAK_SECONDS, from QUILLON_SEED (1) on, which a failure names. QUILLON_STEPS is a sequence by itself, as a
// failure prints it.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/source/file_model.h"
#include "tests/support/scratch.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

std::uint64_t numberFrom(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

TEST(FileModel, EveryLineArrives) {
  const ScratchDirectory memory(inMemory()), disk;
  const std::uint64_t seconds = numberFrom("QUILLON_SOAK_SECONDS", 0);
  const std::uint64_t first = numberFrom("QUILLON_SEED", 1);
  const std::uint64_t count = numberFrom("QUILLON_SEQUENCES", 2000);
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  std::uint64_t lines = 0;
  std::uint64_t excused = 0;
  std::uint64_t seed = first;
  for (; seconds ? std::chrono::steady_clock::now() < until : seed < first + count; ++seed) {
    // On disk the number of a file that was deleted is given to the next one, in memory it is not.
    const fs::path& directory = (seed % 32 == 0 ? disk : memory).path();
    const char* const steps = std::getenv("QUILLON_STEPS");
    const FileSequence sequence = steps ? FileSequence::parse(steps) : FileSequence::random(seed);
    const FileVerdict verdict = runFileSequence(sequence, directory);
    lines += verdict.lines;
    excused += verdict.excused;
    if (!verdict.fault.empty()) {
      const FileSequence fewer = minimised(sequence, directory);
      ADD_FAILURE() << "QUILLON_SEED=" << seed << ": " << verdict.fault << '\n'
                    << fewer.toString() << '\n'
                    << runFileSequence(fewer, directory).fault;
      break;
    }
  }
  std::printf("%llu sequences, %llu lines, %llu of them destroyed before they could be read\n",
              static_cast<unsigned long long>(seed - first), static_cast<unsigned long long>(lines),
              static_cast<unsigned long long>(excused));
  EXPECT_LT(excused * 2, lines + 1);  // else this has shown little
}

// What the model has found before, one a line.
TEST(FileModel, OldFaultsStayAway) {
  const char* const sequences[] = {
      "setting 0 : append(1,750) poll(5,363) append(1,699) renameLater(1,606) look(5,527)",
      ("setting 0 : kill(2,126) append(1,750) append(0,682) copy(4,571) stop(5,828) rename(5,705) wait(1,30) "
       "move(2,624) stop(5,16) renameLater(1,606) append(4,501) append(3,587) renameLater(1,650)"),
      "setting 0 : append(4,653) poll(0,618) renameLater(3,744) look(4,783) append(4,803) renameLater(5,752)",
      "setting 1 : append(0,909) poll(3,51) move(2,255) stop(0,854) move(2,516) rewrite(0,700)",
      "setting 2 : part(4,519) wait(0,984) replace(5,860) stop(0,666) rename(5,781)",
      ("setting 2 : append(1,786) look(4,949) move(1,563) stop(2,105) append(1,408) stop(5,756) poll(1,99) stop(2,661) "
       "copy(5,432) delete(3,689) move(1,704) truncate(1,128)"),
      "setting 4 : append(1,440) poll(5,770) rewrite(1,605) renameLater(1,959) wait(2,975)",
      "setting 5 : link(3,862) poll(2,316) keep(4,356) rewrite(2,234) stop(5,467) rewrite(2,18)",
      "setting 23 : append(1,633) poll(0,588) move(5,21) poll(0,691) move(3,772) copy(3,846) delete(1,955)",
      "setting 7 : append(1,218) poll(3,639) copy(1,949) stop(2,997) delete(3,753)",
      "setting 16 : part(1,622) rename(1,795) stop(3,921) append(1,310) replace(1,240) renameLater(3,776)",
      ("setting 16 : poll(4,943) part(0,688) rename(0,754) rename(2,338) wait(4,188) append(0,552) stop(2,983) "
       "rewrite(3,360)"),
      ("setting 1 : append(0,170) rename(0,951) poll(4,535) part(0,620) truncate(0,183) move(4,356) append(0,558) "
       "rename(4,674)"),
      ("setting 22 : append(4,936) poll(2,221) move(5,651) append(1,874) stop(2,43) replace(1,858) renameLater(3,535) "
       "move(3,149)"),
      ("setting 24 : append(1,555) rename(3,393) stop(3,875) append(1,635) rename(1,816) copy(5,376) copy(1,489) "
       "copy(1,730)"),
      "setting 25 : append(3,865) poll(1,500) stop(2,284) copy(2,937) replace(4,529) renameLater(0,274)",
      ("setting 47 : append(3,453) poll(5,701) move(0,116) append(0,289) stop(4,725) delete(4,294) move(0,695) "
       "copy(2,601) delete(4,621)"),
      ("setting 47 : append(3,453) poll(5,701) move(0,116) append(0,289) rename(0,552) stop(4,725) delete(4,294) "
       "move(0,695) copy(2,601) delete(4,621)"),
      "setting 32 : part(1,953) rename(1,369) poll(1,716) replace(1,444) rename(3,301)",
      ("setting 49 : stop(0,914) append(4,342) stop(2,245) rename(3,420) stop(4,617) append(4,814) replace(5,36) "
       "rename(3,731)"),
      "setting 58 : part(1,606) wait(3,409) move(5,321) stop(5,664) move(1,802) copy(5,757) renameLater(3,335)",
      "setting 7 : part(1,393) poll(4,612) copy(5,160) poll(0,769) truncate(4,64) copy(5,192)",
      ("setting 10 : append(3,737) poll(4,517) copy(0,36) rename(0,62) poll(5,452) rename(2,979) rename(0,513) "
       "renameLater(0,113)"),
  };
  const ScratchDirectory memory(inMemory()), disk;
  for (const char* const sequence : sequences) {
    for (const fs::path& directory : {memory.path(), disk.path()})
      EXPECT_EQ("", runFileSequence(FileSequence::parse(sequence), directory).fault) << sequence;
  }
}

}  // namespace
}  // namespace quillon
