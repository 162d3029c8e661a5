// The status record: what the host polls byte by byte, and the version bytes.
//
// PREPARE_FPGA_REGISTERS takes a snapshot of FPGA counters, encoder statistics
// and DSP peaks; GET_REG_FILE_BYTE walks it. A few bytes are read when sent.
#pragma once

#include <cstdint>

inline constexpr int kStatusRecordShort = 51;  // bytes sent until the host asks for all
inline constexpr int kStatusRecordSize = 104;
inline constexpr std::uint8_t kHdVersion = 0x2D;  // 2.13: major in the high nibble

inline constexpr int kVersionGroups = 3;

// Empties the snapshot and the version bytes and starts the record over, short.
void clear_status_record();

// Takes the snapshot, starts the record over and parses `ver`.
void prepare_status_record();

// The next byte of the record; after the last one the first comes again.
std::uint8_t next_status_record_byte();

// From now on the record is sent whole. Returns its length.
int send_whole_status_record();

// Group 0, 1 or 2 of the software version as of the last snapshot.
std::uint8_t version_byte(int group);
