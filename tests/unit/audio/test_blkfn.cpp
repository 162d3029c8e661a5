// The AC-3 DSP: its commands over I2C and the push of its firmware.
#include "audio/blkfn.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// ---- one-byte commands ----------------------------------------------------------

struct CommandRow {
  const char* name;
  std::int32_t (*run)();
  int byte;
  const char* open_error;
};

class BlkfnCommand : public testing::TestWithParam<CommandRow> {};

TEST_P(BlkfnCommand, sends_its_byte) {
  AudioBench audio;
  EXPECT_EQ(GetParam().run(), 0);
  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, line("i2c %02x wr %02x", 0x1C, GetParam().byte), kI2cClose));
  EXPECT_EQ(audio.bench.output(), "");
}

TEST_P(BlkfnCommand, no_bus_gives_minus_1) {
  AudioBench audio;
  audio.bench.world("fault missing i2c");
  EXPECT_EQ(GetParam().run(), -1);
  EXPECT_EQ(audio.bench.output(), GetParam().open_error);
}

TEST_P(BlkfnCommand, failed_write_gives_minus_2_after_one_attempt) {
  AudioBench audio;
  audio.bench.world("fault i2c-fail 1c 1");
  EXPECT_EQ(GetParam().run(), -2);
  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, line("i2c %02x wr %02x = EREMOTEIO", 0x1C, GetParam().byte),
                          kI2cClose));
  EXPECT_EQ(audio.bench.output(), "blkfn i2c error\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, BlkfnCommand,
                         testing::Values(CommandRow{"start", blkfn_start, 0x02,
                                                    "blkfn i2c error : Cannot access I2C device\n"},
                                         CommandRow{"stop", blkfn_stop, 0x04, "blkfn i2c error\n"},
                                         CommandRow{"reset", blkfn_reset, 0x08,
                                                    "blkfn i2c error\n"},
                                         CommandRow{"send_cmd", [] { return blkfn_send_cmd(0x02); },
                                                    0x02, "blkfn i2c error\n"}),
                         [](const auto& row) { return row.param.name; });

TEST(BlkfnSendCmd, any_byte_goes_out) {
  AudioBench audio;
  audio.allowed_violations = 1;  // the DSP knows no such command
  EXPECT_EQ(blkfn_send_cmd(0xA7), 0);
  EXPECT_THAT(audio.bench.trace({"i2c"}), ElementsAre("i2c 1c wr a7"));
}

// ---- configure ---------------------------------------------------------------------

TEST(BlkfnConfigCmd, frame_is_low_byte_first) {
  AudioBench audio;
  EXPECT_EQ(blkfn_config_cmd(1, 0x1234, 0x56789ABC), 0);
  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, "i2c 1c wr 01 01 34 12 bc 9a 78 56", kI2cClose));
  EXPECT_EQ(audio.bench.output(), "");
}

TEST(BlkfnConfigCmd, only_bit_0_of_the_mode_is_sent) {
  AudioBench audio;
  blkfn_config_cmd(0xFE, 0, 0);
  blkfn_config_cmd(0xFF, -1, -2);
  EXPECT_THAT(audio.bench.trace({"i2c"}), ElementsAre("i2c 1c wr 01 00 00 00 00 00 00 00",
                                                      "i2c 1c wr 01 01 ff ff fe ff ff ff"));
}

TEST(BlkfnConfigCmd, bus_that_always_fails_takes_five_writes_and_succeeds) {
  AudioBench audio;
  audio.bench.world("fault i2c-fail 1c");
  EXPECT_EQ(blkfn_config_cmd(1, 0, 0), 0);
  const Lines writes(5, "i2c 1c wr 01 01 00 00 00 00 00 00 = EREMOTEIO");
  EXPECT_THAT(audio.bench.trace(), ElementsAreArray(all({{kI2cOpen}, writes, {kI2cClose}})));
  EXPECT_EQ(audio.bench.output(), "");
}

TEST(BlkfnConfigCmd, stops_at_the_first_write_that_succeeds) {
  AudioBench audio;
  audio.bench.world("fault i2c-fail 1c 1");
  EXPECT_EQ(blkfn_config_cmd(0, 0, 0), 0);
  EXPECT_THAT(audio.bench.trace({"i2c"}),
              ElementsAre("i2c 1c wr 01 00 00 00 00 00 00 00 = EREMOTEIO",
                          "i2c 1c wr 01 00 00 00 00 00 00 00"));
}

