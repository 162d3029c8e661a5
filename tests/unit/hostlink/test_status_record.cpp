// The status record byte by byte, and the version bytes.
#include "hostlink/status_record.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vboard::Bench;

void set_version_text(const std::string& text) {
  for (std::size_t i = 0; i < kVersionTextSize; ++i) ver[i] = i < text.size() ? text[i] : '\0';
}

class StatusRecord : public testing::Test {
 protected:
  StatusRecord() : block(bench.attach_block()) {
    fpga_file = fopen("/dev/fpga", "r+b");
    bench.board().fpga.held = true;
    start_bf_st = 0;
    fpga_hw_version = 0;
    vid_buf_init = 0;
    aud_buf_init = 0;
    set_version_text("");
    clear_status_record();
    bench.trace();
    bench.output();
  }
  ~StatusRecord() override { fclose(fpga_file); }

  void set_word(std::size_t offset, std::uint32_t value) {
    memcpy(reinterpret_cast<char*>(&block) + offset, &value, sizeof value);
  }
  std::vector<int> record(int count) {
    std::vector<int> bytes;
    for (int i = 0; i < count; ++i) bytes.push_back(next_status_record_byte());
    return bytes;
  }
  void let_dsp_play() {
    vboard::Board& board = bench.board();
    board.world.audio = vboard::AudioSource::kDsp;
    board.dsp.running = true;
    board.dsp.peak_left = 0x44332211;
    board.dsp.peak_right = 0xEEDDCCBB;
  }

  Bench bench;
  SharedBlock& block;
};

// ---- the record ------------------------------------------------------------------

TEST_F(StatusRecord, wraps_behind_byte_50_until_the_host_asks_for_all) {
  fpga_hw_version = 0x1234;
  set_word(152, 0x77);
  const std::vector<int> bytes = record(2 * kStatusRecordShort + 1);
  for (const std::size_t start : {0u, 51u, 102u}) EXPECT_EQ(bytes[start], 0x77) << start;
  for (const std::size_t start : {1u, 52u}) EXPECT_EQ(bytes[start], 0x2D) << start;
}

TEST_F(StatusRecord, wraps_behind_byte_103_once_the_host_asked_for_all) {
  EXPECT_EQ(send_whole_status_record(), 104);
  set_word(152, 0x77);
  set_word(284, 0x99000000);  // its high byte is byte 103
  prepare_status_record();
  const std::vector<int> bytes = record(106);
  EXPECT_EQ(bytes[0], 0x77);
  EXPECT_EQ(bytes[103], 0x99);
  EXPECT_EQ(bytes[104], 0x77);
  EXPECT_EQ(bytes[105], 0x2D);
}

TEST_F(StatusRecord, asking_for_all_in_the_middle_goes_on_where_it_was) {
  record(50);
  send_whole_status_record();
  set_word(284, 0x99000000);
  // Bytes 50 to 103, then the first again; no snapshot was taken, so zeros.
  const std::vector<int> bytes = record(55);
  for (std::size_t i = 0; i < 54; ++i) EXPECT_EQ(bytes[i], 0) << "byte " << i + 50;
  set_word(152, 0x77);
  EXPECT_EQ(record(103).back(), 0);
  EXPECT_EQ(record(1).back(), 0x77);
}

TEST_F(StatusRecord, snapshot_starts_the_record_over) {
  set_word(152, 0x77);
  record(20);
  prepare_status_record();
  EXPECT_EQ(next_status_record_byte(), 0x77);
}

