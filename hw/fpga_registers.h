// Register map of the FPGA: every register once, by byte address, and the bits and
// values of those that have any.
//
// The driver is given the word index, half the byte address. Two-register
// quantities keep their low half at the lower address. A row makes the constant
// that the code uses and the entry of kFpgaRegisters, from which documents and the
// names in traces come.
#pragma once

enum class RegAccess { kRead, kWrite, kReadWrite, kLatch };

struct FpgaRegister {
  int address;       // byte address, even
  const char* name;  // label in prints, traces and documents
  RegAccess access;
  const char* meaning;
};

// clang-format off
// Constant, byte address, name, access, meaning; in order of addresses.
#define FPGA_REGISTERS(ROW) \
  ROW(kRegHwVersion,        0x000,  "FPGA_HW_VERSION",        kRead,      "FPGA hardware version") \
  ROW(kRegReset,            0x004,  "FPGA_RESET",             kWrite,     "1 holds the FPGA in reset, 0 releases it; also the audio reset step") \
  ROW(kRegAudioMode,        0x008,  "AUDIO_MODE",             kWrite,     "audio mode: 1 stop, 22 at the start of the AC-3 set-up") \
  ROW(kRegAudioStatus,      0x00C,  "AUDIO_STATUS_REG",       kRead,      "audio status") \
  ROW(kRegDspAudioEnable,   0x010,  "DSP_AUDIO_ENABLE",       kWrite,     "1 opens the audio path of the AC-3 DSP") \
  ROW(kRegLatch,            0x040,  "SNAPSHOT_LATCH",         kLatch,     "write 1 to freeze 0x044 to 0x098") \
  ROW(kRegVsOverallLow,     0x044,  "VS_OVERALL_LOW",         kRead,      "video frames seen, low half") \
  ROW(kRegVsOverallHigh,    0x048,  "VS_OVERALL_HIGH",        kRead,      "video frames seen, high half") \
  ROW(kRegVsRateLow,        0x04C,  "VS_RATE_LOW",            kRead,      "frame period, low half; frames/s = 1 440 000 / VS_RATE") \
  ROW(kRegVsRateHigh,       0x050,  "VS_RATE_HIGH",           kRead,      "frame period, high half") \
  ROW(kRegViBuff,           0x060,  "VI_BUFF",                kRead,      "video buffer fill") \
  ROW(kRegViOverallLow,     0x064,  "VI_OVERALL_LOW",         kRead,      "video units through the buffer, low half") \
  ROW(kRegViOverallHigh,    0x068,  "VI_OVERALL_HIGH",        kRead,      "video units through the buffer, high half") \
  ROW(kRegViRefOverallLow,  0x06C,  "VI_REF_OVERALL_LOW",     kRead,      "video reference count, low half") \
  ROW(kRegViRefOverallHigh, 0x070,  "VI_REF_OVERALL_HIGH",    kRead,      "video reference count, high half") \
  ROW(kRegAuBuff,           0x080,  "AU_BUFF",                kRead,      "audio buffer fill") \
  ROW(kRegAuI2sOverallLow,  0x084,  "AU_I2S_OVERALL_LOW",     kRead,      "audio samples in, low half") \
  ROW(kRegAuI2sOverallHigh, 0x088,  "AU_I2S_OVERALL_HIGH",    kRead,      "audio samples in, high half") \
  ROW(kRegAuOverallLow,     0x08C,  "AU_OVERALL_LOW",         kRead,      "audio units through the buffer, low half") \
  ROW(kRegAuOverallHigh,    0x090,  "AU_OVERALL_HIGH",        kRead,      "audio units through the buffer, high half") \
  ROW(kRegAuRefOverallLow,  0x094,  "AU_REF_OVERALL_LOW",     kRead,      "audio reference count, low half") \
  ROW(kRegAuRefOverallHigh, 0x098,  "AU_REF_OVERALL_HIGH",    kRead,      "audio reference count, high half") \
  ROW(kRegCaptureData,      0x100,  "AC3_CAPTURE_DATA",       kRead,      "AC-3 capture FIFO data") \
  ROW(kRegCaptureStatus,    0x104,  "AC3_CAPTURE_STATUS",     kRead,      "AC-3 capture status, bits 0-13 words pending") \
  ROW(kRegCaptureLoop,      0x108,  "AC3_CAPTURE_LOOP",       kReadWrite, "AC-3 capture loop control") \
  ROW(kRegUpdateData,       0x120,  "UPDATE_FIFO_DATA",       kRead,      "update FIFO word, first file byte in bits 8-15") \
  ROW(kRegUpdateStatus,     0x124,  "UPDATE_FIFO_STATUS",     kRead,      "update FIFO: bits 0-7 data waiting, bits 0-11 fill level") \
  ROW(kRegDspSpiData,       0x140,  "DSP_SPI_DATA",           kWrite,     "DSP firmware byte") \
  ROW(kRegDspSpiControl,    0x144,  "DSP_SPI_CONTROL",        kWrite,     "DSP firmware SPI master control") \
  ROW(kRegDspSpiStatus,     0x148,  "DSP_SPI_STATUS",         kRead,      "bits 0-8 FIFO level, bit 11 busy, bit 15 HWAIT") \
  ROW(kRegVideoControl,     0x204,  "VIDEO_CONTROL",          kReadWrite, "video path and codec bits") \
  ROW(kRegP0DtsInit,        0x208,  "P0_DTS_INIT_REG",        kWrite,     "decoding time-stamp offset, path 0") \
  ROW(kRegFramePeriod,      0x210,  "FRAME_PERIOD",           kWrite,     "frame period code, fps_parameter") \
  ROW(kRegP0Mpeg2Status,    0x214,  "P0_MPEG2_STATUS_REG",    kRead,      "MPEG-2 status") \
  ROW(kRegAc3Control,       0x224,  "P1_AC3_CTRL_REG",        kWrite,     "AC-3 control word") \
  ROW(kRegP1DtsInit,        0x228,  "P1_DTS_INIT_REG",        kWrite,     "decoding time-stamp offset, path 1") \
  ROW(kRegAc3FrameBytes,    0x22C,  "AC3_FRAME_BYTES",        kWrite,     "AC-3 bytes per frame") \
  ROW(kRegSampleRate,       0x230,  "AUDIO_SAMPLE_PERIOD",    kWrite,     "audio sample-rate period") \
  ROW(kRegAc3Status,        0x234,  "P1_AC3_STATUS_REG",      kRead,      "AC-3 status") \
  ROW(kRegAc3Sync,          0x600,  "AC3_SYNC_WORD",          kRead,      "0x770B when a sync frame is held; first of 127 captured words") \
  ROW(kRegAc3Word2,         0x608,  "AC3_WORD_2",             kRead,      "captured word 2, bytes swapped") \
  ROW(kRegAc3Word3,         0x60C,  "AC3_WORD_3",             kRead,      "captured word 3, bytes swapped") \
  ROW(kRegPidVideo,         0x1000, "PID_VIDEO",              kWrite,     "video PID (block write of 2)") \
  ROW(kRegPidAudio,         0x1004, "PID_AUDIO",              kWrite,     "audio PID (block write of 2)") \
  ROW(kRegVideoCodec0,      0x1200, "VIDEO_CODEC_0",          kWrite,     "video codec set-up") \
  ROW(kRegVideoCodec1,      0x1204, "VIDEO_CODEC_1",          kWrite,     "video codec set-up") \
  ROW(kRegVideoCodec2,      0x1208, "VIDEO_CODEC_2",          kWrite,     "video codec set-up") \
  ROW(kRegVideoCodec3,      0x120C, "VIDEO_CODEC_3",          kWrite,     "video codec constant") \
  ROW(kRegAudioMux0,        0x1210, "AUDIO_MUX_0",            kWrite,     "audio multiplexer set-up") \
  ROW(kRegAudioMux1,        0x1214, "AUDIO_MUX_1",            kWrite,     "audio multiplexer set-up") \
  ROW(kRegAudioMux2,        0x1218, "AUDIO_MUX_2",            kWrite,     "audio multiplexer set-up") \
  ROW(kRegAudioMux3,        0x121C, "AUDIO_MUX_3",            kWrite,     "audio multiplexer set-up") \
  ROW(kRegOutputInterval,   0x1300, "OUTPUT_INTERVAL",        kWrite,     "output packet interval") \
  ROW(kRegOutputRate0,      0x1304, "OUTPUT_RATE_0",          kWrite,     "output rate constant") \
  ROW(kRegOutputRate1,      0x1308, "OUTPUT_RATE_1",          kWrite,     "output rate constant") \
  ROW(kRegOutputRate2,      0x130C, "OUTPUT_RATE_2",          kWrite,     "output rate constant") \
  ROW(kRegPidPcr,           0x1320, "PID_PCR",                kWrite,     "PCR PID (block write of 2)") \
  ROW(kRegControl,          0x1328, "CONTROL",                kWrite,     "6 after reset and at each configuration apply") \
  ROW(kRegAudioControl,     0x132C, "AUDIO_CONTROL",          kWrite,     "0 at reset and in the audio reset sequence") \
  ROW(kRegVideoLevel,       0x1340, "VIDEO_LEVEL",            kRead,      "video buffer level, overflow above 34 899") \
  ROW(kRegAudioLevel,       0x1344, "AUDIO_LEVEL",            kRead,      "audio buffer level, overflow above 1 989") \
  ROW(kRegTsMuxStatus,      0x1380, "TS_MUX_STATUS_REGISTER", kRead,      "transport-stream multiplexer status") \
  ROW(kRegEbBuff,           0x1384, "TS_MUX_STATUS_REG",      kRead,      "elementary buffer fill") \
  ROW(kRegEbBuffMin,        0x1388, "EB_BUFF_MIN",            kRead,      "elementary buffer range, low end") \
  ROW(kRegEbBuffMax,        0x138C, "EB_BUFF_MAX",            kRead,      "elementary buffer range, high end") \
  ROW(kRegFrameSize,        0x1390, "FRAME_SIZE",             kRead,      "frame size") \
  ROW(kRegFrameSizeMin,     0x1394, "FRAME_SIZE_MIN",         kRead,      "frame size range, low end") \
  ROW(kRegFrameSizeMax,     0x1398, "FRAME_SIZE_MAX",         kRead,      "frame size range, high end")