TEST(BlkfnConfigCmd, no_bus_gives_minus_1) {
  AudioBench audio;
  audio.bench.world("fault missing i2c");
  EXPECT_EQ(blkfn_config_cmd(1, 0, 0), -1);
  EXPECT_EQ(audio.bench.output(), "blkfn i2c error \n");
}

// ---- codec registers ------------------------------------------------------------------

TEST(WritereadCodec, read_leaves_the_bus_open) {
  AudioBench audio;
  audio.bench.board().dsp.codec[0x10] = 0x5A;
  const std::string before = vboard::seam::open_handles();

  EXPECT_EQ(WritereadCODEC(1, 0x10, 0x1234), 0x5A);

  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, "i2c 1c wr 20 10", wait(10), "i2c 1c rd -> 5a"));
  EXPECT_EQ(audio.bench.output(), "");
  EXPECT_EQ(vboard::seam::open_handles(), before + "/dev/i2c-1\n");
}

TEST(WritereadCodec, read_values_next_to_the_error_codes) {
  AudioBench audio;
  for (const int value : {0, 253, 254, 255}) {
    audio.bench.board().dsp.codec[1] = static_cast<std::uint16_t>(value);
    EXPECT_EQ(WritereadCODEC(0xFF, 1, 0), value);
  }
  EXPECT_EQ(audio.bench.output(), "");
}

TEST(WritereadCodec, failed_read_of_either_transfer_gives_254_and_closes) {
  for (const char* which : {"1", "2"}) {
    AudioBench audio;
    audio.bench.world(std::string("fault i2c-fail 1c ") + which);
    EXPECT_EQ(WritereadCODEC(1, 1, 0), 254);
    EXPECT_EQ(audio.bench.output(), "blkfn i2c error\n");
    EXPECT_EQ(audio.bench.trace().back(), kI2cClose);
  }
}

TEST(WritereadCodec, write_sends_low_then_high_and_closes) {
  AudioBench audio;
  EXPECT_EQ(WritereadCODEC(0, 0x11, 0xABCD), 0);
  EXPECT_THAT(audio.bench.trace(), ElementsAre(kI2cOpen, "i2c 1c wr 10 11 cd ab", kI2cClose));
  EXPECT_EQ(audio.bench.output(), " data1=0xcd data2=0xab\n");
}

TEST(WritereadCodec, write_keeps_16_bits_of_data_and_8_of_the_register) {
  AudioBench audio;
  EXPECT_EQ(WritereadCODEC(0, 0x122, -2), 0);
  EXPECT_THAT(audio.bench.trace({"i2c"}), ElementsAre("i2c 1c wr 10 22 fe ff"));
}

TEST(WritereadCodec, failed_write_gives_254_and_closes) {
  AudioBench audio;
  audio.bench.world("fault dsp-dead");
  EXPECT_EQ(WritereadCODEC(0, 0, 1), 254);
  EXPECT_EQ(audio.bench.output(), " data1=0x1 data2=0x0\nblkfn i2c error\n");
  EXPECT_EQ(audio.bench.trace().back(), kI2cClose);
}

TEST(WritereadCodec, no_bus_gives_255) {
  for (const int read : {0, 1}) {
    AudioBench audio;
    audio.bench.world("fault missing i2c");
    EXPECT_EQ(WritereadCODEC(read, 0, 0), 255);
    EXPECT_EQ(audio.bench.output(), "blkfn i2c error\n");
  }
}

// ---- one-byte reads ---------------------------------------------------------------------

struct ReadRow {
  const char* name;
  std::int32_t (*run)();
  int command;
  int reply;                // of a DSP that runs and hears its source
  const char* reply_print;  // after a good read
  const char* lost_print;   // after a read that failed
  const char* open_error;
};

class BlkfnRead : public testing::TestWithParam<ReadRow> {
 protected:
  BlkfnRead() {
    audio_.bench.world("audio dsp");
    vboard::Ac3DspState& dsp = audio_.bench.board().dsp;
    dsp.running = true;
    dsp.configure[0] = 1;
    dsp.version = 0x21;
    dsp.peak_left = 0x00C50000;
    dsp.peak_index = 3;  // third byte of the left peak
  }
  AudioBench audio_;
};

TEST_P(BlkfnRead, asks_waits_and_reads_a_byte) {
  const ReadRow& row = GetParam();
  EXPECT_EQ(row.run(), row.reply);
  EXPECT_THAT(audio_.bench.trace(),
              ElementsAre(kI2cOpen, line("i2c %02x wr %02x 00", 0x1C, row.command), wait(10),
                          line("i2c %02x rd -> %02x", 0x1C, row.reply), kI2cClose));
  EXPECT_EQ(audio_.bench.output(), row.reply_print);
}