// Every byte of the record from a value of its own: byte n of the counters and
// statistics is expected to hold n, or n + 0x80 in the high half of a register.
TEST_F(StatusRecord, each_byte_has_its_source) {
  struct Register {
    int address;
    int value;
  };
  constexpr Register kRegisters[] = {
      {0x44, 0x0605},   {0x48, 0x0807},  // V1: bytes 5-8
      {0x4C, 0x0A09},   {0x50, 0x0C0B},  // V2: 9-12
      {0x60, 0x0E0D},                    // V3: 13-14
      {0x64, 0x100F},   {0x68, 0x1211},  // V4: 15-18
      {0x6C, 0x1413},   {0x70, 0x1615},  // V5: 19-22
      {0x80, 0x1817},                    // V6: 23-24
      {0x84, 0x1A19},   {0x88, 0x1C1B},  // V7: 25-28
      {0x8C, 0x1E1D},   {0x90, 0x201F},  // V8: 29-32
      {0x94, 0x2221},   {0x98, 0x2423},  // V9: 33-36
      {0x1380, 0x3231},                  // V10: 49-50
  };
  for (const Register& one : kRegisters) bench.set_fpga(one.address, one.value);
  struct Word {
    std::size_t offset;
    std::uint32_t value;  // EE: a byte that the record leaves out
  };
  constexpr Word kWords[] = {
      {180, 0xEEEE3433}, {176, 0xEEEE3635}, {184, 0xEEEE3837}, {172, 0xEEEE3A39}, {188, 0xEEEE3C3B},
      {192, 0xEEEE3E3D}, {196, 0xEEEE403F}, {200, 0xEEEE4241}, {204, 0xEEEE4443}, {208, 0xEEEE4645},
      {216, 0xEEEEEE47}, {220, 0xEEEEEE48}, {252, 0xEEEEEE49}, {256, 0xEEEE4B4A}, {224, 0x4F4E4D4C},
      {232, 0x53525150}, {236, 0x57565554}, {212, 0x5B5A5958}, {276, 0x5F5E5D5C}, {280, 0x63626160},
      {284, 0x67666564}, {228, 0xEEEEEEEE}, {152, 0xEEEEEEF0},
  };
  for (const Word& one : kWords) set_word(one.offset, one.value);
  let_dsp_play();
  bench.board().dsp.version = 0x21;
  start_bf_st = 1;
  fpga_hw_version = 0x0203;
  vid_buf_init = 0x2E2D;
  aud_buf_init = 0x302F;
  send_whole_status_record();

  prepare_status_record();
  const std::vector<int> bytes = record(104);

  std::vector<int> expected = {0xF0, 0x2D, 0x02, 0x03, 0x21};
  for (int i = 5; i <= 36; ++i) expected.push_back(i);
  for (const int byte : {0x11, 0x22, 0x33, 0x44, 0xBB, 0xCC, 0xDD, 0xEE})  // P1, P2
    expected.push_back(byte);
  for (int i = 45; i <= 103; ++i) expected.push_back(i);
  EXPECT_EQ(bytes, expected);
}

TEST_F(StatusRecord, before_any_snapshot_its_bytes_are_0) {
  for (const int address : {0x44, 0x4C, 0x60, 0x1380}) bench.set_fpga(address, 0xFFFF);
  for (std::size_t offset = 172; offset <= 284; offset += 4) set_word(offset, 0xFFFFFFFF);
  fpga_hw_version = 0x0117;
  vid_buf_init = 40;
  bench.board().dsp.version = 0x21;
  send_whole_status_record();
  std::vector<int> expected(104, 0);
  expected[1] = 0x2D;
  expected[2] = 0x01;
  expected[3] = 0x17;
  expected[4] = 0x21;
  expected[45] = 40;
  EXPECT_EQ(record(104), expected);
}

TEST_F(StatusRecord, bytes_read_when_sent_follow_the_board_after_the_snapshot) {
  prepare_status_record();
  set_word(152, 0x99);
  fpga_hw_version = 0xABCD;
  vid_buf_init = 0x1122;
  aud_buf_init = 0x3344;
  bench.board().dsp.version = 0x42;
  const std::vector<int> bytes = record(51);
  EXPECT_EQ(bytes[0], 0x99);
  EXPECT_EQ(bytes[2], 0xAB);
  EXPECT_EQ(bytes[3], 0xCD);
  EXPECT_EQ(bytes[4], 0x42);
  EXPECT_EQ(bytes[45], 0x22);
  EXPECT_EQ(bytes[46], 0x11);
  EXPECT_EQ(bytes[47], 0x44);
  EXPECT_EQ(bytes[48], 0x33);
}

