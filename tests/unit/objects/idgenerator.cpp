#include "idgenerator.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <latch>
#include <memory>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using OwnedGenerator = std::unique_ptr<IdGenerator, decltype(&idgenerator_free)>;

OwnedGenerator make_generator() {
  return {idgenerator_new(), idgenerator_free};
}

TEST(IdGenerator, CountsFromOne) {
  const auto idgen = make_generator();
  EXPECT_EQ(idgenerator_reserve(idgen.get()), 1u);
  EXPECT_EQ(idgenerator_reserve(idgen.get()), 2u);
  EXPECT_EQ(idgenerator_reserve(idgen.get()), 3u);
}

TEST(IdGenerator, DoesNotHandAReleasedIdOutAgain) {
  const auto idgen = make_generator();
  for (int i = 0; i < 3; ++i)
    idgenerator_reserve(idgen.get());
  idgenerator_release(idgen.get(), 2);
  EXPECT_EQ(idgenerator_reserve(idgen.get()), 4u);
}

TEST(IdGenerator, ReleasesWhatItNeverHandedOut) {
  const auto idgen = make_generator();
  idgenerator_release(idgen.get(), 1);
  idgenerator_release(idgen.get(), 0);
  EXPECT_EQ(idgenerator_reserve(idgen.get()), 1u);
}

TEST(IdGenerator, WrapsPastZeroToOne) {
  IdGenerator idgen{4294967294u};
  EXPECT_EQ(idgenerator_reserve(&idgen), 4294967295u);
  EXPECT_EQ(idgenerator_reserve(&idgen), 1u);
  EXPECT_EQ(idgenerator_reserve(&idgen), 2u);
}

TEST(IdGenerator, SkipsWhatIsInUseUntilItIsReleased) {
  IdGenerator idgen{4294967293u, {4294967295u, 1, 2}};
  idgenerator_release(&idgen, 2);
  EXPECT_EQ(idgenerator_reserve(&idgen), 4294967294u);
  EXPECT_EQ(idgenerator_reserve(&idgen), 2u);
}

TEST(IdGenerator, IsToldOfReleasesWhileItLooksForAnId) {
  constexpr guint32 count = 10000;
  std::unordered_set<guint32> in_use;
  for (guint32 id = 1; id <= count; ++id)
    in_use.insert(id);
  IdGenerator idgen{0, std::move(in_use)};
  std::jthread releasing{[&] {
    for (guint32 id = count; id > 0; --id)
      idgenerator_release(&idgen, id);
  }};
  guint32 last = 0;
  for (guint32 i = 0; i < count; ++i) {
    const guint32 id = idgenerator_reserve(&idgen);
    EXPECT_GT(id, last);
    last = id;
  }
}

TEST(IdGenerator, GivesEveryThreadIdsOfItsOwn) {
  constexpr guint32 threads = 4, each = 100000;
  const auto idgen = make_generator();
  std::array<std::vector<guint32>, threads> ids;
  std::latch all_running{threads};
  {
    std::vector<std::jthread> running;
    for (auto &own : ids)
      running.emplace_back([&] {
        all_running.arrive_and_wait();
        for (guint32 i = 0; i < each; ++i) {
          own.push_back(idgenerator_reserve(idgen.get()));
          idgenerator_release(idgen.get(), own.back());
        }
      });
  }
  std::vector<guint32> all;
  for (const auto &own : ids)
    all.insert(all.end(), own.begin(), own.end());
  std::ranges::sort(all);
  ASSERT_EQ(all.size(), threads * each);
  for (guint32 i = 0; i < all.size(); ++i)
    ASSERT_EQ(all[i], i + 1);
}

TEST(IdGenerator, FreesNull) {
  idgenerator_free(nullptr);
}

TEST(IdGeneratorDeathTest, AbortsWithoutAGenerator) {
  EXPECT_DEATH(idgenerator_reserve(nullptr), "idgenerator_reserve: .*\\(idgen != NULL\\)");
  EXPECT_DEATH(idgenerator_release(nullptr, 1), "idgenerator_release: .*\\(idgen != NULL\\)");
}

} // namespace