TEST_P(BlkfnRead, failed_write_gives_minus_2) {
  audio_.bench.world("fault i2c-fail 1c 1");
  EXPECT_EQ(GetParam().run(), -2);
  EXPECT_THAT(audio_.bench.output(), EndsWith("blkfn i2c error\n"));
  EXPECT_EQ(audio_.bench.trace().back(), kI2cClose);
}

TEST_P(BlkfnRead, failed_read_gives_minus_2) {
  audio_.bench.world("fault i2c-fail 1c 2");
  EXPECT_EQ(GetParam().run(), -2);
  EXPECT_EQ(audio_.bench.output(), GetParam().lost_print);
  EXPECT_EQ(audio_.bench.trace().back(), kI2cClose);
}

TEST_P(BlkfnRead, no_bus_gives_minus_1) {
  audio_.bench.world("fault missing i2c");
  EXPECT_EQ(GetParam().run(), -1);
  EXPECT_EQ(audio_.bench.output(), GetParam().open_error);
}

INSTANTIATE_TEST_SUITE_P(
    Reads, BlkfnRead,
    testing::Values(
        ReadRow{"status", blkfn_read_status, 0x00, 3, "", "blkfn i2c error\n",
                "blkfn i2c error \n"},
        ReadRow{"version", blkfn_read_version, 0x80, 0x21,
                "---------------bf version = 0x21 --------------------\n", "blkfn i2c error\n",
                "blkfn i2c error\n"},
        ReadRow{"peak", blkfn_read_peak, 0x40, 0xC5, "", "blkfn i2c error\n", "blkfn i2c error\n"},
        ReadRow{"peak_r_l", blkfn_read_peak_r_l, 0x90, 0xC5, "blkfn_read_peak PEAK_LEFT =0xc5 \n",
                "blkfn_read_peak PEAK_LEFT =0x0 \nblkfn i2c error\n", "blkfn i2c error\n"}),
    [](const auto& row) { return row.param.name; });

// ---- peak measurement ------------------------------------------------------------------

// Changes the peaks of the DSP at each end of its stream.
void play_peaks(AudioBench& audio, const std::vector<std::pair<unsigned, unsigned>>& rounds) {
  vboard::Ac3DspState& dsp = audio.bench.board().dsp;
  dsp.running = true;
  audio.bench.world("audio dsp");
  audio.bench.beside("source", [&dsp, rounds] {
    for (const auto& [left, right] : rounds) {
      dsp.peak_left = left;
      dsp.peak_right = right;
      while (dsp.peak_index == 0) vboard::board_wait(vboard::WaitFor::kNothing, 3);
      while (dsp.peak_index != 0) vboard::board_wait(vboard::WaitFor::kNothing, 3);
    }
  });
}

TEST(BlkfnNewReadPeak, rounds_are_ored_together) {
  AudioBench audio;
  // Left: 1, 0x11, 0x80000011 and on: negative from the third round, never more
  // than the maximum. Right: 0x100, 0x101, then nothing new.
  std::vector<std::pair<unsigned, unsigned>> rounds(10, {0, 0});
  rounds[0] = {0x00000001, 0x00000100};
  rounds[1] = {0x00000010, 0x00000001};
  rounds[2] = {0x80000000, 0x00000100};
  rounds[9] = {0x40000000, 0x00000000};
  play_peaks(audio, rounds);

  EXPECT_EQ(blkfn_new_read_peak(), 0);

  EXPECT_EQ(audio.bench.output(),
            "blkfn_read_peak tatal PEAK_LEFT =0x11 \n"
            "blkfn_read_peak tatal PEAK_RIGHT =0x101 \n");
}

TEST(BlkfnNewReadPeak, every_byte_has_its_place) {
  AudioBench audio;
  play_peaks(audio, std::vector<std::pair<unsigned, unsigned>>(10, {0x12345678, 0x7FABCDEF}));
  blkfn_new_read_peak();
  EXPECT_EQ(audio.bench.output(),
            "blkfn_read_peak tatal PEAK_LEFT =0x12345678 \n"
            "blkfn_read_peak tatal PEAK_RIGHT =0x7fabcdef \n");
}

