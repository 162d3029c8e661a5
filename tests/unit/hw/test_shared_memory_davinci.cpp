// The shared block: every field at its offset, and the two ways to attach it.
#include "hw/shared_memory_davinci.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;
namespace seam = vboard::seam;

// A field: where its bytes must appear, and a store into it.
struct Field {
  const char* name;
  int offset;
  int width;
  std::function<void()> store;  // 0x04030201, or 0x01 for a byte
};

template <class T>
Field field(const char* name, int offset, int width, Relaxed<T> SharedBlock::*member) {
  return {name, offset, width, [member] { shared_set(member, 0x04030201); }};
}
template <class T, std::size_t N>
Field element(const char* name, int offset, int width, Relaxed<T> (SharedBlock::*member)[N],
              std::size_t index) {
  return {name, offset, width, [member, index] { shared_set(member, index, 0x04030201); }};
}

using B = SharedBlock;
const std::vector<Field>& fields() {
  static const std::vector<Field> all = {
      field("header", 0, 4, &B::header),
      field("magic", 4, 4, &B::magic),
      field("header_zero", 8, 4, &B::header_zero),
      field("video_std", 12, 4, &B::videoStd),
      field("input_channel", 16, 4, &B::input_channel),
      field("video_bitrate", 20, 4, &B::video_bitrate),
      element("suffix_first", 24, 1, &B::file_suffix, 0),
      element("suffix_last", 30, 1, &B::file_suffix, 6),
      field("do_fpga_restart", 40, 4, &B::do_fpga_restart),
      field("sample_rate", 44, 4, &B::SampleRate),
      field("audio_enable", 48, 1, &B::audio_enable),
      field("encoder_running", 52, 4, &B::encoder_running),
      field("launch_zero", 56, 4, &B::launch_zero),
      field("vid_codec", 60, 4, &B::VidCodec),
      element("clock_first", 64, 1, &B::clock_text, 0),
      field("frame_rate_code", 84, 1, &B::frame_rate_code),
      field("vbr", 88, 4, &B::vbr),
      element("ac3_first", 92, 1, &B::hd_ac3_desc, 0),
      element("ac3_last", 97, 1, &B::hd_ac3_desc, 5),
      field("spts", 100, 4, &B::spts),
      field("offset_x", 104, 4, &B::offset_x),
      field("offset_y", 108, 4, &B::offset_y),
      field("status_bitrate", 112, 4, &B::status_bitrate),
      field("status_frame_rate", 116, 1, &B::status_frame_rate),
      field("status_video_std", 120, 4, &B::status_video_std),
      field("status_width", 124, 4, &B::status_width),
      field("status_height", 128, 4, &B::status_height),
      field("status_vbr", 132, 4, &B::status_vbr),
      field("bytes_per_frame_ac3", 136, 4, &B::bytes_per_frame_ac3),
      field("audio_configured", 140, 4, &B::audio_configured),
      field("audio_input", 144, 4, &B::AudioInput),
      field("audio_start", 148, 4, &B::audio_start),
      field("encode_version", 152, 4, &B::encode_version),
      field("closed_caption", 156, 1, &B::closed_caption),
      field("brightness", 160, 4, &B::brightness),
      field("contrast", 164, 4, &B::contrast),
      field("encode_alive", 168, 4, &B::encode_alive),
      element("statistics_first", 172, 4, &B::statistics, 0),
      element("statistics_last", 256, 4, &B::statistics, 21),
      field("frame_div", 260, 4, &B::frame_div),
      field("frame_mult", 264, 4, &B::frame_mult),
      field("eb_mode", 268, 4, &B::eb_mode),
      field("eb_delay", 272, 4, &B::eb_delay),
      element("statistics2_first", 276, 4, &B::statistics2, 0),
      element("statistics2_last", 284, 4, &B::statistics2, 2),
      field("null_disable", 288, 4, &B::null_disable),
      field("gop_size", 292, 4, &B::gop_size),
      field("idr", 296, 4, &B::idr),
      field("bufferconst", 300, 4, &B::bufferconst),
      field("interlace_flag", 304, 4, &B::interlace_flag),
  };
  return all;
}

class SharedField : public testing::TestWithParam<Field> {};

TEST_P(SharedField, store_changes_its_own_bytes_and_no_other) {
  const Field& one = GetParam();
  Bench bench;
  SharedBlock& block = bench.attach_block();
  memset(static_cast<void*>(&block), 0, sizeof block);

  one.store();

  std::vector<std::uint8_t> expected(4096, 0);
  for (int i = 0; i < one.width; ++i)
    expected[static_cast<std::size_t>(one.offset + i)] = static_cast<std::uint8_t>(i + 1);
  std::vector<std::uint8_t> stored(sizeof block);
  memcpy(stored.data(), static_cast<const void*>(&block), sizeof block);
  EXPECT_EQ(stored, expected);
}

