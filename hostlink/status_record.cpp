// Taking, laying out and walking the host's status record. Host-link thread only.
#include "hostlink/status_record.h"

#include <cstddef>
#include <cstdio>

#include "audio/blkfn.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"

static std::uint8_t file_reg_zise = kStatusRecordShort;
static std::uint8_t snapshot[kStatusRecordSize];
static int send_index;
static std::uint8_t version_bytes[kVersionGroups];

static constexpr int kPeakBytes = 4;
static constexpr int kSnapshotLength = 20;  // as printed

// Multi-byte values stand low byte first.
static void store(int at, int width, std::uint32_t value) {
  for (int k = 0; k < width; ++k) {
    snapshot[at + k] = static_cast<std::uint8_t>(value >> (8 * k));
  }
}

// FPGA counters in the order they are read; high 0 marks a single register.
struct CounterRow {
  int at;
  int low;
  int high;
};
static constexpr CounterRow kCounterRows[] = {
    {5, kRegVsOverallLow, kRegVsOverallHigh},
    {9, kRegVsRateLow, kRegVsRateHigh},
    {13, kRegViBuff, 0},
    {15, kRegViOverallLow, kRegViOverallHigh},
    {19, kRegViRefOverallLow, kRegViRefOverallHigh},
    {23, kRegAuBuff, 0},
    {25, kRegAuI2sOverallLow, kRegAuI2sOverallHigh},
    {29, kRegAuOverallLow, kRegAuOverallHigh},
    {33, kRegAuRefOverallLow, kRegAuRefOverallHigh},
    {49, kRegTsMuxStatus, 0},
};

static void store_counters() {
  SetValue(kRegLatch, 1);
  for (const CounterRow& row : kCounterRows) {
    if (row.high == 0) {
      store(row.at, 2, GetValue(row.low));
    } else {
      store(row.at, 4, GetValue32(row.low, row.high));
    }
  }
}

// Encoder statistics by byte offset in the shared block. The word at 228 has no
// place in the record.
struct StatisticsRow {
  int at;
  int width;
  int offset;
};
static constexpr StatisticsRow kStatisticsRows[] = {
    {51, 2, 180}, {53, 2, 176}, {55, 2, 184},  {57, 2, 172}, {59, 2, 188}, {61, 2, 192},
    {63, 2, 196}, {65, 2, 200}, {67, 2, 204},  {69, 2, 208}, {71, 1, 216}, {72, 1, 220},
    {73, 1, 252}, {74, 2, 256}, {76, 4, 224},  {80, 4, 232}, {84, 4, 236}, {88, 4, 212},
    {92, 4, 276}, {96, 4, 280}, {100, 4, 284},
};

static std::int32_t statistics_word(int offset) {
  constexpr int kFirst = offsetof(SharedBlock, statistics);
  constexpr int kSecond = offsetof(SharedBlock, statistics2);
  return offset < kSecond
             ? shared_get(&SharedBlock::statistics, static_cast<std::size_t>(offset - kFirst) / 4)
             : shared_get(&SharedBlock::statistics2,
                          static_cast<std::size_t>(offset - kSecond) / 4);
}

static void store_statistics() {
  for (const StatisticsRow& row : kStatisticsRows) {
    store(row.at, row.width, static_cast<std::uint32_t>(statistics_word(row.offset)));
  }
}

static constexpr int kPeakLeftAt = 37;
static constexpr int kPeakRightAt = 41;

static void store_peaks() {
  std::uint32_t left = 0;
  std::uint32_t right = 0;
  if (start_bf_st != 0) blkfn_add_peaks(&left, &right);
  store(kPeakLeftAt, kPeakBytes, left);
  store(kPeakRightAt, kPeakBytes, right);
}

// "1.12.3" gives 1, 12, 3. Two digits of a group are one number; a third digit
// replaces them and stands alone.
static void parse_version() {
  for (std::uint8_t& byte : version_bytes) byte = 0;
  int group = 0;
  int digits = 0;
  for (int i = 0; i < kVersionTextSize - 1 && group < kVersionGroups; ++i) {
    const char c = ver[i];
    if (c == '.') {
      ++group;
      digits = 0;
      continue;
    }
    if (c < '0' || c > '9') return;
    ++digits;
    const int tens = digits == 2 ? 10 * version_bytes[group] : 0;
    version_bytes[group] = static_cast<std::uint8_t>(tens + (c - '0'));
  }
}

void clear_status_record() {
  for (std::uint8_t& byte : snapshot) byte = 0;
  for (std::uint8_t& byte : version_bytes) byte = 0;
  file_reg_zise = kStatusRecordShort;
  send_index = 0;
}

void prepare_status_record() {
  puts("get PREPARE_FPGA_REGISTERS .. ");
  send_index = 0;
  store_counters();
  store_statistics();
  store_peaks();
  printf("length=%d\n", kSnapshotLength);
  parse_version();
}

static std::uint8_t dsp_version_byte() {
  const std::uint8_t version = static_cast<std::uint8_t>(blkfn_read_version());
  printf("blkfn=0x%x\n", version);
  return version;
}

static std::uint8_t low_byte(unsigned word) { return static_cast<std::uint8_t>(word); }
static std::uint8_t high_byte(unsigned word) { return static_cast<std::uint8_t>(word >> 8); }

// Bytes that are read when sent stand here; all others come from the snapshot.
static std::uint8_t record_byte(int index) {
  switch (index) {
    case 0:
      return low_byte(static_cast<unsigned>(shared_get(&SharedBlock::encode_version)));
    case 1:
      return kHdVersion;
    case 2:
      return high_byte(fpga_hw_version);
    case 3:
      return low_byte(fpga_hw_version);
    case 4:
      return dsp_version_byte();
    case 45:
      return low_byte(vid_buf_init);
    case 46:
      return high_byte(vid_buf_init);
    case 47:
      return low_byte(aud_buf_init);
    case 48:
      return high_byte(aud_buf_init);
    default:
      return snapshot[index];
  }
}

std::uint8_t next_status_record_byte() {
  const std::uint8_t byte = record_byte(send_index);
  ++send_index;
  if (send_index == file_reg_zise) send_index = 0;
  return byte;
}

int send_whole_status_record() {
  file_reg_zise = kStatusRecordSize;
  return file_reg_zise;
}

std::uint8_t version_byte(int group) { return version_bytes[group]; }