TEST(BlkfnNewReadPeak, traffic_of_a_round) {
  AudioBench audio;
  audio.bench.world("audio dsp");
  vboard::Ac3DspState& dsp = audio.bench.board().dsp;
  dsp.running = true;
  dsp.peak_left = 0x04030201;
  dsp.peak_right = 0x08070605;
  dsp.peak_index = 7;  // two bytes of an old round go by first

  blkfn_new_read_peak();

  const auto read = [](int byte) {
    return Lines{kI2cOpen, "i2c 1c wr 40 00", wait(10), line("i2c %02x rd -> %02x", 0x1C, byte),
                 kI2cClose};
  };
  Lines round = read(0xAB);  // no wait before the next look
  for (int byte = 1; byte <= 8; ++byte) round = all({round, read(byte), {wait(10)}});
  Lines expected = all({read(0x07), read(0x08)});
  for (int i = 0; i < 10; ++i) expected = all({expected, round});
  EXPECT_EQ(audio.bench.trace(), expected);
}

TEST(BlkfnNewReadPeak, failed_reads_count_by_their_low_byte) {
  AudioBench audio;
  audio.bench.world("audio dsp");
  vboard::Ac3DspState& dsp = audio.bench.board().dsp;
  dsp.running = true;
  dsp.peak_left = 0;
  dsp.peak_right = 0;
  // Marker: transfers 1 and 2. The first left byte's answer is transfer 4: -2 is
  // 0xFE, and the stream is a byte late from there in this round: the fifth byte
  // of the next four is the right peak's, all 0.
  audio.bench.world("fault i2c-fail 1c 4");

  blkfn_new_read_peak();

  EXPECT_EQ(audio.bench.output(),
            "blkfn i2c error\n"
            "blkfn_read_peak tatal PEAK_LEFT =0xfe \n"
            "blkfn_read_peak tatal PEAK_RIGHT =0x0 \n");
}

TEST(BlkfnNewReadPeak, without_a_marker_never_returns) {
  AudioBench audio;
  audio.bench.world("fault dsp-dead");
  EXPECT_FALSE(audio.bench.run_for(1'000'000, [] { blkfn_new_read_peak(); }));
  EXPECT_THAT(audio.bench.output(), testing::Not(HasSubstr("tatal")));
}

// ---- firmware check -------------------------------------------------------------------------

TEST(TestIfBfIsEmpty, returns_the_version) {
  AudioBench audio;
  EXPECT_EQ(TestIfBFisEmpty(), 0x21);
  EXPECT_EQ(audio.bench.output(),
            "Test if BF is Empty\n"
            "---------------bf version = 0x21 --------------------\n");
}

TEST(TestIfBfIsEmpty, no_firmware_is_negative) {
  AudioBench audio;
  audio.bench.world("fault dsp-no-firmware");
  EXPECT_EQ(TestIfBFisEmpty(), -2);
  EXPECT_EQ(audio.bench.output(), "Test if BF is Empty\nblkfn i2c error\n");
}

// ---- firmware push --------------------------------------------------------------------------

constexpr char kFirmware[] = "MELK_spi.bin";

// The push leaves its stream open, and so do its two line actions.
struct Push : AudioBench {
  explicit Push(const std::string& firmware) {
    FILE* open = fpga_file;
    fclose(open);
    fpga_file = nullptr;
    bench.put_file(kFirmware, firmware);
    bench.trace();
  }
  // What stands before the bytes: the file, both lines, both control words.
  static Lines opening(int status) {
    return {"open /dev/fpga r+b", "file /home/tovin/MELK_spi.bin rb",
            "open /dev/fpga r+b", "fpga line 28",
            wait(10000),          "open /dev/fpga r+b",
            "fpga line 29",       wait(10000),
            rd(0x0148, status),   rd(0x0148, status),
            wr(0x0144, 0),        wr(0x0144, status >= 0x8000 ? 7 : 3)};
  }
  static std::string opening_text(long size, const char* spi_state) {
    return "open file MELK_spi.bin\nthe size is=" + std::to_string(size) +
           " off MELK_spi.bin\n"
           "Start prog_gpio,input_data = 28\n"
           "Start prog_gpio,input_data = 29\n"
           "Initial SPI state: " +
           spi_state;
  }
};

constexpr char kIdle[] = "HWAIT=0, SPI_STATUS_REG 0x0\nWriting control_data 0x3\n";

TEST(SendBfFileUpdate, empty_file_writes_the_control_words_alone) {
  Push push("");
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_THAT(push.bench.trace(), ElementsAreArray(all({Push::opening(0), {wr(0x0144, 2)}})));
  EXPECT_EQ(push.bench.output(),
            Push::opening_text(0, kIdle) + "end send file MELK_spi.bin size 0\n");
}

