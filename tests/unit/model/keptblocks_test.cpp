// What a thread keeps of the blocks it has freed.
#include "allocations.hpp"
#include "arena.hpp"
#include "keptblocks.hpp"
#include "modeltest.hpp"

#include <algorithm>
#include <cstring>
#include <thread>

using namespace varro2::test;
using varro2::free_kept_blocks;
using varro2::give_back_block;
using varro2::take_block;

namespace {

void *take_and_fill(std::size_t size) {
  void *block = take_block(size);
  std::memset(block, 'x', size);
  return block;
}

void free_one_of(std::size_t size) {
  give_back_block(take_and_fill(size));
}

#if VARRO2_KEEPS_BLOCKS

class KeptBlocks : public ::testing::Test {
 protected:
  // A thread's first block costs memory of its own, for what frees the kept ones at the thread's
  // end.
  void SetUp() override {
    give_back_block(take_block(1500));
    free_kept_blocks();
  }
  void TearDown() override { free_kept_blocks(); }
};

// Whether a block of that size costs an allocation.
bool is_allocated(std::size_t size) {
  void *block = nullptr;
  const bool allocated = allocations_of([&] { block = take_and_fill(size); }) != 0;
  g_free(block);
  return allocated;
}

TEST_F(KeptBlocks, TheOneFreedLastComesFirst) {
  void *const first = take_block(1500);
  void *const second = take_block(1500);
  give_back_block(first);
  give_back_block(second);
  void *const again = take_block(1500);
  EXPECT_EQ(again, second);
  void *const then = take_block(1500);
  EXPECT_EQ(then, first);
  EXPECT_TRUE(is_allocated(1500));
  give_back_block(then);
  give_back_block(again);
}

TEST_F(KeptBlocks, OneThatIsTooSmallStays) {
  free_one_of(1500);
  EXPECT_TRUE(is_allocated(1600));
  EXPECT_FALSE(is_allocated(1500));
}

TEST_F(KeptBlocks, OneThatIsMuchTooLargeStays) {
  free_one_of(1800);
  EXPECT_TRUE(is_allocated(1500));
  EXPECT_FALSE(is_allocated(1700));
}

TEST_F(KeptBlocks, OneBelowOthersIsFound) {
  free_one_of(1500);
  free_one_of(2500);
  free_one_of(3500);
  EXPECT_FALSE(is_allocated(1500));
  EXPECT_FALSE(is_allocated(3500));
  EXPECT_FALSE(is_allocated(2500));
  EXPECT_TRUE(is_allocated(2500));
}

TEST_F(KeptBlocks, TheOldestGoesFirst) {
  const std::size_t held = bytes_held();
  for (const std::size_t size : {1200U, 1500U, 2000U, 2500U, 3500U})
    free_one_of(size);
  EXPECT_TRUE(is_allocated(1200));
  for (const std::size_t size : {1500U, 2000U, 2500U, 3500U})
    EXPECT_FALSE(is_allocated(size));
  EXPECT_EQ(bytes_held(), held);
}

TEST_F(KeptBlocks, SmallAndLargeOnesAreFreedAtOnce) {
  for (const std::size_t size : {1U, 1000U, 4200U, 100'000U}) {
    free_one_of(size);
    EXPECT_TRUE(is_allocated(size)) << size;
  }
  give_back_block(nullptr);
}

TEST_F(KeptBlocks, AContainerIsCopiedIntoTheBlockOfAFormerOne) {
  const auto inspect = new_inspectable(IT_EVENT);
  // So many that it is worth keeping with pointers of four bytes, too.
  for (char key = 'A'; key <= 'P'; ++key)
    add(inspect, std::string(1, key).c_str(), "a value of some bytes");
  OwnedInspectable copy{inspectable_copy(inspect.get(), IT_EVENT)};
  EXPECT_EQ(allocations_of([&] {
              copy.reset();
              copy.reset(inspectable_copy(inspect.get(), IT_EVENT));
            }),
            0U);
  EXPECT_TRUE(inspectable_is_equal(copy.get(), inspect.get()));
}

TEST_F(KeptBlocks, AKeptBlockThatIsFreedAgainEndsTheProcess) {
  void *const block = take_block(1500);
  give_back_block(block);
  EXPECT_DEATH(give_back_block(block), "give_back_block: assertion failed");
}

TEST_F(KeptBlocks, EachThreadHasItsOwn) {
  void *const block = take_block(1500);
  std::thread{[&] {
    give_back_block(block);
    EXPECT_FALSE(is_allocated(1500)); // freed with this
  }}.join();
  EXPECT_TRUE(is_allocated(1500));
}

#endif

// ---- The end of a thread ----

constexpr int rounds = 100;

// Bytes by which the process grew over many threads that did the same, the first few not counted.
template <typename Work>
std::ptrdiff_t growth_over_threads(Work work) {
  for (int warm = 0; warm < 5; ++warm)
    std::thread{work}.join();
  const auto before = static_cast<std::ptrdiff_t>(bytes_held());
  for (int round = 0; round < rounds; ++round)
    std::thread{work}.join();
  return static_cast<std::ptrdiff_t>(bytes_held()) - before;
}

TEST(BlocksOfThread, AreFreedAtItsEnd) {
  EXPECT_LT(growth_over_threads([] {
              for (const std::size_t size : {1500U, 2000U, 3000U, 4000U})
                free_one_of(size);
            }),
            rounds * 1500 / 2);
}

// Frees what it holds at the end of the thread: after what the thread kept has gone, as the first
// block is freed after this was made.
struct FreedLate {
  void *first = nullptr;
  void *second = nullptr;
  ~FreedLate() {
    give_back_block(first);
    give_back_block(second);
    // And one that is made and freed as late as that.
    free_one_of(1500);
  }
};
thread_local FreedLate freed_late;

TEST(BlocksOfThread, AreFreedAlsoAfterItsEnd) {
  EXPECT_LT(growth_over_threads([] {
              freed_late.first = take_and_fill(1500);
              freed_late.second = take_and_fill(2000);
              free_one_of(3000);
            }),
            rounds * 1500 / 2);
}

TEST(BlocksOfThread, GoFromOneToTheOther) {
  constexpr int threads = 8;
  std::vector<std::vector<void *>> made(threads);
  const auto in_all = [&](auto work) {
    std::vector<std::thread> running;
    for (std::size_t number = 0; number < threads; ++number)
      running.emplace_back([&, number] { work(number); });
    for (std::thread &thread : running)
      thread.join();
  };
  for (int turn = 0; turn < 20; ++turn) {
    in_all([&](std::size_t number) {
      for (std::size_t block = 0; block < 200; ++block) {
        const std::size_t size = 1100 + (number * 200 + block) * 7 % 3000;
        void *filled = take_block(size);
        std::memset(filled, static_cast<int>(number), size);
        made[number].push_back(filled);
      }
    });
    in_all([&](std::size_t number) {
      std::vector<void *> &others = made[(number + 1) % threads];
      EXPECT_TRUE(std::all_of(others.begin(), others.end(), [&](void *block) {
        return *static_cast<char *>(block) == static_cast<char>((number + 1) % threads);
      }));
      for (void *block : others)
        give_back_block(block);
      others.clear();
    });
  }
}

} // namespace
