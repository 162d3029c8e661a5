// Requests of the devices, sorted by what they do.
#include "vboard/models/request_effect.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/videodev2.h>

#include <cstdint>
#include <cstdio>

#include "vboard/models/fpga_requests.h"

namespace vboard {

namespace {

const i2c_rdwr_ioctl_data& list_of(const void* argument) {
  return *static_cast<const i2c_rdwr_ioctl_data*>(argument);
}

bool reads(const i2c_rdwr_ioctl_data& list) {
  for (unsigned i = 0; i < list.nmsgs; ++i)
    if ((list.msgs[i].flags & I2C_M_RD) != 0) return true;
  return false;
}

Effect fpga_effect(unsigned long request) {
  switch (request) {
    case kWriteReg:
    case kWriteBlock:
      return Effect::kWrite;
    case kReadReg:
      return Effect::kRead;
    default:
      return fpga_line(request) ? Effect::kWrite : Effect::kNone;
  }
}

std::string number(const char* format, unsigned value) {
  char text[32];
  snprintf(text, sizeof text, format, value);  // NOLINT(clang-diagnostic-format-nonliteral)
  return text;
}

std::string hex(unsigned value) { return number("%02x", value); }

std::string fpga_words(unsigned long request, const void* argument) {
  const auto& single = *static_cast<const FpgaSingleRecord*>(argument);
  const unsigned address = static_cast<unsigned>(single.index) * 2;
  switch (request) {
    case kWriteReg:
      return "fpga " + number("%04x", address) + " = " + number("%04x", single.value);
    case kWriteBlock:
      return "fpga " + number("%04x", address) + " block";
    case kReadReg:
      return "fpga " + number("%04x", address);
    default:
      return "fpga line " + std::to_string(request);
  }
}

std::string i2c_words(const i2c_rdwr_ioctl_data& list) {
  const i2c_msg& first = list.msgs[0];
  std::string text = "i2c " + hex(first.addr);
  if ((first.flags & I2C_M_RD) != 0) return text;
  for (unsigned i = 0; i < first.len; ++i)
    text += (i == 1 && !reads(list) ? " = " : " ") + hex(first.buf[i]);
  return text;
}

}  // namespace

Effect effect_of(Device device, unsigned long request, const void* argument) {
  switch (device) {
    case Device::kFpga:
      return fpga_effect(request);
    case Device::kI2c:
      if (request != I2C_RDWR) return Effect::kNone;
      return reads(list_of(argument)) ? Effect::kRead : Effect::kWrite;
    case Device::kVideo0:
      return static_cast<std::uint32_t>(request) == VIDIOC_S_INPUT ? Effect::kWrite : Effect::kNone;
    default:
      return Effect::kNone;
  }
}

std::string words_of(Device device, unsigned long request, const void* argument) {
  switch (device) {
    case Device::kFpga:
      return fpga_words(request, argument);
    case Device::kI2c:
      return request == I2C_RDWR ? i2c_words(list_of(argument)) : "i2c";
    case Device::kVideo0:
      return "video0 input " + std::to_string(*static_cast<const std::int32_t*>(argument));
    default:
      return "";
  }
}

void falsify(Device device, unsigned long request, void* argument) {
  if (device == Device::kFpga && request == kReadReg) {
    auto& single = *static_cast<FpgaSingleRecord*>(argument);
    single.value = static_cast<std::uint16_t>(~single.value);
  }
  if (device != Device::kI2c || request != I2C_RDWR) return;
  const i2c_rdwr_ioctl_data& list = list_of(argument);
  for (unsigned i = 0; i < list.nmsgs; ++i) {
    if ((list.msgs[i].flags & I2C_M_RD) == 0) continue;
    for (unsigned byte = 0; byte < list.msgs[i].len; ++byte)
      list.msgs[i].buf[byte] = static_cast<std::uint8_t>(~list.msgs[i].buf[byte]);
  }
}

int success_of(Device device, unsigned long request, const void* argument) {
  if (device == Device::kI2c && request == I2C_RDWR)
    return static_cast<int>(list_of(argument).nmsgs);
  return 0;
}

}  // namespace vboard