TEST(SendBfFileUpdate, one_byte_full_traffic_and_the_stream_stays_open) {
  Push push("\x5A");
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_THAT(
      push.bench.trace(),
      ElementsAreArray(all({Push::opening(0), {rd(0x0148, 0), wr(0x0140, 0x5A), wr(0x0144, 2)}})));
  EXPECT_EQ(push.bench.output(), Push::opening_text(1, kIdle) +
                                     "sending data 0 0x5a level 0 0x0\n"
                                     "end send file MELK_spi.bin size 1\n");
  EXPECT_NE(fpga_file.load(), nullptr);
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/fpga\n/dev/fpga\n/dev/fpga\n");
}

TEST(SendBfFileUpdate, hwait_stands_in_the_control_words) {
  Push push("\xFF");
  push.bench.world("fault dsp-fifo-stuck");  // the DSP holds the master off
  push.hold(0x0148, 0x8005);
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_THAT(push.bench.trace(),
              ElementsAreArray(all(
                  {Push::opening(0x8005), {rd(0x0148, 0x8005), wr(0x0140, 0xFF), wr(0x0144, 6)}})));
  EXPECT_EQ(push.bench.output(),
            Push::opening_text(1, "HWAIT=1, SPI_STATUS_REG 0x8005\nWriting control_data 0x7\n") +
                "sending data 0 0xff level 5 0x8005\n"
                "end send file MELK_spi.bin size 1\n");
}

TEST(SendBfFileUpdate, fifty_thousand_and_one_bytes_in_order_with_two_progress_lines) {
  std::string firmware;
  for (int i = 0; i < 50001; ++i) firmware += static_cast<char>(i * 7 + 3);
  Push push(firmware);

  EXPECT_EQ(SendBFFileUpdate(), 0);

  const Lines data = push.bench.trace({"fpga wr 0x0140"});
  ASSERT_EQ(data.size(), 50001u);
  for (int i = 0; i < 50001; ++i)
    ASSERT_EQ(data[static_cast<std::size_t>(i)], wr(0x0140, (i * 7 + 3) & 0xFF));
  Lines progress;
  for (const std::string& one : vboard::lines(push.bench.output()))
    if (one.find("sending data") == 0) progress.push_back(one);
  // 50000 * 7 + 3 = 1367 * 256 + 0x33.
  EXPECT_THAT(
      progress,
      ElementsAre("sending data 0 0x3 level 0 0x0",
                  testing::MatchesRegex("sending data 50000 0x33 level [0-9]+ 0x[0-9a-f]+")));
  EXPECT_TRUE(push.bench.board().dsp.has_firmware);
  EXPECT_EQ(push.bench.board().fpga.firmware_bytes, 50001u);
}

TEST(SendBfFileUpdate, push_goes_on_when_the_fifo_drains) {
  Push push(std::string(1000, 'x'));
  push.bench.world("fault dsp-fifo-stuck");
  push.bench.beside("world", [&] {
    vboard::board_wait(vboard::WaitFor::kNothing, 100000);
    push.bench.world("fault dsp-fifo-stuck off");
  });

  EXPECT_EQ(SendBFFileUpdate(), 0);

  const Lines trace = push.bench.trace({"fpga wr 0x0140", "wait 6000"});
  const auto first_wait = std::find(trace.begin(), trace.end(), wait(6000));
  // The master is busy from level 384 on: the byte at level 383 is the last.
  EXPECT_EQ(first_wait - trace.begin(), 384);
  EXPECT_EQ(std::count(trace.begin(), trace.end(), wr(0x0140, 'x')), 1000);
  EXPECT_THAT(push.bench.output(), EndsWith("end send file MELK_spi.bin size 1000\n"));
}

// The status register at a value of the test's choice, changed by the clock.
struct Fifo : Push {
  Fifo(const std::string& firmware, int status) : Push(firmware) { hold(0x0148, status); }
  // Sets the status this long after the first byte began to wait. The two line
  // actions take 20 ms; a request takes some microseconds.
  void later(double waits, int status) {
    bench.beside("fifo", [this, waits, status] {
      vboard::board_wait(vboard::WaitFor::kNothing,
                         20000 + static_cast<std::int64_t>(waits * 6000));
      bench.set_fpga(0x0148, status);
    });
  }
  std::size_t waits() { return bench.trace({"wait 6000"}).size(); }
};

TEST(SendBfFileUpdate, level_400_takes_a_byte_at_once) {
  Fifo fifo("a", 400);
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(fifo.waits(), 0u);
  EXPECT_THAT(fifo.bench.output(), HasSubstr("sending data 0 0x61 level 400 0x190\n"));
}

TEST(SendBfFileUpdate, level_401_waits) {
  Fifo fifo("a", 401);
  fifo.later(0.5, 400);
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(fifo.waits(), 1u);
}

