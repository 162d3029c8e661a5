// TVP5150: the decoder of the composite input.
//
// Register writes are never checked. A bus that does not open is reported by
// message and by the result each line names.
#pragma once

#include <cstdint>

#include "hw/i2capi.h"
#include "state/relaxed.h"

inline constexpr int kTvp5150Address = 0x5D;  // 7-bit, on the board's I2C bus

inline constexpr char kTvp5150NoBus[] = "Cannot access I2C device 5150";

enum Tvp5150Register : int {
  kTvp5150ResetRegister = 0x05,
  kTvp5150Brightness = 0x09,
  kTvp5150Saturation = 0x0A,
  kTvp5150Contrast = 0x0C,
  kTvp5150InterruptReset = 0x1C,
  kTvp5150VideoStd = 0x28,
  kTvp5150LineCountMsb = 0x84,
  kTvp5150LineCountLsb = 0x85,
  kTvp5150Status1 = 0x88,
  kTvp5150Status2 = 0x89,
  kTvp5150Status3 = 0x8A,
  kTvp5150Status4 = 0x8B,
  kTvp5150Status5 = 0x8C,
  kTvp5150CaptionData = 0x90,  // 0x90, 0x91 field 1; 0x92, 0x93 field 2
  kTvp5150InterruptA = 0xC0,
  kTvp5150InterruptB = 0xC1,
  kTvp5150RamData = 0xC3,
  kTvp5150RamAddressLow = 0xC4,
  kTvp5150RamAddressHigh = 0xC5,
  kTvp5150CaptionStatus = 0xC6,
  kTvp5150FullFieldEnable = 0xCF,
  kTvp5150LineModeFirst = 0xD0,
  kTvp5150LineModeLast = 0xFB,
};

// Bits of the caption status register; writing one back acknowledges it.
inline constexpr int kCaptionFifoFull = 0x80;
inline constexpr int kCaptionFifoEmpty = 0x40;
inline constexpr int kCaptionBit5 = 0x20;
inline constexpr int kCaptionField1 = 0x10;
inline constexpr int kCaptionField2 = 0x08;
inline constexpr int kCaptionClearAll = 0xFF;

// Start values, written in this order: the set-up of this board. Registers as in the
// data sheet of the TVP5150AM1 (Texas Instruments).
inline constexpr RegisterValue TVP5150_default_reg_array[] = {
    {0x00, 0x00}, {0x01, 0x15}, {0x02, 0x00}, {0x03, 0x6F}, {0x04, 0x1C}, {0x06, 0x10},
    {0x07, 0x60}, {0x08, 0x00}, {0x09, 0x80}, {0x0A, 0x80}, {0x0B, 0x00}, {0x0C, 0x80},
    {0x0D, 0x47}, {0x0E, 0x00}, {0x0F, 0x48}, {0x11, 0x00}, {0x12, 0x00}, {0x13, 0x00},
    {0x14, 0x00}, {0x15, 0x00}, {0x16, 0x80}, {0x18, 0x00}, {0x19, 0x00}, {0x1A, 0x0C},
    {0x1B, 0x14}, {0x28, 0x00}, {0x2E, 0x0F}, {0x2F, 0x01}, {0x30, 0x00}, {0xB1, 0x00},
    {0xB2, 0x00}, {0xB3, 0x00}, {0xB4, 0x00}, {0xB5, 0x00}, {0xB6, 0x00}, {0xB7, 0x00},
    {0xB8, 0x00}, {0xB9, 0x00}, {0xBA, 0x00}, {0xBB, 0x00}, {0xC8, 0x80}, {0xCA, 0x00},
    {0xCB, 0x4E}, {0xCC, 0x00}, {0xCD, 0x01}, {0xCE, 0x06}, {0xD0, 0x00}, {0xD1, 0xFF},
    {0xD2, 0xFF}, {0xD3, 0xFF}, {0xD4, 0xFF}, {0xD5, 0xFF}, {0xD6, 0xFF}, {0xD7, 0xFF},
    {0xD8, 0xFF}, {0xD9, 0xFF}, {0xDA, 0xFF}, {0xDB, 0xFF}, {0xDC, 0xFF}, {0xDD, 0xFF},
    {0xDE, 0xFF}, {0xDF, 0xFF}, {0xE0, 0xFF}, {0xE1, 0xFF}, {0xE2, 0xFF}, {0xE3, 0xFF},
    {0xE4, 0xFF}, {0xE5, 0xFF}, {0xE6, 0xFF}, {0xE7, 0xFF}, {0xE8, 0xFF}, {0xE9, 0xFF},
    {0xEA, 0xFF}, {0xEB, 0xFF}, {0xEC, 0xFF}, {0xED, 0xFF}, {0xEE, 0xFF}, {0xEF, 0xFF},
    {0xF0, 0xFF}, {0xF1, 0xFF}, {0xF2, 0xFF}, {0xF3, 0xFF}, {0xF4, 0xFF}, {0xF5, 0xFF},
    {0xF6, 0xFF}, {0xF7, 0xFF}, {0xF8, 0xFF}, {0xF9, 0xFF}, {0xFA, 0xFF}, {0xFB, 0xFF},
    {0x00, 0x00}, {0x00, 0x00},
};
static_assert(sizeof(TVP5150_default_reg_array) / sizeof(RegisterValue) == 92);

extern Relaxed<std::int32_t> i2c_handle;    // bus of the set-up steps and setters; -1 when closed
extern Relaxed<std::uint32_t> count_st;     // calls of video_monitorTVP5150 since the last reading
extern Relaxed<std::uint32_t> error_count;  // readings without lock
extern Relaxed<std::uint8_t> old_data1;     // last status register #1 of the monitor

// Modes of video_monitorTVP5150.
inline constexpr int kTvp5150Running = 1;
inline constexpr int kTvp5150AfterConfiguration = 2;

// Resets the chip and loads its registers and VBI RAM. Returns 1, or -1 when the
// bus cannot be opened.
int InitTVP5150();

// Sync check; reads the chip on every fifth call only, whoever calls. Returns 0
// when locked or not read this time, -1 without lock or without a bus.
int video_monitorTVP5150(int mode);

// Writes the low byte of value to reg through the RAM-access registers. No caller;
// bench interface.
void TVP5150ALoadProgramRAM(int fd, int value, int reg);

// Setters on i2c_handle as it stands; each returns 0. The byte that reaches the
// chip does not depend on value, see the source. All but the last have no caller:
// bench interface.
int TVP5150_SetBrightness(int value);
int TVP5150_SetContrast(int value);
int TVP5150_SetSaturation(int value);
int TVP5150_SetVideoStd(int value);

// Closes i2c_handle.
void tvp5150_close_handle();

// Steps of InitTVP5150 on a descriptor of the caller.
void tvp5150_reset(int fd);
void tvp5150_load_defaults(int fd);
void tvp5150_clear_ram(int fd);
void tvp5150_load_ram(int fd);

// The same on i2c_handle.
inline void ResetSW() { tvp5150_reset(i2c_handle); }
inline void LoadInitValue() { tvp5150_load_defaults(i2c_handle); }
inline void ClearTVP_RAM() { tvp5150_clear_ram(i2c_handle); }
inline void LoadTVP_RAM_Data() { tvp5150_load_ram(i2c_handle); }

// Prints the lock bits of status register #1.
void tvp5150_print_locks(int status1);