// clang-format on

#define FPGA_REGISTER_CONSTANT(constant, address, name, access, meaning) \
  inline constexpr int constant = address;
FPGA_REGISTERS(FPGA_REGISTER_CONSTANT)

#define FPGA_REGISTER_ENTRY(constant, address, name, access, meaning) \
  {address, name, RegAccess::access, meaning},
inline constexpr FpgaRegister kFpgaRegisters[] = {FPGA_REGISTERS(FPGA_REGISTER_ENTRY)};

#undef FPGA_REGISTER_CONSTANT
#undef FPGA_REGISTER_ENTRY
#undef FPGA_REGISTERS

// kRegAudioMode.
inline constexpr int kAudioModeStop = 1;
inline constexpr int kAudioModeSetup = 22;  // at the start of an AC-3 set-up

// kRegVsRateLow, kRegVsRateHigh: frames per second = kFrameClock / VS_RATE.
inline constexpr int kFrameClock = 1'440'000;

// kRegCaptureStatus, kRegCaptureLoop.
inline constexpr unsigned kCapturePendingMask = 0x3FFF;  // words that wait in the FIFO
inline constexpr int kCaptureLoopOn = 4;

// kRegUpdateStatus.
inline constexpr unsigned kUpdateWaitingMask = 0x00FF;  // non-zero: data waits
inline constexpr unsigned kUpdateLevelMask = 0x0FFF;

