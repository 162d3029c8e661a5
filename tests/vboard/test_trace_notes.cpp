// What a trace file adds to a clean line for its reader.
#include <gmock/gmock.h>

#include "vboard/core/trace.h"
#include "vboard/models/bus.h"

namespace {

using vboard::trace_note;

TEST(TraceNote, register_access_gives_its_name) {
  EXPECT_EQ(trace_note("fpga wr 0x0204 <- 0x4000"), "VIDEO_CONTROL");
  EXPECT_EQ(trace_note("fpga rd 0x0060 -> 0x01f4"), "VI_BUFF");
  EXPECT_EQ(trace_note("fpga wrblk 0x1000 n=2 <- 00 10"), "PID_VIDEO");
}

TEST(TraceNote, unknown_register_gives_nothing) {
  EXPECT_EQ(trace_note("fpga rd 0x1ffe -> 0x0000"), "");
}

TEST(TraceNote, line_gives_what_it_does) {
  EXPECT_EQ(trace_note("fpga line 26"), "TVP5150 reset");
  EXPECT_EQ(trace_note("fpga line 96"), "audio release");
  EXPECT_EQ(trace_note("fpga line 81"), "");
}

TEST(TraceNote, transfer_gives_the_chip) {
  EXPECT_EQ(trace_note("i2c 5c rd 19 -> aa"), "TVP7002");
  EXPECT_EQ(trace_note("i2c 70 wr 01 39"), "DIX4192");
  EXPECT_EQ(trace_note("i2c 21 rd 00"), "");
  EXPECT_EQ(trace_note("i2c bind 21"), "");
}

// A model knows its address by itself.
TEST(TraceNote, every_chip_has_its_name_at_the_address_of_its_model) {
  const auto note_at = [](int address) {
    char line[16];
    snprintf(line, sizeof line, "i2c %02x rd", static_cast<unsigned>(address));
    return trace_note(line);
  };
#define CHIP(at, chip_name, model)      \
  EXPECT_EQ(vboard::model.address, at); \
  EXPECT_EQ(note_at(vboard::model.address), chip_name);
  VBOARD_CHIPS(CHIP)
#undef CHIP
}

TEST(TraceNote, other_lines_give_nothing) {
  for (const char* clean :
       {"", "fpga", "fpga led 83", "fpga config-line 1", "fpga request 16 = EIO", "wait 1000000",
        "open /dev/fpga r+b", "violation fpga request 99"})
    EXPECT_EQ(trace_note(clean), "") << clean;
}

}  // namespace
