// PIDs and A/V sync.
#include "config/transport_stream.h"

#include <gmock/gmock.h>

#include <climits>
#include <string>

#include "hw/fpga.h"
#include "state/fpgaregs.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;

using Handler = int (*)(const std::int32_t*, std::int32_t);
int call(Handler handler, std::int32_t value) { return handler(&value, 0); }

// ---- A/V sync ---------------------------------------------------------------------------

struct Sync {
  const char* name;
  std::uint8_t path;
  std::int32_t milliseconds;
  std::int32_t kept;
};

class AvSync : public testing::TestWithParam<Sync> {};

TEST_P(AvSync, is_kept_in_ticks_of_the_path) {
  Bench bench;
  fpgaregs.AudioInput = GetParam().path;
  EXPECT_EQ(call(SetAVSync, GetParam().milliseconds), 0);
  EXPECT_EQ(fpgaregs.AVSync, GetParam().kept);
  EXPECT_EQ(bench.output(), "SetAVSync " + std::to_string(GetParam().kept) + "\n");
  EXPECT_THAT(bench.trace(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(SetAVSync, AvSync,
                         testing::Values(Sync{"digital_10", 1, 10, 15900},  // 90 * 10 + 15000
                                         Sync{"digital_0", 1, 0, 15000},
                                         Sync{"digital_minus_200", 1, -200, -3000},
                                         Sync{"dsp_10", 2, 10, -6600},  // 90 * 10 - 7500
                                         Sync{"dsp_0", 2, 0, -7500}, Sync{"no_path_10", 0, 10, 10},
                                         Sync{"other_path_minus_3", 3, -3, -3},
                                         // 90 * (2^31 - 1) is -90 in 32 bits.
                                         Sync{"digital_largest_wraps", 1, INT_MAX, 14910},
                                         // 90 * -2^31 is 0 in 32 bits.
                                         Sync{"dsp_smallest_wraps", 2, INT_MIN, -7500}),
                         [](const auto& test) { return std::string(test.param.name); });

// ---- PIDs ---------------------------------------------------------------------------------

// The register device open, with nothing traced yet.
struct OpenDevice {
  Bench bench;
  OpenDevice() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
  }
};

TEST(SetpidVideo, low_sixteen_bits_go_out_low_byte_first) {
  OpenDevice on;
  EXPECT_EQ(call(SetpidVideo, 69632), 0);  // 0x11000
  EXPECT_EQ(fpgaregs.pidVideo, 0x1000);
  EXPECT_EQ(on.bench.output(), "SetpidVideo\n");
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1000 n=2 <- 00 10"));
}

TEST(SetpidAudio, low_sixteen_bits_go_out_low_byte_first) {
  OpenDevice on;
  EXPECT_EQ(call(SetpidAudio, 0x51234), 0);
  EXPECT_EQ(fpgaregs.pidAudio, 0x1234);
  EXPECT_EQ(on.bench.output(), "SetpidAudio\n");
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1004 n=2 <- 34 12"));
}

TEST(SetpidPCR, low_sixteen_bits_go_out_low_byte_first) {
  OpenDevice on;
  EXPECT_EQ(call(SetpidPCR, -1), 0);
  EXPECT_EQ(fpgaregs.pidPCR, 0xFFFF);
  EXPECT_EQ(on.bench.output(), "SetpidPCR\nfpgaregs.pidPCR = 65535\n");
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1320 n=2 <- ff ff"));
}

TEST(Pids, refused_write_is_the_result_and_the_pid_is_kept) {
  OpenDevice on;
  on.bench.world("fault fpga-fail 17");
  EXPECT_EQ(call(SetpidVideo, 33), -1);
  EXPECT_EQ(call(SetpidAudio, 34), -1);
  EXPECT_EQ(call(SetpidPCR, 35), -1);
  EXPECT_EQ(fpgaregs.pidVideo, 33);
  EXPECT_EQ(fpgaregs.pidAudio, 34);
  EXPECT_EQ(fpgaregs.pidPCR, 35);
}

}  // namespace