TEST_F(StatusRecord, snapshot_bytes_stay_until_the_next_snapshot) {
  bench.set_fpga(0x60, 0x1111);
  set_word(180, 0x2222);
  prepare_status_record();
  bench.set_fpga(0x60, 0x3333);
  set_word(180, 0x4444);
  send_whole_status_record();
  const std::vector<int> bytes = record(104);
  EXPECT_EQ(bytes[13], 0x11);
  EXPECT_EQ(bytes[51], 0x22);
  prepare_status_record();
  EXPECT_EQ(record(104)[51], 0x44);
}

TEST_F(StatusRecord, dsp_version_byte_is_read_and_printed_when_sent) {
  bench.board().dsp.version = 0x21;
  record(4);
  EXPECT_EQ(bench.output(), "");
  record(1);
  EXPECT_EQ(bench.output(),
            "---------------bf version = 0x21 --------------------\n"
            "blkfn=0x21\n");
}

TEST_F(StatusRecord, dsp_that_does_not_answer_gives_the_low_byte_of_minus_2) {
  bench.world("fault dsp-dead");
  EXPECT_EQ(record(5)[4], 0xFE);
}

TEST_F(StatusRecord, block_not_attached_reads_as_0) {
  SharedBlock* const attached = shared_memory;
  shared_memory = nullptr;
  send_whole_status_record();
  prepare_status_record();
  const std::vector<int> bytes = record(104);
  EXPECT_EQ(bytes[0], 0);
  for (std::size_t i = 51; i < 104; ++i) EXPECT_EQ(bytes[i], 0) << i;
  shared_memory = attached;
}

// ---- the snapshot's traffic -----------------------------------------------------------

TEST_F(StatusRecord, snapshot_without_dsp_latches_and_reads_in_order) {
  prepare_status_record();
  EXPECT_THAT(bench.trace(),
              ElementsAre("fpga wr 0x0040 <- 0x0001",  //
                          "fpga rd 0x0044 -> 0x0000", "fpga rd 0x0048 -> 0x0000",
                          "fpga rd 0x004c -> 0x0000", "fpga rd 0x0050 -> 0x0000",
                          "fpga rd 0x0060 -> 0x0000",  //
                          "fpga rd 0x0064 -> 0x0000", "fpga rd 0x0068 -> 0x0000",
                          "fpga rd 0x006c -> 0x0000", "fpga rd 0x0070 -> 0x0000",
                          "fpga rd 0x0080 -> 0x0000",  //
                          "fpga rd 0x0084 -> 0x0000", "fpga rd 0x0088 -> 0x0000",
                          "fpga rd 0x008c -> 0x0000", "fpga rd 0x0090 -> 0x0000",
                          "fpga rd 0x0094 -> 0x0000", "fpga rd 0x0098 -> 0x0000",
                          "fpga rd 0x1380 -> 0x0000"));
  EXPECT_EQ(bench.output(), "get PREPARE_FPGA_REGISTERS .. \nlength=20\n");
}

TEST_F(StatusRecord, running_dsp_is_read_to_its_marker_and_eight_bytes_on) {
  let_dsp_play();
  bench.board().dsp.peak_index = 7;  // two bytes of the last round come before the marker
  start_bf_st = 1;
  prepare_status_record();
  const std::vector<std::string> bytes = bench.trace({"i2c 1c rd"});
  EXPECT_THAT(
      bytes, ElementsAre("i2c 1c rd -> dd", "i2c 1c rd -> ee", "i2c 1c rd -> ab", "i2c 1c rd -> 11",
                         "i2c 1c rd -> 22", "i2c 1c rd -> 33", "i2c 1c rd -> 44", "i2c 1c rd -> bb",
                         "i2c 1c rd -> cc", "i2c 1c rd -> dd", "i2c 1c rd -> ee"));
  EXPECT_EQ(bench.output(), "get PREPARE_FPGA_REGISTERS .. \nlength=20\n");
}

