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

// Of several elements the last. What lies where is compared with tests/contract.
template <class T>
Field stored(const SharedFieldRow& row, Relaxed<T> SharedBlock::*member) {
  return field(row.name, row.offset, row.width, member);
}
template <class T, std::size_t N>
Field stored(const SharedFieldRow& row, Relaxed<T> (SharedBlock::*member)[N]) {
  const int last = row.offset + static_cast<int>(N - 1) * row.width;
  return element(row.name, last, row.width, member, N - 1);
}

std::vector<Field> fields() {
  std::vector<Field> all;
  const SharedFieldRow* row = kSharedFields;
#define STORED(offset, kind, name, ...) all.push_back(stored(*row++, &SharedBlock::name));
#define NOT_STORED(...)
  SHARED_FIELDS(STORED, NOT_STORED)
#undef STORED
#undef NOT_STORED
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
