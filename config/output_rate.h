// Output rate of the transport stream.
#pragma once

#include <cstdint>

int SetExtraOutputRate(const std::int32_t* value, std::int32_t context);  // percent
int SetOutputBitrate(const std::int32_t* value, std::int32_t context);    // "output_br", bit/s

// "mpgVidRate" in kbit/s: output packet interval. Returns the result of the last
// register write.
int Setoutput_bitrate(const std::int32_t* value, std::int32_t context);
