// The shared byte or word itself.
#include "state/relaxed.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

TEST(Relaxed, starts_at_0_or_at_what_it_is_given) {
  EXPECT_EQ(Relaxed<std::int32_t>().load(), 0);
  EXPECT_EQ(Relaxed<std::uint8_t>{200}.load(), 200);
}

TEST(Relaxed, assignment_stores_and_gives_the_value) {
  Relaxed<std::int32_t> word{1};
  EXPECT_EQ(word = -7, -7);
  EXPECT_EQ(word, -7);
}

TEST(Relaxed, increment_adds_one_and_gives_the_new_value) {
  Relaxed<std::uint32_t> count{41};
  EXPECT_EQ(count.increment(), 42u);
  EXPECT_EQ(count.increment(), 43u);
  EXPECT_EQ(count, 43u);
}

TEST(Relaxed, is_as_wide_as_what_it_holds) {
  EXPECT_EQ(sizeof(Relaxed<std::uint8_t>), 1u);
  EXPECT_EQ(sizeof(Relaxed<std::uint16_t>), 2u);
  EXPECT_EQ(sizeof(Relaxed<std::int32_t>), 4u);
}

}  // namespace
