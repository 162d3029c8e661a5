// Storage and start values of the shared flags; see the header for who uses what.
#include "state/service_flags.h"

Relaxed<std::uint8_t> global_status{kStatusInitial};
Relaxed<std::uint8_t> status_vantorig{kStatusVantorigCleared};
Relaxed<std::uint8_t> status_vantorig1;
Relaxed<std::uint8_t> fpga_monitor_flags;
Relaxed<std::uint8_t> monitor_state;
Relaxed<std::uint8_t> global_monitor_state;
Relaxed<std::uint8_t> wrong_size_flag;

Relaxed<std::uint8_t> SystemOnUpdate;
Relaxed<std::int32_t> config_sys;
Relaxed<std::int32_t> dbg_encode;
Relaxed<std::int32_t> SystemMonitorStatus;

Relaxed<std::uint8_t> status_init_flag;
Relaxed<std::uint16_t> vid_buf_init;
Relaxed<std::uint16_t> aud_buf_init;
Relaxed<std::uint16_t> fpga_hw_version;
Relaxed<char> ver[kVersionTextSize];

Relaxed<std::int32_t> SetInputMuxCH;
Relaxed<std::int32_t> enable_audio;
Relaxed<std::int32_t> audio_at_beginning;
Relaxed<std::uint8_t> start_bf_st;
Relaxed<std::uint8_t> i2c_error_flag;

Relaxed<std::uint8_t> hd_ac3_desc_parameters[kAc3DescriptorSize] = {8, 0, 0, 7, 1, 15};