// kRegDspSpiStatus, kRegDspSpiControl. The control words carry HWAIT in bit 2.
inline constexpr unsigned kDspSpiLevelMask = 0x01FF;
inline constexpr unsigned kDspSpiBusy = 0x0800;
inline constexpr int kDspSpiHwaitBit = 15;
inline constexpr int kDspSpiRun = 3;
inline constexpr int kDspSpiEnd = 2;

// kRegVideoControl.
inline constexpr int kVideoControlH264 = 0x0100;
inline constexpr int kVideoControlMpeg2Captions = 0x2000;
inline constexpr int kVideoControlSdDecoder = 0x4000;

// kRegAc3Control.
inline constexpr int kAc3CtrlEnable = 0x0001;
inline constexpr int kAc3CtrlOutput = 0x0010;     // cleared where audio is disabled
inline constexpr int kAc3CtrlTiming = 0x0020;     // rate and frame-size codes are set
inline constexpr int kAc3CtrlFscodShift = 6;      // sample-rate code
inline constexpr int kAc3CtrlFrameSizeShift = 8;  // frame-size code
inline constexpr int kAc3CtrlDigital = 0x4000;    // path of the digital input
inline constexpr int kAc3CtrlDsp = 0x8000;        // path of the DSP
inline constexpr int kAc3CtrlPathFree = 0x3FFF;   // all bits below the path bits

// kRegSampleRate: 48 kHz and every rate but 32 kHz.
inline constexpr int kSamplePeriod48 = 2880;
inline constexpr int kSamplePeriod32 = 4320;

// kRegAc3Sync: the captured header, 127 words, one every 4 bytes.
inline constexpr unsigned kAc3SyncFlipped = 0x770B;  // sync word 0x0B77 as it is captured
inline constexpr int kAc3CaptureWords = 127;
inline constexpr int kAc3CaptureStride = 4;

// kRegControl after reset and at each configuration apply.
inline constexpr int kControlRunning = 6;

// kRegVideoLevel, kRegAudioLevel: a higher level is an overflow.
inline constexpr unsigned kVideoLevelLimit = 34'899;
inline constexpr unsigned kAudioLevelLimit = 1'989;
