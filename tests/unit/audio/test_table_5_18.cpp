// The frame-size table of ATSC A/52 (Table 5.18), held against its construction
// rule: a sync frame carries 1536 samples, so it has rate x 1536 / sample rate
// bits, in words of 16.
#include "audio/table_5_18.h"

#include <gmock/gmock.h>

#include "tests/unit/audio/audio_bench.h"

namespace {

// Nominal rates in kbit/s; each has an even and an odd code.
constexpr int kRates[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                          192, 224, 256, 320, 384, 448, 512, 576, 640};

TEST(Table518, every_row_follows_the_rule) {
  ASSERT_EQ(kFrameSizeCodes, 38);
  for (int row = 0; row < 38; ++row) {
    SCOPED_TRACE(row);
    const int rate = kRates[row / 2];
    // rate * 1000 * 1536 / 48000 / 16 = rate * 2, and so on. At 44.1 kHz it does
    // not divide: the even code rounds down, the odd code has a word more.
    EXPECT_EQ(Table_5_18[row][1], rate);
    EXPECT_EQ(Table_5_18[row][2], rate * 3);
    EXPECT_EQ(Table_5_18[row][3], rate * 96000 / 44100 + row % 2);
    EXPECT_EQ(Table_5_18[row][4], rate * 2);
  }
}

TEST(Table518, first_column_counts_to_33_and_stays_there) {
  for (int row = 0; row < 38; ++row) EXPECT_EQ(Table_5_18[row][0], row < 33 ? row : 33) << row;
}

TEST(Table518, sample_rows_as_the_standard_prints_them) {
  using testing::ElementsAre;
  EXPECT_THAT(Table_5_18[0], ElementsAre(0, 32, 96, 69, 64));
  EXPECT_THAT(Table_5_18[1], ElementsAre(1, 32, 96, 70, 64));
  EXPECT_THAT(Table_5_18[21], ElementsAre(21, 192, 576, 418, 384));
  EXPECT_THAT(Table_5_18[28], ElementsAre(28, 384, 1152, 835, 768));
  EXPECT_THAT(Table_5_18[37], ElementsAre(33, 640, 1920, 1394, 1280));
}

}  // namespace
