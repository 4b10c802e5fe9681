// Binding asks for no memory once each kind of message has been seen.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "src/adapters/logfile/match/FormatSet.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/comparison.h"
#include "tests/match/support/set_generator.h"

namespace {
long allocations = 0;
}

// Not inlined, or the compiler sees malloc() and free() in the place of new and delete and takes them for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace quillon {
namespace {

TEST(Engine, AsksForNoMemoryOnceWarm) {
  int bound = 0;
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    SetGenerator generator(seed);
    const FormatsInDriver driver(generator.formats());
    Matcher matcher(FormatSet::make(*driver));
    std::vector<std::string> messages(200);
    for (std::string& message : messages) message = generator.message();
    // More than once: the rooms in which values are put together change places, and each grows on its own.
    for (int round = 0; round < 4; ++round) {
      for (const std::string& message : messages) matcher.bind(message, message.size() % 4 == 0);
    }
    const long before = allocations;
    for (const std::string& message : messages) bound += matcher.bind(message, message.size() % 4 == 0) != nullptr;
    ASSERT_EQ(before, allocations) << "seed " << seed;
  }
  EXPECT_GT(bound, 3000);
}

}  // namespace
}  // namespace quillon
