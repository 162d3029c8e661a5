// Register map of the FPGA: every register by byte address, once.
//
// The driver is given the word index, half the byte address. Two-register
// quantities keep their low half at the lower address. The table feeds the
// documentation and the names in traces; the constants below it are what the
// code uses.
#pragma once

enum class RegAccess { kRead, kWrite, kReadWrite, kLatch };

struct FpgaRegister {
  int address;       // byte address, even
  const char* name;  // label in prints, traces and documents
  RegAccess access;
  const char* meaning;
};

inline constexpr int kRegHwVersion = 0x000;
inline constexpr int kRegReset = 0x004;
inline constexpr int kRegAudioMode = 0x008;
inline constexpr int kRegAudioStatus = 0x00C;
inline constexpr int kRegDspAudioEnable = 0x010;
inline constexpr int kRegLatch = 0x040;
inline constexpr int kRegVsOverallLow = 0x044;
inline constexpr int kRegVsOverallHigh = 0x048;
inline constexpr int kRegVsRateLow = 0x04C;
inline constexpr int kRegVsRateHigh = 0x050;
inline constexpr int kRegViBuff = 0x060;
inline constexpr int kRegViOverallLow = 0x064;
inline constexpr int kRegViOverallHigh = 0x068;
inline constexpr int kRegViRefOverallLow = 0x06C;
inline constexpr int kRegViRefOverallHigh = 0x070;
inline constexpr int kRegAuBuff = 0x080;
inline constexpr int kRegAuI2sOverallLow = 0x084;
inline constexpr int kRegAuI2sOverallHigh = 0x088;
inline constexpr int kRegAuOverallLow = 0x08C;
inline constexpr int kRegAuOverallHigh = 0x090;
inline constexpr int kRegAuRefOverallLow = 0x094;
inline constexpr int kRegAuRefOverallHigh = 0x098;
inline constexpr int kRegCaptureData = 0x100;
inline constexpr int kRegCaptureStatus = 0x104;
inline constexpr int kRegCaptureLoop = 0x108;
inline constexpr int kRegUpdateData = 0x120;
inline constexpr int kRegUpdateStatus = 0x124;
inline constexpr int kRegDspSpiData = 0x140;
inline constexpr int kRegDspSpiControl = 0x144;
inline constexpr int kRegDspSpiStatus = 0x148;
inline constexpr int kRegVideoControl = 0x204;
inline constexpr int kRegP0DtsInit = 0x208;
inline constexpr int kRegFramePeriod = 0x210;
inline constexpr int kRegP0Mpeg2Status = 0x214;
inline constexpr int kRegAc3Control = 0x224;
inline constexpr int kRegP1DtsInit = 0x228;
inline constexpr int kRegAc3FrameBytes = 0x22C;
inline constexpr int kRegSampleRate = 0x230;
inline constexpr int kRegAc3Status = 0x234;
inline constexpr int kRegAc3Sync = 0x600;
inline constexpr int kRegAc3Word2 = 0x608;
inline constexpr int kRegAc3Word3 = 0x60C;
inline constexpr int kRegPidVideo = 0x1000;
inline constexpr int kRegPidAudio = 0x1004;
inline constexpr int kRegVideoCodec0 = 0x1200;
inline constexpr int kRegVideoCodec1 = 0x1204;
inline constexpr int kRegVideoCodec2 = 0x1208;
inline constexpr int kRegVideoCodec3 = 0x120C;
inline constexpr int kRegAudioMux0 = 0x1210;
inline constexpr int kRegAudioMux1 = 0x1214;
inline constexpr int kRegAudioMux2 = 0x1218;
inline constexpr int kRegAudioMux3 = 0x121C;
inline constexpr int kRegOutputInterval = 0x1300;
inline constexpr int kRegOutputRate0 = 0x1304;
inline constexpr int kRegOutputRate1 = 0x1308;
inline constexpr int kRegOutputRate2 = 0x130C;
inline constexpr int kRegPidPcr = 0x1320;
inline constexpr int kRegControl = 0x1328;
inline constexpr int kRegAudioControl = 0x132C;
inline constexpr int kRegVideoLevel = 0x1340;
inline constexpr int kRegAudioLevel = 0x1344;
inline constexpr int kRegTsMuxStatus = 0x1380;
inline constexpr int kRegEbBuff = 0x1384;
inline constexpr int kRegEbBuffMin = 0x1388;
inline constexpr int kRegEbBuffMax = 0x138C;
inline constexpr int kRegFrameSize = 0x1390;
inline constexpr int kRegFrameSizeMin = 0x1394;
inline constexpr int kRegFrameSizeMax = 0x1398;