TEST(SendBfFileUpdate, busy_waits_at_level_0) {
  Fifo fifo("a", 0x0800);
  fifo.later(1.5, 0);
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(fifo.waits(), 2u);
}

TEST(SendBfFileUpdate, other_status_bits_do_not_wait) {
  Fifo fifo("a", 0x7600);  // all but level, busy and HWAIT
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(fifo.waits(), 0u);
  EXPECT_THAT(fifo.bench.output(), HasSubstr("sending data 0 0x61 level 0 0x7600\n"));
}

TEST(SendBfFileUpdate, fifo_full_for_30_waits_still_succeeds) {
  Fifo fifo("a", 0x01FF);
  fifo.later(29.5, 0);
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(fifo.waits(), 30u);
}

TEST(SendBfFileUpdate, fifo_full_for_31_waits_ends_the_push) {
  Fifo fifo("ab", 0x01FF);
  fifo.later(30.5, 0);  // too late
  EXPECT_EQ(SendBFFileUpdate(), -1);

  Lines expected = Push::opening(0x01FF);
  for (int i = 0; i < 31; ++i) expected = all({expected, {rd(0x0148, 0x01FF), wait(6000)}});
  EXPECT_EQ(fifo.bench.trace(), expected);
  EXPECT_EQ(fifo.bench.output(),
            Push::opening_text(2, "HWAIT=0, SPI_STATUS_REG 0x1ff\nWriting control_data 0x3\n") +
                "exit  31 \n");
}

TEST(SendBfFileUpdate, waits_count_anew_for_every_byte) {
  Fifo fifo("ab", 0x01FF);
  fifo.later(29.5, 0);
  fifo.bench.beside("full again", [&] {
    while (fifo.bench.fpga(0x0140) != 'a') vboard::board_wait(vboard::WaitFor::kNothing, 1);
    fifo.bench.set_fpga(0x0148, 0x01FF);
    vboard::board_wait(vboard::WaitFor::kNothing, 29 * 6000 + 3000);
    fifo.bench.set_fpga(0x0148, 0);
  });
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(fifo.waits(), 60u);
}

TEST(SendBfFileUpdate, no_device_gives_1) {
  Push push("a");
  push.bench.world("fault missing fpga");
  EXPECT_EQ(SendBFFileUpdate(), 1);
  EXPECT_EQ(push.bench.output(), "Cannot access SPI port (/dev/fpga)\n");
  EXPECT_THAT(push.bench.trace(), ElementsAre("open /dev/fpga = ENOENT"));
}

// ---- messages and traffic in one order ----------------------------------------------------

Lines told_push_opening(const char* size, int status) {
  const bool hwait = status >= 0x8000;
  return {"open /dev/fpga r+b",
          "file /home/tovin/MELK_spi.bin rb",
          "say open file MELK_spi.bin",
          std::string("say the size is=") + size + " off MELK_spi.bin",
          "say Start prog_gpio,input_data = 28",
          "open /dev/fpga r+b",
          "fpga line 28",
          wait(10000),
          "say Start prog_gpio,input_data = 29",
          "open /dev/fpga r+b",
          "fpga line 29",
          wait(10000),
          rd(0x0148, status),
          rd(0x0148, status),
          line("say Initial SPI state: HWAIT=%d, SPI_STATUS_REG 0x%x", hwait ? 1 : 0, status),
          line("say Writing control_data 0x%x", hwait ? 7 : 3, 0),
          wr(0x0144, 0),
          wr(0x0144, hwait ? 7 : 3)};
}

TEST(SendBfFileUpdate, steps_and_messages_in_one_order) {
  Push push("\x5A\x5B");
  push.bench.world("fault dsp-fifo-stuck");  // the DSP holds the master off
  push.hold(0x0148, 0x8003);
  push.bench.follow();
  EXPECT_EQ(SendBFFileUpdate(), 0);
  EXPECT_EQ(push.bench.stream(),
            all({told_push_opening("2", 0x8003),
                 {rd(0x0148, 0x8003), wr(0x0140, 0x5A), "say sending data 0 0x5a level 3 0x8003",
                  rd(0x0148, 0x8003), wr(0x0140, 0x5B), "say end send file MELK_spi.bin size 2",
                  wr(0x0144, 6), "file /home/tovin/MELK_spi.bin closed"}}));
}