INSTANTIATE_TEST_SUITE_P(Block, SharedField, testing::ValuesIn(fields()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(SharedAccess, block_not_attached_reads_zero_and_skips_stores) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.vbr = 7;
  block.statistics[3] = 7;
  shared_memory = nullptr;
  EXPECT_EQ(shared_get(&SharedBlock::vbr), 0);
  EXPECT_EQ(shared_get(&SharedBlock::statistics, 3), 0);
  shared_set(&SharedBlock::vbr, 9);
  shared_set(&SharedBlock::statistics, 3, 9);
  EXPECT_EQ(block.vbr, 7);
  EXPECT_EQ(block.statistics[3], 7);
}

TEST(SharedAccess, attached_block_reads_what_is_there) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.vbr = -7;
  block.statistics[3] = 8;
  EXPECT_EQ(shared_get(&SharedBlock::vbr), -7);
  EXPECT_EQ(shared_get(&SharedBlock::statistics, 3), 8);
}

std::int64_t address_of(const SharedBlock* block) {
  return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(block));
}

// The first 12 bytes of the block.
std::vector<int> header(const SharedBlock& block) {
  std::uint8_t bytes[12];
  memcpy(bytes, static_cast<const void*>(&block), sizeof bytes);
  return {bytes, bytes + sizeof bytes};
}

TEST(GetShmKey, fresh_system_creates_the_segment_and_writes_the_header) {
  Bench bench;
  shared_memory = nullptr;
  const std::int64_t address = get_shm_key();
  ASSERT_NE(shared_memory, nullptr);
  EXPECT_EQ(address, address_of(shared_memory));
  EXPECT_THAT(bench.trace(), ElementsAre("shmget 0x4d454c4b 4096 0x3ff"));
  // 308 = 0x134; "MELK" with its first letter in the highest byte.
  EXPECT_THAT(header(*shared_memory),
              ElementsAre(0x34, 0x01, 0, 0, 'K', 'L', 'E', 'M', 0, 0, 0, 0));
  EXPECT_EQ(bench.output(), "");
}

TEST(GetShmKey, segment_that_exists_keeps_all_but_the_header) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.header = 1;
  block.magic = 2;
  block.header_zero = 3;
  block.gop_size = 44;
  EXPECT_EQ(get_shm_key(), address_of(&block));
  EXPECT_THAT(header(block), ElementsAre(0x34, 0x01, 0, 0, 'K', 'L', 'E', 'M', 0, 0, 0, 0));
  EXPECT_EQ(block.gop_size, 44);
}

TEST(GetShmKey, get_fails_prints_its_error_and_tries_to_attach) {
  Bench bench;
  seam::fail_call("shmget", "", 0, 1, 28);
  EXPECT_EQ(get_shm_key(), -1);
  EXPECT_EQ(bench.output(),
            "Error, cannot create shared memory!!! (errno=28)\n"
            "Error, cannot map SNMP shared memory!!!\n");
  EXPECT_EQ(shared_memory, nullptr);
}

TEST(GetShmKey, attach_fails_clears_the_pointer) {
  Bench bench;
  bench.attach_block();
  seam::fail_call("shmat", "", 0, 1, ENOMEM);
  EXPECT_EQ(get_shm_key(), -1);
  EXPECT_EQ(bench.output(), "Error, cannot map SNMP shared memory!!!\n");
  EXPECT_EQ(shared_memory, nullptr);
}

TEST(InitialSheredMem, block_with_its_header_is_taken) {
  Bench bench;
  bench.attach_block();
  shared_memory = nullptr;
  EXPECT_EQ(initial_shered_mem(), 0);
  EXPECT_NE(shared_memory, nullptr);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("shmget 0x4d454c4b 4096 0x3ff"));
}

TEST(InitialSheredMem, other_magic_is_refused_and_not_written) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.header = 5;
  block.magic = 0x4D454C4A;
  EXPECT_EQ(initial_shered_mem(), -1);
  EXPECT_EQ(bench.output(), "Please Run configapp -I first\n");
  EXPECT_EQ(block.magic, 0x4D454C4A);
  EXPECT_EQ(block.header, 5);
}

TEST(InitialSheredMem, fresh_segment_is_refused) {
  Bench bench;
  EXPECT_EQ(initial_shered_mem(), -1);
  EXPECT_EQ(bench.output(), "Please Run configapp -I first\n");
}

TEST(InitialSheredMem, get_fails_prints_both_messages) {
  Bench bench;
  seam::fail_call("shmget", "", 0, 1, 13);
  EXPECT_EQ(initial_shered_mem(), -1);
  EXPECT_EQ(bench.output(),
            "Error, cannot create shared memory!!! (errno=13)\n"
            "Error, cannot map SNMP shared memory!!!\n");
}

TEST(InitialSheredMem, attach_fails_clears_the_pointer) {
  Bench bench;
  bench.attach_block();
  seam::fail_call("shmat", "", 0, 1, ENOMEM);
  EXPECT_EQ(initial_shered_mem(), -1);
  EXPECT_EQ(bench.output(), "Error, cannot map SNMP shared memory!!!\n");
  EXPECT_EQ(shared_memory, nullptr);
}

}  // namespace
