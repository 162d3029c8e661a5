// The register map: every register by hand, and the map's own rules.
#include "hw/fpga_registers.h"

#include <gmock/gmock.h>

#include <iterator>
#include <set>
#include <string>

namespace {

constexpr RegAccess R = RegAccess::kRead;
constexpr RegAccess W = RegAccess::kWrite;
constexpr RegAccess RW = RegAccess::kReadWrite;
constexpr RegAccess L = RegAccess::kLatch;

struct Expected {
  int address;
  RegAccess access;
};

constexpr Expected kExpected[] = {
    {0x000, R},  {0x004, W},  {0x008, W},  {0x00C, R},  {0x010, W},  {0x040, L},  {0x044, R},
    {0x048, R},  {0x04C, R},  {0x050, R},  {0x060, R},  {0x064, R},  {0x068, R},  {0x06C, R},
    {0x070, R},  {0x080, R},  {0x084, R},  {0x088, R},  {0x08C, R},  {0x090, R},  {0x094, R},
    {0x098, R},  {0x100, R},  {0x104, R},  {0x108, RW}, {0x120, R},  {0x124, R},  {0x140, W},
    {0x144, W},  {0x148, R},  {0x204, RW}, {0x208, W},  {0x210, W},  {0x214, R},  {0x224, W},
    {0x228, W},  {0x22C, W},  {0x230, W},  {0x234, R},  {0x600, R},  {0x608, R},  {0x60C, R},
    {0x1000, W}, {0x1004, W}, {0x1200, W}, {0x1204, W}, {0x1208, W}, {0x120C, W}, {0x1210, W},
    {0x1214, W}, {0x1218, W}, {0x121C, W}, {0x1300, W}, {0x1304, W}, {0x1308, W}, {0x130C, W},
    {0x1320, W}, {0x1328, W}, {0x132C, W}, {0x1340, R}, {0x1344, R}, {0x1380, R}, {0x1384, R},
    {0x1388, R}, {0x138C, R}, {0x1390, R}, {0x1394, R}, {0x1398, R},
};

TEST(FpgaRegisters, addresses_and_access_are_those_of_the_device) {
  ASSERT_EQ(std::size(kFpgaRegisters), std::size(kExpected));
  for (std::size_t i = 0; i < std::size(kExpected); ++i) {
    EXPECT_EQ(kFpgaRegisters[i].address, kExpected[i].address) << "row " << i;
    EXPECT_EQ(kFpgaRegisters[i].access, kExpected[i].access)
        << "register 0x" << std::hex << kExpected[i].address;
  }
}

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