TEST(SendBfFileUpdate, full_fifo_is_told_behind_the_last_wait_before_the_file_is_closed) {
  Fifo fifo("ab", 0x01FF);
  fifo.bench.follow();
  EXPECT_EQ(SendBFFileUpdate(), -1);
  Lines expected = told_push_opening("2", 0x01FF);
  for (int i = 0; i < 31; ++i) expected = all({expected, {rd(0x0148, 0x01FF), wait(6000)}});
  EXPECT_EQ(fifo.bench.stream(),
            all({expected, {"say exit  31 ", "file /home/tovin/MELK_spi.bin closed"}}));
}

TEST(LoadBf, check_push_and_messages_in_one_order) {
  Push push("\x01");
  push.bench.world("fault dsp-no-firmware");
  push.bench.follow();
  EXPECT_EQ(Load_BF(), 0);
  EXPECT_EQ(push.bench.stream(),
            all({{"say Test if BF is Empty", kI2cOpen, "i2c 1c wr 80 00 = EREMOTEIO", kI2cClose,
                  "say blkfn i2c error", "say start download file to the BF"},
                 told_push_opening("1", 0),
                 {rd(0x0148, 0), wr(0x0140, 1), "say sending data 0 0x1 level 0 0x0",
                  "say end send file MELK_spi.bin size 1", wr(0x0144, 2),
                  "file /home/tovin/MELK_spi.bin closed", "say The BF is Loaded from SPI"}}));
}

TEST(LoadBf, dsp_that_answers_in_one_order) {
  Push push("new firmware");
  push.bench.follow();
  Load_BF();
  EXPECT_THAT(push.bench.stream(),
              ElementsAre("say Test if BF is Empty", kI2cOpen, "i2c 1c wr 80 00", wait(10),
                          "i2c 1c rd -> 21", kI2cClose,
                          "say ---------------bf version = 0x21 --------------------",
                          "say The BF is Loaded"));
}

TEST(WritereadCodec, data_bytes_are_told_before_they_go_out) {
  AudioBench audio;
  audio.bench.follow();
  WritereadCODEC(0, 0x21, 0x1A5);
  EXPECT_THAT(audio.bench.stream(), ElementsAre(kI2cOpen, "say  data1=0xa5 data2=0x1",
                                                "i2c 1c wr 10 21 a5 01", kI2cClose));
}

TEST(BlkfnReadPeakRL, byte_is_told_behind_its_read) {
  AudioBench audio;
  audio.bench.board().dsp.running = true;
  audio.bench.follow();
  blkfn_read_peak_r_l();
  const Lines seen = audio.bench.stream();
  ASSERT_GE(seen.size(), 5u);
  EXPECT_THAT(seen[1], testing::StartsWith("i2c 1c wr 90 00"));
  EXPECT_EQ(seen[2], wait(10));
  EXPECT_THAT(seen[3], testing::StartsWith("i2c 1c rd -> "));
  EXPECT_THAT(seen[4], testing::StartsWith("say blkfn_read_peak PEAK_LEFT =0x"));
}

// ---- firmware that is not there -----------------------------------------------------------

TEST(SendBfFileUpdateDeathTest, missing_file_ends_the_process_with_1) {
  Push push("");
  unlink(push.bench.path(kFirmware).c_str());
  push.bench.output();
  EXPECT_EXIT(SendBFFileUpdate(), testing::ExitedWithCode(1), "^File error$");
  EXPECT_EQ(push.bench.output(), "open file MELK_spi.bin\n");
}

TEST(SendBfFileUpdateDeathTest, file_beyond_memory_ends_the_process_with_2) {
  Push push("");
  ASSERT_EQ(truncate(push.bench.path(kFirmware).c_str(), off_t{5} << 30), 0);  // sparse
  push.bench.output();
  EXPECT_EXIT(SendBFFileUpdate(), testing::ExitedWithCode(2), "^Memory error$");
  EXPECT_THAT(push.bench.output(), StartsWith("open file MELK_spi.bin\nthe size is="));
}

TEST(SendBfFileUpdateDeathTest, short_read_ends_the_process_with_3) {
  Push push("firmware");
  push.bench.output();
  const auto push_unreadable = [] {
    vboard::seam::fail_call("fread", "", 0, 1, EIO);  // in the dying process alone
    SendBFFileUpdate();
  };
  EXPECT_EXIT(push_unreadable(), testing::ExitedWithCode(3), "^Reading error$");
  EXPECT_EQ(push.bench.output(), "open file MELK_spi.bin\nthe size is=8 off MELK_spi.bin\n");
}

TEST(SendBfFileUpdateDeathTest, load_ends_the_process_too) {
  Push push("");
  push.bench.world("fault dsp-no-firmware");
  unlink(push.bench.path(kFirmware).c_str());
  EXPECT_EXIT(Load_BF(), testing::ExitedWithCode(1), "^File error$");
}

