// Launching the encoder process.
#pragma once

#include <cstdint>

// Handler of "portActiveEnable": hands the applied settings over and launches
// `encode` in the background. The value is not looked at. Returns 0.
int start_hd(const std::int32_t* value, std::int32_t context);
