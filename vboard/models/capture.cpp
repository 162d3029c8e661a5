// The capture driver behind "/dev/video0": detected standard, input, crop, and
// the private requests that reach the sensor interface and the image pipe.
#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>

#include "vboard/core/trace.h"
#include "vboard/models/bus.h"
#include "vboard/models/needs.h"
#include "vboard/models/picture.h"

namespace vboard {

namespace {

// Private requests, each with one 32-bit word.
enum : unsigned long {
  kIsifSelect = 0xC004562A,
  kIsifWrite = 0xC004562B,
  kIpipeSelect = 0xC004562C,
  kIpipeWrite = 0xC004562D,
};

constexpr int kInputComponent = 1;
constexpr int kInputVga = 3;
constexpr int kInputComposite = 4;
constexpr int kInputCompositePal = 5;
constexpr int kInputs[] = {kInputComponent, kInputVga, kInputComposite, kInputCompositePal};
constexpr std::int32_t kRegisterSpace = 65536;
constexpr std::int32_t kRegisterSize = 4;

bool other_input(const Board& board) {
  const std::int32_t input = board.capture.input;
  switch (board.world.video) {
    case VideoSource::kComponent:
      return input != kInputComponent;
    case VideoSource::kVga:
      return input != kInputVga;
    case VideoSource::kComposite:
      return input != kInputComposite && input != kInputCompositePal;
    case VideoSource::kNone:
      break;
  }
  return false;
}

constexpr Need kNeeds[] = {{"input not selected", other_input}};

int refuse(const char* what, std::int32_t value) {
  trace("video0 %s %d = EINVAL", what, value);
  errno = EINVAL;
  return -1;
}

int query_standard(const Board& board, v4l2_std_id& mask) {
  const World& world = board.world;
  const bool signal = world.video != VideoSource::kNone && !world.faults.video_freeze;
  const bool told_apart = signal && world.standard_bit != kNoStandardBit;
  mask = told_apart ? v4l2_std_id{1} << (world.standard_bit % 64) : 0;
  mask |= world.faults.ghost_standards;
  trace("video0 QUERYSTD -> 0x%016llx", static_cast<unsigned long long>(mask));
  return 0;
}

int select_input(Board& board, std::int32_t input) {
  if (std::ranges::count(kInputs, input) == 0) {
    violation(board, "video0 input %d", input);
    return refuse("S_INPUT", input);
  }
  board.capture.input = input;
  capture_follow_standard(board);
  set_up_changed(board);
  trace("video0 S_INPUT %d", input);
  return 0;
}

int crop_capability(Board& board, v4l2_cropcap& capability) {
  const auto type = static_cast<std::int32_t>(capability.type);
  if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
    violation(board, "video0 CROPCAP of buffer type %d", type);
    return refuse("CROPCAP", type);
  }
  const VideoStandard& size = sent_standard(board.world);
  const v4l2_rect whole = {0, 0, size.width, size.height};
  capability.bounds = whole;
  capability.defrect = whole;
  capability.pixelaspect = {1, 1};
  trace("video0 CROPCAP -> %dx%d", size.width, size.height);
  return 0;
}

int set_crop(Board& board, const v4l2_crop& crop) {
  const auto type = static_cast<std::int32_t>(crop.type);
  if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
    violation(board, "video0 S_CROP of buffer type %d", type);
    return refuse("S_CROP", type);
  }
  const std::int32_t wanted[] = {crop.c.left, crop.c.top, static_cast<std::int32_t>(crop.c.width),
                                 static_cast<std::int32_t>(crop.c.height)};
  std::ranges::copy(wanted, board.capture.crop);
  trace("video0 S_CROP %d %d %d %d", wanted[0], wanted[1], wanted[2], wanted[3]);
  return 0;
}

// A register number is the operator's to choose, so the driver just refuses one
// that does not exist.
int select_register(const char* request, std::int32_t reg, std::int32_t& selected) {
  if (reg < 0 || reg >= kRegisterSpace || reg % kRegisterSize != 0) return refuse(request, reg);
  selected = reg;
  trace("video0 %s %d", request, reg);
  return 0;
}

int write_register(const char* request, std::int32_t value, std::int32_t& reg) {
  reg = value;
  trace("video0 %s %d", request, value);
  return 0;
}

}  // namespace

constinit const Part kCapturePart = {"capture", kNeeds};

void capture_follow_standard(Board& board) {
  if (board.capture.input == kInputComponent) tvp7002_follow_standard(board);
}

int capture_request(Board& board, std::int64_t, unsigned long request, void* argument) {
  CaptureState& capture = board.capture;
  const auto word = [argument] { return *static_cast<const std::int32_t*>(argument); };
  // A request number is 32 bits; an int that holds one comes sign-extended.
  switch (static_cast<std::uint32_t>(request)) {
    case VIDIOC_QUERYSTD:
      return query_standard(board, *static_cast<v4l2_std_id*>(argument));
    case VIDIOC_S_INPUT:
      return select_input(board, word());
    case VIDIOC_CROPCAP:
      return crop_capability(board, *static_cast<v4l2_cropcap*>(argument));
    case VIDIOC_S_CROP:
      return set_crop(board, *static_cast<const v4l2_crop*>(argument));
    case kIsifSelect:
      return select_register("0xc004562a", word(), capture.isif_selected);
    case kIsifWrite:
      return write_register("0xc004562b", word(),
                            capture.isif[capture.isif_selected / kRegisterSize]);
    case kIpipeSelect:
      return select_register("0xc004562c", word(), capture.selected_register);
    case kIpipeWrite:
      return write_register("0xc004562d", word(),
                            capture.ipipe[capture.selected_register / kRegisterSize]);
    default:
      violation(board, "video0 request 0x%lx", request);
      errno = ENOTTY;
      return -1;
  }
}

}  // namespace vboard
