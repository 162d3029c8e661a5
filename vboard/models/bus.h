// The bus faces of the device models: what the driver of each device sees.
//
// Each function behaves as the system call behind it: a negative result goes
// with errno. None takes the board's lock; the caller holds it.
#pragma once

#include <linux/i2c.h>

#include <cstddef>
#include <cstdint>

#include "vboard/core/board.h"

namespace vboard {

// ---- /dev/fpga: registers, lines, LEDs, configuration port (fpga.cpp) --------
int fpga_request(Board& board, std::int64_t now_us, unsigned long request, void* argument);
long fpga_port_write(Board& board, const std::uint8_t* data, std::size_t size);
long fpga_port_read(Board& board, std::uint8_t* data, std::size_t size);

// ---- /dev/fpga2: PLL (clocks.cpp) --------------------------------------------
long pll_write(Board& board, const std::uint8_t* data, std::size_t size);
long pll_read(Board& board, std::uint8_t* data, std::size_t size);

// ---- /dev/spislave and the host's side of it (link.cpp) -----------------------
long link_board_read(Board& board, std::uint8_t* data, std::size_t size);  // EAGAIN when empty
long link_board_write(Board& board, const std::uint8_t* data, std::size_t size);
// One host transfer: `out` goes to the board; true when the board had a byte
// queued, which then is `in`.
bool link_host_transfer(Board& board, std::uint8_t out, std::uint8_t* in);

// ---- I2C (i2c_bus.cpp): finds the chip by address, forwards the messages --------
int i2c_transfer(Board& board, int bus, i2c_msg* messages, unsigned count);
int i2c_smbus_read_byte(Board& board, int bus, int address, std::uint8_t reg, std::uint8_t* value);

// Board time that a transfer takes: the bus runs at 100 kHz.
std::int64_t i2c_transfer_cost(const Board& board, const i2c_msg* messages, unsigned count);
std::int64_t i2c_smbus_cost(const Board& board);  // of reading a byte

// A chip on the bus. write gets the bytes of one write message, read fills one
// read message; false is a missing acknowledge.
struct I2cChip {
  int address;       // 7-bit, as in its row of VBOARD_CHIPS
  const char* name;  // in violations
  bool (*write)(Board& board, std::int64_t now_us, const std::uint8_t* data, std::size_t size);
  bool (*read)(Board& board, std::int64_t now_us, std::uint8_t* data, std::size_t size);
};
#define VBOARD_CHIP_MODEL(address, name, model) extern const I2cChip model;
VBOARD_CHIPS(VBOARD_CHIP_MODEL)
#undef VBOARD_CHIP_MODEL

// ---- /dev/video0 (capture.cpp) ---------------------------------------------------
int capture_request(Board& board, std::int64_t now_us, unsigned long request, void* argument);
// The driver sets the digitizer up anew: the source sends something else now.
void capture_follow_standard(Board& board);

// ---- lines that other devices act on ----------------------------------------------
void tvp7002_line(Board& board, bool released);
void tvp5150_line(Board& board, bool released);
bool tvp5150_delivers_captions(const Board& board);
void ac3dsp_line(Board& board, bool released);
void audio_line(Board& board, bool released);

// ---- the AC-3 side of the FPGA (ac3_stream.cpp) --------------------------------------
// Captured header word `index` (0..126), bytes swapped as the FPGA holds them;
// 0 when no sync frame is held.
std::uint16_t ac3_captured_word(const Board& board, int index);
// Words waiting in the capture FIFO, and the next of them.
std::uint16_t ac3_capture_status(const Board& board, std::int64_t now_us);
std::uint16_t ac3_capture_data(Board& board, std::int64_t now_us);
// Empties the capture FIFO; it starts again with a whole frame. For a write to
// its loop control, and for a change of the stream.
void ac3_capture_restart(Board& board, std::int64_t now_us);

// ---- DSP firmware through the FPGA's SPI master (ac3dsp.cpp) ----------------------------
void dsp_spi_control(Board& board, std::int64_t now_us, std::uint16_t value);
void dsp_spi_data(Board& board, std::int64_t now_us, std::uint16_t value);
std::uint16_t dsp_spi_status(Board& board, std::int64_t now_us);

}  // namespace vboard
