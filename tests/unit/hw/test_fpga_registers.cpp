// The register map's own rules; its rows are compared with tests/contract.
#include "hw/fpga_registers.h"

#include <gmock/gmock.h>

#include <iterator>
#include <set>
#include <string>

namespace {

TEST(FpgaRegisters, addresses_are_even_and_rise) {
  int previous = -2;
  for (const FpgaRegister& one : kFpgaRegisters) {
    EXPECT_EQ(one.address % 2, 0) << one.name;
    EXPECT_GT(one.address, previous) << one.name;
    previous = one.address;
  }
}

TEST(FpgaRegisters, names_are_unique_and_every_row_says_what_it_is) {
  std::set<std::string> names;
  for (const FpgaRegister& one : kFpgaRegisters) {
    EXPECT_TRUE(names.insert(one.name).second) << one.name;
    EXPECT_FALSE(std::string(one.name).empty());
    EXPECT_FALSE(std::string(one.meaning).empty()) << one.name;
  }
}

struct Label {
  const char* name;
  int address;
};

// The labels under which the program prints a register are its name here.
TEST(FpgaRegisters, printed_labels_name_their_register) {
  constexpr Label kLabels[] = {
      {"AUDIO_STATUS_REG", 0x00C},
      {"VI_BUFF", 0x060},
      {"AU_BUFF", 0x080},
      {"P0_DTS_INIT_REG", 0x208},
      {"P0_MPEG2_STATUS_REG", 0x214},
      {"P1_AC3_CTRL_REG", 0x224},
      {"P1_DTS_INIT_REG", 0x228},
      {"P1_AC3_STATUS_REG", 0x234},
      {"TS_MUX_STATUS_REGISTER", 0x1380},
      {"TS_MUX_STATUS_REG", 0x1384},
  };
  for (const Label& label : kLabels) {
    bool found = false;
    for (const FpgaRegister& one : kFpgaRegisters)
      found = found || (one.address == label.address && std::string(one.name) == label.name);
    EXPECT_TRUE(found) << label.name;
  }
}

TEST(FpgaRegisters, captured_header_ends_at_0x7f8) {
  EXPECT_EQ(kRegAc3Sync + (kAc3CaptureWords - 1) * kAc3CaptureStride, 0x7F8);
}

TEST(FpgaRegisters, constants_of_the_video_control_word) {
  EXPECT_EQ(kVideoControlH264, 0x0100);
  EXPECT_EQ(kVideoControlMpeg2Captions, 0x2000);
  EXPECT_EQ(kVideoControlSdDecoder, 0x4000);
  EXPECT_EQ(kFrameClock, 1'440'000);
}

}  // namespace