// Each byte behind the marker has its pause beside the one that the DSP needs
// between command and answer.
TEST_F(StatusRecord, peak_bytes_are_followed_by_10_us) {
  let_dsp_play();
  start_bf_st = 1;
  prepare_status_record();
  const std::vector<std::string> steps = bench.trace({"close /dev/i2c-1", "wait", "open /dev/i2c"});
  int pauses = 0;
  for (std::size_t i = 0; i + 1 < steps.size(); ++i)
    if (steps[i] == "close /dev/i2c-1" && steps[i + 1] == "wait 10") ++pauses;
  EXPECT_EQ(pauses, 8);
}

TEST_F(StatusRecord, peaks_of_a_stopped_dsp_become_0_again) {
  let_dsp_play();
  start_bf_st = 1;
  prepare_status_record();
  start_bf_st = 0;
  bench.trace();
  prepare_status_record();
  EXPECT_THAT(bench.trace({"i2c", "open"}), testing::IsEmpty());
  const std::vector<int> bytes = record(51);
  for (std::size_t i = 37; i <= 44; ++i) EXPECT_EQ(bytes[i], 0) << i;
}

TEST_F(StatusRecord, dsp_without_a_marker_is_asked_for_ever) {
  bench.world("fault dsp-dead");
  start_bf_st = 1;
  EXPECT_FALSE(bench.run_for(2'000'000, [] { prepare_status_record(); }));
  EXPECT_THAT(bench.output(), testing::Not(HasSubstr("length=20")));
}

// ---- version bytes ------------------------------------------------------------------------

struct Version {
  const char* name;
  const char* text;
  int bytes[3];
};

class VersionText : public StatusRecord, public testing::WithParamInterface<Version> {};

TEST_P(VersionText, gives_three_bytes) {
  set_version_text(GetParam().text);
  for (int group = 0; group < 3; ++group) EXPECT_EQ(version_byte(group), 0) << "no snapshot yet";
  prepare_status_record();
  for (int group = 0; group < 3; ++group)
    EXPECT_EQ(version_byte(group), GetParam().bytes[group]) << group;
}

INSTANTIATE_TEST_SUITE_P(
    StatusRecord, VersionText,
    testing::Values(
        Version{"usual", "1.12.3", {1, 12, 3}}, Version{"line_end_behind", "1.12.3\n", {1, 12, 3}},
        Version{"third_digit_stands_alone", "123.4.5", {3, 4, 5}},
        Version{"fourth_digit_stands_alone", "1234.5.678", {4, 5, 8}},
        Version{"largest_of_two_digits", "99.99.99", {99, 99, 99}},
        Version{"leading_zeros", "01.02.03", {1, 2, 3}}, Version{"empty", "", {0, 0, 0}},  //
        Version{"letter_first", "v1", {0, 0, 0}},
        Version{"letter_behind", "2.13 beta 7", {2, 13, 0}},
        Version{"one_group", "7", {7, 0, 0}},  //
        Version{"empty_group", "1..3", {1, 0, 3}}, Version{"dot_first", ".5.6", {0, 5, 6}},
        Version{"four_groups", "1.2.3.4", {1, 2, 3}},
        Version{"nineteen_characters", "1.2.3.4.5.6.7.8.9.0", {1, 2, 3}},
        Version{"nineteen_digits", "1234567890123456789", {9, 0, 0}},
        Version{"only_dots", "...................", {0, 0, 0}}),
    [](auto& test) { return test.param.name; });

TEST_F(StatusRecord, a_new_start_clears_snapshot_and_version) {
  set_version_text("1.2.3");
  bench.set_fpga(0x60, 0x1111);
  prepare_status_record();
  clear_status_record();
  for (int group = 0; group < 3; ++group) EXPECT_EQ(version_byte(group), 0);
  EXPECT_EQ(record(14)[13], 0);
}

}  // namespace