// ---- check and load ---------------------------------------------------------------------------

TEST(LoadBf, dsp_that_answers_is_left_alone) {
  Push push("new firmware");
  EXPECT_EQ(Load_BF(), 0);
  EXPECT_EQ(push.bench.output(),
            "Test if BF is Empty\n"
            "---------------bf version = 0x21 --------------------\n"
            "The BF is Loaded\n");
  EXPECT_THAT(push.bench.trace(),
              ElementsAre(kI2cOpen, "i2c 1c wr 80 00", wait(10), "i2c 1c rd -> 21", kI2cClose));
}

TEST(LoadBf, version_0_counts_as_loaded) {
  Push push("new firmware");
  push.bench.board().dsp.version = 0;
  Load_BF();
  EXPECT_EQ(push.bench.output(),
            "Test if BF is Empty\n"
            "---------------bf version = 0x0 --------------------\n"
            "The BF is Loaded\n");
}

TEST(LoadBf, empty_dsp_is_loaded_and_answers_afterwards) {
  Push push("\x01\x02\x03");
  push.bench.world("fault dsp-no-firmware");
  EXPECT_EQ(Load_BF(), 0);
  EXPECT_EQ(push.bench.output(),
            "Test if BF is Empty\n"
            "blkfn i2c error\n"
            "start download file to the BF\n" +
                Push::opening_text(3, kIdle) +
                "sending data 0 0x1 level 0 0x0\n"
                "end send file MELK_spi.bin size 3\n"
                "The BF is Loaded from SPI\n");
  usleep(100000);  // it starts
  EXPECT_EQ(blkfn_read_version(), 0x21);
}

TEST(LoadBf, third_failure_is_reported) {
  Push push(std::string(402, 'f'));
  push.bench.world("fault dsp-no-firmware");
  push.bench.world("fault dsp-fifo-stuck");

  EXPECT_EQ(Load_BF(), 0);

  // 384 bytes bring the level to 0x180, at which the master is busy; the next one is
  // never taken. The DSP holds the master off, so HWAIT stands.
  const std::string attempt =
      "HWAIT=1, SPI_STATUS_REG 0x8%s\nWriting control_data 0x7\n"
      "sending data 0 0x66 level 0 0x8000\n"
      "exit  31 \n";
  const auto attempt_with = [&](const char* level) {
    std::string text = attempt;
    return Push::opening_text(402, text.replace(text.find("%s"), 2, level).c_str());
  };
  EXPECT_EQ(push.bench.output(),
            "Test if BF is Empty\n"
            "blkfn i2c error\n"
            "start download file to the BF\n" +
                attempt_with("000") + attempt_with("980") + attempt_with("980") +
                "Fault To load BF from SPI\n");
  const Lines trace = push.bench.trace({"fpga wr 0x0140", "wait 6000"});
  EXPECT_EQ(std::count(trace.begin(), trace.end(), wr(0x0140, 'f')), 3 * 384);
  EXPECT_EQ(std::count(trace.begin(), trace.end(), wait(6000)), 3 * 31);
}

TEST(LoadBf, success_on_the_third_push_ends_the_tries) {
  Push push("abc");
  push.bench.world("fault dsp-no-firmware");
  vboard::seam::fail_call("fopen", "/dev/fpga", 0, 2, ENODEV);
  EXPECT_EQ(Load_BF(), 0);
  const std::string output = push.bench.output();
  EXPECT_THAT(output, StartsWith("Test if BF is Empty\n"
                                 "blkfn i2c error\n"
                                 "start download file to the BF\n"
                                 "Cannot access SPI port (/dev/fpga)\n"
                                 "Cannot access SPI port (/dev/fpga)\n"
                                 "open file MELK_spi.bin\n"));
  EXPECT_THAT(output, EndsWith("The BF is Loaded from SPI\n"));
}

TEST(LoadBf, device_that_never_opens_fails_three_times) {
  Push push("abc");
  push.bench.world("fault dsp-no-firmware");
  push.bench.world("fault missing fpga");
  EXPECT_EQ(Load_BF(), 0);
  EXPECT_EQ(push.bench.output(),
            "Test if BF is Empty\n"
            "blkfn i2c error\n"
            "start download file to the BF\n"
            "Cannot access SPI port (/dev/fpga)\n"
            "Cannot access SPI port (/dev/fpga)\n"
            "Cannot access SPI port (/dev/fpga)\n"
            "Fault To load BF from SPI\n");
}

}  // namespace
