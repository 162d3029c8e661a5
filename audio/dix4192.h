// DIX4192: the digital audio receiver.
#pragma once

inline constexpr int kDix4192Address = 0x70;       // 7-bit, on the board's I2C bus
inline constexpr int kDix4192ReceiverControl = 8;  // value for audio_monitor_4192

// Audio check. Returns 1 when the receiver is locked on audio and audio is
// enabled in the shared block. Otherwise writes value to the receiver control
// register and returns 0. -1 when the bus cannot be opened, -2 when a read
// fails.
int audio_monitor_4192(int value);