inline constexpr FpgaRegister kFpgaRegisters[] = {
    {kRegHwVersion, "FPGA_HW_VERSION", RegAccess::kRead, "FPGA hardware version"},
    {kRegReset, "FPGA_RESET", RegAccess::kWrite,
     "1 holds the FPGA in reset, 0 releases it; also the audio reset step"},
    {kRegAudioMode, "AUDIO_MODE", RegAccess::kWrite,
     "audio mode: 1 stop, 22 at the start of the AC-3 set-up"},
    {kRegAudioStatus, "AUDIO_STATUS_REG", RegAccess::kRead, "audio status"},
    {kRegDspAudioEnable, "DSP_AUDIO_ENABLE", RegAccess::kWrite,
     "1 opens the audio path of the AC-3 DSP"},
    {kRegLatch, "SNAPSHOT_LATCH", RegAccess::kLatch, "write 1 to freeze 0x044 to 0x098"},
    {kRegVsOverallLow, "VS_OVERALL_LOW", RegAccess::kRead, "video frames seen, low half"},
    {kRegVsOverallHigh, "VS_OVERALL_HIGH", RegAccess::kRead, "video frames seen, high half"},
    {kRegVsRateLow, "VS_RATE_LOW", RegAccess::kRead,
     "frame period, low half; frames/s = 1 440 000 / VS_RATE"},
    {kRegVsRateHigh, "VS_RATE_HIGH", RegAccess::kRead, "frame period, high half"},
    {kRegViBuff, "VI_BUFF", RegAccess::kRead, "video buffer fill"},
    {kRegViOverallLow, "VI_OVERALL_LOW", RegAccess::kRead,
     "video units through the buffer, low half"},
    {kRegViOverallHigh, "VI_OVERALL_HIGH", RegAccess::kRead,
     "video units through the buffer, high half"},
    {kRegViRefOverallLow, "VI_REF_OVERALL_LOW", RegAccess::kRead,
     "video reference count, low half"},
    {kRegViRefOverallHigh, "VI_REF_OVERALL_HIGH", RegAccess::kRead,
     "video reference count, high half"},
    {kRegAuBuff, "AU_BUFF", RegAccess::kRead, "audio buffer fill"},
    {kRegAuI2sOverallLow, "AU_I2S_OVERALL_LOW", RegAccess::kRead, "audio samples in, low half"},
    {kRegAuI2sOverallHigh, "AU_I2S_OVERALL_HIGH", RegAccess::kRead, "audio samples in, high half"},
    {kRegAuOverallLow, "AU_OVERALL_LOW", RegAccess::kRead,
     "audio units through the buffer, low half"},
    {kRegAuOverallHigh, "AU_OVERALL_HIGH", RegAccess::kRead,
     "audio units through the buffer, high half"},
    {kRegAuRefOverallLow, "AU_REF_OVERALL_LOW", RegAccess::kRead,
     "audio reference count, low half"},
    {kRegAuRefOverallHigh, "AU_REF_OVERALL_HIGH", RegAccess::kRead,
     "audio reference count, high half"},
    {kRegCaptureData, "AC3_CAPTURE_DATA", RegAccess::kRead, "AC-3 capture FIFO data"},
    {kRegCaptureStatus, "AC3_CAPTURE_STATUS", RegAccess::kRead,
     "AC-3 capture status, bits 0-13 words pending"},
    {kRegCaptureLoop, "AC3_CAPTURE_LOOP", RegAccess::kReadWrite, "AC-3 capture loop control"},
    {kRegUpdateData, "UPDATE_FIFO_DATA", RegAccess::kRead,
     "update FIFO word, first file byte in bits 8-15"},
    {kRegUpdateStatus, "UPDATE_FIFO_STATUS", RegAccess::kRead,
     "update FIFO: bits 0-7 data waiting, bits 0-11 fill level"},
    {kRegDspSpiData, "DSP_SPI_DATA", RegAccess::kWrite, "DSP firmware byte"},
    {kRegDspSpiControl, "DSP_SPI_CONTROL", RegAccess::kWrite, "DSP firmware SPI master control"},
    {kRegDspSpiStatus, "DSP_SPI_STATUS", RegAccess::kRead,
     "bits 0-8 FIFO level, bit 11 busy, bit 15 HWAIT"},
    {kRegVideoControl, "VIDEO_CONTROL", RegAccess::kReadWrite, "video path and codec bits"},
    {kRegP0DtsInit, "P0_DTS_INIT_REG", RegAccess::kWrite, "decoding time-stamp offset, path 0"},
    {kRegFramePeriod, "FRAME_PERIOD", RegAccess::kWrite, "frame period code, fps_parameter"},
    {kRegP0Mpeg2Status, "P0_MPEG2_STATUS_REG", RegAccess::kRead, "MPEG-2 status"},
    {kRegAc3Control, "P1_AC3_CTRL_REG", RegAccess::kWrite, "AC-3 control word"},
    {kRegP1DtsInit, "P1_DTS_INIT_REG", RegAccess::kWrite, "decoding time-stamp offset, path 1"},
    {kRegAc3FrameBytes, "AC3_FRAME_BYTES", RegAccess::kWrite, "AC-3 bytes per frame"},
    {kRegSampleRate, "AUDIO_SAMPLE_PERIOD", RegAccess::kWrite, "audio sample-rate period"},
    {kRegAc3Status, "P1_AC3_STATUS_REG", RegAccess::kRead, "AC-3 status"},
    {kRegAc3Sync, "AC3_SYNC_WORD", RegAccess::kRead,
     "0x770B when a sync frame is held; first of 127 captured words"},
    {kRegAc3Word2, "AC3_WORD_2", RegAccess::kRead, "captured word 2, bytes swapped"},
    {kRegAc3Word3, "AC3_WORD_3", RegAccess::kRead, "captured word 3, bytes swapped"},
    {kRegPidVideo, "PID_VIDEO", RegAccess::kWrite, "video PID (block write of 2)"},
    {kRegPidAudio, "PID_AUDIO", RegAccess::kWrite, "audio PID (block write of 2)"},
    {kRegVideoCodec0, "VIDEO_CODEC_0", RegAccess::kWrite, "video codec set-up"},
    {kRegVideoCodec1, "VIDEO_CODEC_1", RegAccess::kWrite, "video codec set-up"},
    {kRegVideoCodec2, "VIDEO_CODEC_2", RegAccess::kWrite, "video codec set-up"},
    {kRegVideoCodec3, "VIDEO_CODEC_3", RegAccess::kWrite, "video codec constant"},
    {kRegAudioMux0, "AUDIO_MUX_0", RegAccess::kWrite, "audio multiplexer set-up"},
    {kRegAudioMux1, "AUDIO_MUX_1", RegAccess::kWrite, "audio multiplexer set-up"},
    {kRegAudioMux2, "AUDIO_MUX_2", RegAccess::kWrite, "audio multiplexer set-up"},
    {kRegAudioMux3, "AUDIO_MUX_3", RegAccess::kWrite, "audio multiplexer set-up"},
    {kRegOutputInterval, "OUTPUT_INTERVAL", RegAccess::kWrite, "output packet interval"},
    {kRegOutputRate0, "OUTPUT_RATE_0", RegAccess::kWrite, "output rate constant"},
    {kRegOutputRate1, "OUTPUT_RATE_1", RegAccess::kWrite, "output rate constant"},
    {kRegOutputRate2, "OUTPUT_RATE_2", RegAccess::kWrite, "output rate constant"},
    {kRegPidPcr, "PID_PCR", RegAccess::kWrite, "PCR PID (block write of 2)"},
    {kRegControl, "CONTROL", RegAccess::kWrite, "6 after reset and at each configuration apply"},
    {kRegAudioControl, "AUDIO_CONTROL", RegAccess::kWrite,
     "0 at reset and in the audio reset sequence"},
    {kRegVideoLevel, "VIDEO_LEVEL", RegAccess::kRead, "video buffer level, overflow above 34 899"},
    {kRegAudioLevel, "AUDIO_LEVEL", RegAccess::kRead, "audio buffer level, overflow above 1 989"},
    {kRegTsMuxStatus, "TS_MUX_STATUS_REGISTER", RegAccess::kRead,
     "transport-stream multiplexer status"},
    {kRegEbBuff, "TS_MUX_STATUS_REG", RegAccess::kRead, "elementary buffer fill"},
    {kRegEbBuffMin, "EB_BUFF_MIN", RegAccess::kRead, "elementary buffer range, low end"},
    {kRegEbBuffMax, "EB_BUFF_MAX", RegAccess::kRead, "elementary buffer range, high end"},
    {kRegFrameSize, "FRAME_SIZE", RegAccess::kRead, "frame size"},
    {kRegFrameSizeMin, "FRAME_SIZE_MIN", RegAccess::kRead, "frame size range, low end"},
    {kRegFrameSizeMax, "FRAME_SIZE_MAX", RegAccess::kRead, "frame size range, high end"},
};

// The captured AC-3 header: 127 words, one every 4 bytes from the sync word.
inline constexpr int kAc3CaptureWords = 127;
inline constexpr int kAc3CaptureStride = 4;

// Frames per second = kFrameClock / VS_RATE.
inline constexpr int kFrameClock = 1440000;

// kRegControl after reset and at each configuration apply.
inline constexpr int kControlRunning = 6;

// Bits of kRegVideoControl.
inline constexpr int kVideoControlH264 = 0x0100;
inline constexpr int kVideoControlMpeg2Captions = 0x2000;
inline constexpr int kVideoControlSdDecoder = 0x4000;
