// The applied settings as a fresh process has them.
#include "state/fpgaregs.h"

#include <gtest/gtest.h>

namespace {

TEST(FpgaRegs, start_at_0) {
  EXPECT_EQ(fpgaregs.AudioInput, 0);
  EXPECT_EQ(fpgaregs.inAudioEnable, 0);
  EXPECT_EQ(fpgaregs.inAudioSampleRate, 0);
  EXPECT_EQ(fpgaregs.VidRes, 0);
  EXPECT_EQ(fpgaregs.VidCodec, 0);
  EXPECT_EQ(fpgaregs.AudCodec, 0);
  EXPECT_EQ(fpgaregs.AVSync, 0);
  EXPECT_EQ(fpgaregs.pidVideo, 0);
  EXPECT_EQ(fpgaregs.pidAudio, 0);
  EXPECT_EQ(fpgaregs.pidPCR, 0);
  EXPECT_EQ(fpgaregs.VideoBitrate, 0);
  EXPECT_EQ(fpgaregs.mpgAudRate, 0);
  EXPECT_EQ(fpgaregs.inAudioVolume, 0);
  EXPECT_EQ(fpgaregs.DspMode, 0);
}

}  // namespace
