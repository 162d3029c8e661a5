// Board: everything the virtual board knows, in one plain struct.
//
// The struct lives in one mapped file, shared by the processes of a board (the
// product, `encode`, `melk`, `vboard`), or in anonymous memory in a test. A
// fresh board is `new (place) Board` - there is no hand-kept list of fields to
// reset. Chip models are free functions on it, one file a chip.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "vboard/core/fnv.h"
#include "vboard/core/standards.h"

namespace vboard {

inline constexpr std::uint32_t kBoardMagic = 0x44524256;  // "VBRD"

// ---- time -----------------------------------------------------------------
enum class TimeMode : std::uint32_t { kReal, kScaled, kVirtual };

struct ClockState {
  TimeMode mode = TimeMode::kVirtual;
  double speed = 1.0;               // board seconds per real second, real and scaled
  std::int64_t epoch_mono_ns = 0;   // host clock when the run began
  std::int64_t epoch_board_us = 0;  // board clock when the run began
  std::int64_t now_us = 0;          // board clock: virtual time, or when stopped
  std::int64_t limit_us = -1;       // a virtual run ends here; -1 for no limit
  std::uint32_t running = 0;        // a program runs on the board
};

// ---- the SPI link -----------------------------------------------------------
inline constexpr std::uint32_t kLinkDepth = 16384;  // power of two

struct LinkFifo {
  std::uint8_t data[kLinkDepth] = {};
  std::uint32_t head = 0;  // bytes ever put in
  std::uint32_t tail = 0;  // bytes ever taken out
  std::uint32_t overruns = 0;
};

struct LinkState {
  LinkFifo to_board;
  LinkFifo to_host;
  bool settled = true;      // the board is done with the bytes it took
  std::uint32_t event = 0;  // futex word, moves with every change of either FIFO
};

// ---- the world outside -------------------------------------------------------
enum class AudioSource : std::uint8_t { kNone, kDigital, kDsp };

// The AC-3 stream that an audio source plays (ATSC A/52 header fields).
struct Ac3Stream {
  std::uint8_t fscod = 0;        // 0: 48 kHz, 1: 44.1 kHz, 2: 32 kHz
  std::uint8_t frmsizecod = 28;  // 384 kbit/s
  std::uint8_t bsid = 8;
  std::uint8_t bsmod = 0;
  std::uint8_t acmod = 7;
  std::uint8_t surround = 0;
  std::uint8_t langcode = 0;
};

inline constexpr int kI2cAddresses = 128;
inline constexpr std::uint32_t kStuckRegisters = 16;

// A register of a register chip that answers one value whatever the chip does.
struct StuckRegister {
  std::uint8_t address = 0;  // 7-bit
  std::uint8_t reg = 0;
  std::uint8_t value = 0;
};

// Faults of the world, each undone by clearing its field.
struct Faults {
  bool video_freeze = false;            // sync gone, picture readings frozen
  bool video_overflow = false;          // video buffer level beyond its limit
  bool audio_overflow = false;          // audio buffer level beyond its limit
  bool stall = false;                   // video buffer stops moving at its level
  bool low_buffer = false;              // video buffer never fills
  bool level_jump = false;              // video buffer settles at another level
  bool video_drift = false;             // frames are lost between reference and buffer
  bool audio_drift = false;             // sync frames are lost between reference and buffer
  bool encode_hang = false;             // encode lives and does nothing
  bool encode_never_alive = false;      // encode starts and never reports itself alive
  bool no_ac3_sync = false;             // capture never holds a sync frame
  bool wrong_ac3_sync = false;          // captured words without the sync word
  std::int32_t ac3_frame_code = -1;     // captured headers carry this frame-size code
  bool dsp_dead = false;                // the DSP answers nothing, firmware or not
  bool dsp_fifo_stuck = false;          // firmware FIFO never drains
  bool fpga_fail = false;               // every request of the FPGA driver fails
  std::int32_t fpga_fail_request = -1;  // this request of the FPGA driver fails
  // Transfers to this address fail: 0 none, -1 all, n > 0 the n-th from now.
  std::int32_t i2c_fail[kI2cAddresses] = {};
  bool i2c_hung = false;  // a line of the bus is held low: every transfer times out
  StuckRegister stuck[kStuckRegisters];
  std::uint32_t stuck_count = 0;
  std::uint64_t ghost_standards = 0;  // bits that the capture driver reports besides the right one
  std::uint32_t missing_devices = 0;  // bit per Device: its node is gone
  bool link_ends = false;             // a read of the silent link ends with 0 bytes
  // What the losses took away, so that they can be undone; kNone when not lost.
  VideoSource lost_video = VideoSource::kNone;
  AudioSource lost_audio = AudioSource::kNone;
  bool lost_firmware = false;  // the DSP's firmware was taken away
};

struct World {
  VideoSource video = VideoSource::kComponent;
  std::uint8_t standard = usual_standard(VideoSource::kComponent);  // of kVideoStandards
  std::uint32_t fps_milli = 25000;  // frames per 1000 s of the source
  std::uint8_t standard_bit = 53;   // bit that the capture driver reports, or kNoStandardBit
  bool pal = true;                  // composite: 625 lines, else 525
  bool captions = false;            // composite: closed captions in the signal
  AudioSource audio = AudioSource::kDigital;
  Ac3Stream ac3;
  Faults faults;
};

// ---- devices ----------------------------------------------------------------
enum class Device : std::uint8_t {
  kNone,
  kFpga,
  kFpga2,
  kSpiSlave,
  kI2c,
  kVideo0,
  kGpioValue,
};

inline constexpr int kFpgaWords = 4096;

// The decoder whose pictures the select line leads to the FPGA.
enum class FrontEnd : std::uint8_t { kNone, kTvp7002, kTvp5150 };

struct FpgaState {
  std::uint16_t reg[kFpgaWords] = {};  // by word index; what was written or latched
  bool held = false;                   // reads and the latch give reg as it stands
  double video_units = 0;              // live counters, integrated over time
  double video_frames = 0;
  double video_reference = 0;
  double audio_units = 0;
  double audio_samples = 0;
  double audio_reference = 0;
  double video_level = 0;        // video buffer fill
  double audio_level = 0;        // audio buffer fill
  std::int64_t updated_us = 0;   // counters are true at this time
  std::uint32_t line[128] = {};  // times each line action was issued
  std::uint32_t led_requests = 0;
  bool in_reset = false;
  bool was_reset = false;  // and let go, since power-on
  FrontEnd front_end = FrontEnd::kNone;
  std::uint32_t test_address = 0;
  std::uint32_t test[32] = {};
  // Configuration port.
  bool config_line = true;
  std::int32_t nstatus_delay = 0;  // status polls before nSTATUS shows; -1 never
  std::int32_t nstatus_polls = 0;
  bool config_broken = false;             // loading never reaches done
  bool config_short_write = false;        // the port takes one byte less
  std::uint32_t config_size = 0;          // bytes of a whole bitstream; 0: not known
  std::uint32_t config_bytes = 0;         // bytes since the line was pulsed
  std::uint32_t config_hash = kFnvStart;  // FNV-1a of these bytes, in order
  std::uint8_t config_last[32] = {};      // the last 32 of them, ring by count
  std::uint8_t config_readback[64] = {};
  std::uint32_t config_readback_len = 0;
  // Update FIFO, filled by the host at its own rate.
  std::uint8_t update_fifo[8192] = {};
  std::uint32_t update_head = 0;
  std::uint32_t update_tail = 0;
  // DSP firmware SPI master.
  std::uint32_t spi_level = 0;
  std::uint64_t firmware_bytes = 0;
  std::int64_t spi_drained_us = 0;
  std::uint8_t block_memory[65536] = {};
};

// Registers of the decoders begin with the power-on values of their data sheets.
struct Tvp7002State {
  std::uint8_t reg[256] = {
      0x02, 0x67, 0x20, 0xA0, 0x80, 0x06, 0x10, 0x60, 0x3C, 0x3C, 0x3C, 0x80, 0x80, 0x80, 0x24,
      0x2E, 0x5D, 0x20, 0x00, 0x00, 0x00, 0x04, 0x11, 0x03, 0x00, 0x00, 0xC2, 0x55, 0x05, 0x00,
      0x10, 0x10, 0x10, 0x0D, 0x08, 0x00, 0x00, 0x00, 0x80, 0x00, 0x53, 0x08, 0x07, 0x00, 0x50,
      0x00, 0x80, 0x8C, 0x04, 0x5A, 0x18, 0x60, 0x03, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x03, 0x00, 0x00, 0x2C, 0x01, 0x2C, 0x06, 0x05, 0x00, 0x1E, 0x00, 0x00, 0x00};
  std::uint8_t pointer = 0;
  bool in_reset = false;
  std::uint32_t reads = 0;
};

struct Tvp5150State {
  std::uint8_t reg[256] = {
      0x00, 0x15, 0x00, 0x01, 0xDC, 0x00, 0x10, 0x60, 0x00, 0x80, 0x80, 0x00, 0x80, 0x47, 0x00,
      0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x80, 0x00, 0x00, 0x00, 0x0C, 0x14, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x0F, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x51, 0x50, 0x04, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x4E, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFF,
      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};
  std::uint8_t pointer = 0;
  bool in_reset = false;
  std::uint8_t vbi_ram[512] = {};
  bool vbi_loaded[512] = {};  // bytes of it that were written since the reset
  std::uint16_t vbi_address = 0;
  std::uint32_t reads = 0;
  bool was_locked = false;  // at the last read of status register #1
  std::int64_t captions_taken_us[2] = {-1000000, -1000000};  // field 1, field 2 acknowledged
};

struct CaptureState {
  std::int32_t input = 0;
  std::int32_t selected_register = 0;  // by request 0xC004562C
  std::int32_t ipipe[65536 / 4] = {};
  std::int32_t isif_selected = 0;
  std::int32_t isif[65536 / 4] = {};
  std::int32_t crop[4] = {};
};

inline constexpr std::uint16_t kCodecInputAtPowerOn = 0x97;  // muted, gain 0 dB

// A fresh board is as its boot leaves it: the DSP has its firmware, the digital
// receiver is programmed.
struct Ac3DspState {
  bool has_firmware = true;
  bool in_reset = false;
  bool running = false;
  std::uint8_t configure[7] = {};  // mode and parameters of the last configure
  std::uint16_t codec[256] = {kCodecInputAtPowerOn, kCodecInputAtPowerOn};
  std::uint8_t pending_command = 0;  // command whose reply a read fetches
  std::uint8_t pending_register = 0;
  std::uint32_t peak_index = 0;
  std::uint32_t peak_left = 0x00123456;
  std::uint32_t peak_right = 0x00654321;
  std::uint8_t version = 0x21;
  std::uint32_t commands = 0;
  std::int64_t ready_us = 0;            // answers from this time on
  std::int64_t reply_us = 0;            // the reply to a read stands from this time on
  std::int64_t released_us = -1000000;  // reset line last let go
  // Firmware push through the FPGA's SPI master.
  bool loading = false;  // between start and end control word
  std::uint16_t spi_control = 0;
  bool spi_misled = false;                  // the master was told HWAIT wrongly: nothing is taken
  std::uint32_t firmware_hash = kFnvStart;  // FNV-1a of the pushed bytes, in order
};

struct Dix4192State {
  // As after a good set-up: powered; port A sends the received data, its clock
  // from the receiver; input 1 with the master clock of 18.432 MHz as reference,
  // which PLL1 brings to 98.304 MHz (x 16 / 3).
  std::uint8_t reg[256] = {0x00, 0x3F, 0x00, 0x29, 0x0B, 0x00, 0x00, 0x00, 0x00,
                           0x00, 0x00, 0x00, 0x00, 0x08, 0x01, 0x34, 0x00, 0x00};
  std::uint8_t pointer = 0;
  bool in_reset = false;
};

// The bench FIFO of AC-3 words; it fills at the rate of the stream.
struct Ac3CaptureState {
  std::int64_t since_us = 0;  // first word of a frame entered at this time
  std::int64_t taken = 0;     // words since then that were read or lost
};

struct SmallChipState {  // the 7353 and the two clock blocks
  std::uint8_t reg[256] = {};
  std::uint8_t pointer = 0;
  std::uint32_t writes = 0;
};

struct PllState {
  std::uint8_t last[2] = {};
  std::uint32_t transfers = 0;
};

// Exported sysfs GPIO outputs.
struct GpioState {
  bool exported[128] = {};
  std::uint8_t value[128] = {};
};

// ---- encode -------------------------------------------------------------------
struct EncoderState {
  std::int32_t pid = 0;        // 0 when no encode process lives
  std::uint32_t launches = 0;  // moves when a process reports for duty
  std::int64_t started_us = 0;
  std::int64_t start_up_us = 1200000;  // launch to alive word
  bool alive_raised = false;           // this process has raised the alive word
  bool streaming = false;              // alive, not held: FPGA counters move
  bool crash_requested = false;        // one-shot: the process dies by itself
};

// ---- a process beside the program, in virtual time (core/guest.h) -----------------------
enum class GuestAsks : std::uint32_t { kTurn, kWait, kHeartbeat, kEnd, kLeave };

struct GuestState {
  std::uint32_t asked = 0;     // number of the last question; a futex word, like
  std::uint32_t answered = 0;  // that of the last one answered
  GuestAsks what = GuestAsks::kTurn;
  std::uint32_t wait_for = 0;  // a WaitFor
  std::int64_t timeout_us = 0;
  bool came_true = false;
};

// ---- what the models make of it all ------------------------------------------
// What comes through, by the registers, the lines and the world; worked out anew
// when one of them has changed (models/needs.h).
struct Verdict {
  bool stale = true;
  bool frames_in = false;  // pictures reach the FPGA
  bool video_out = false;  // and are let into the stream, as far as it is set up
  bool receiver_lock = false;
  bool sound_in = false;   // AC-3 frames reach the FPGA
  bool sound_out = false;  // and are let into the stream
};

// ---- health of the simulation itself --------------------------------------------
struct Violations {  // things a driver must not do: undocumented registers, bad lengths
  std::uint32_t count = 0;
  char first[160] = {};
};

inline constexpr std::size_t kLongestPath = 4096;

// The chips on the board's bus: 7-bit address, name in traces and documents, model.
#define VBOARD_CHIPS(CHIP)                \
  CHIP(0x1C, "AC-3 DSP", kAc3DspChip)     \
  CHIP(0x2E, "7353", k7353Chip)           \
  CHIP(0x55, "clock block", kClock55Chip) \
  CHIP(0x5C, "TVP7002", kTvp7002Chip)     \
  CHIP(0x5D, "TVP5150", kTvp5150Chip)     \
  CHIP(0x70, "DIX4192", kDix4192Chip)

struct Board {
  std::uint32_t magic = kBoardMagic;
  std::uint32_t layout = 0;  // board_layout() of who made it
  std::uint32_t size = 0;
  pthread_mutex_t lock = {};
  ClockState clock;
  LinkState link;
  World world;
  FpgaState fpga;
  Tvp7002State tvp7002;
  Tvp5150State tvp5150;
  CaptureState capture;
  Ac3DspState dsp;
  Dix4192State dix4192;
  Ac3CaptureState ac3_capture;
  SmallChipState chip7353;
  SmallChipState clock_55;
  PllState pll;
  GpioState gpio;
  EncoderState encoder;
  Violations violations;
  std::uint64_t trace_sequence = 0;
  std::uint64_t operations = 0;         // traced ones of this run
  char record_file[kLongestPath] = {};  // the run is recorded there; "" when it is not
  std::int64_t last_acted_us = -1;      // by program, host or world, in the record
  std::int32_t trace_errno = 0;         // why a line of trace or record was lost; 0: none was
  GuestState guest;
  mutable Verdict verdict;  // ask verdict() of models/needs.h
};

// Holds the board's lock, which is shared by processes and survives the death
// of one that held it.
class Locked {
 public:
  explicit Locked(Board& board);
  ~Locked();
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  Board& board_;
};

// A number for the layout of Board, another one in every version that changed it.
std::uint32_t board_layout();

// Makes `place` (sizeof(Board) bytes) a fresh board.
Board* new_board(void* place);

// Makes a state file with a fresh board, whole or not at all; one process at a time
// may. Returns false with errno set.
bool make_board(const char* state_file);

// Maps a state file. Returns null with errno set, EPROTO for one of another version.
Board* map_board(const char* state_file);

// True while a run holds the lock of this board directory.
bool board_in_use(const char* directory);

// Records something that a driver must not do; the first text is kept.
void violation(Board& board, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vboard
