// Handlers of the output rate. The settings come before "mpgVidRate" in the table.
#pragma once

#include <cstdint>

// "extra_output_rate_pct": 0 to 100 percent on top of the derived rate, 5 for any
// other value. Returns 0.
int SetExtraOutputRate(const std::int32_t* value, std::int32_t context);

// "output_br": 1 000 000 to 35 000 000 bit/s by hand; 0, for any other value, derives
// the rate from the video rate. Returns 0.
int SetOutputBitrate(const std::int32_t* value, std::int32_t context);

// "mpgVidRate" in kbit/s: packet interval and rate registers. Returns the result of
// the last register write.
int Setoutput_bitrate(const std::int32_t* value, std::int32_t context);
