// Does what the tools of the flash file systems do on a board, which BusyBox may lack.
#include "vboard/kernel/flash.h"

#include <fcntl.h>
#include <mtd/ubi-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vboard::kernel {

namespace {

constexpr char kVolume[] = "home";
constexpr char kVolumeNode[] = "/dev/ubi0_0";
constexpr char kAvailable[] = "/sys/class/ubi/ubi0/avail_eraseblocks";
constexpr char kBlockSize[] = "/sys/class/ubi/ubi0/eraseblock_size";

long number_in(const char* path) {
  long value = 0;
  FILE* file = fopen(path, "r");
  if (file == nullptr) return 0;
  if (fscanf(file, "%ld", &value) != 1) value = 0;
  fclose(file);
  return value;
}

bool request(const char* node, unsigned long number, void* record) {
  const int fd = open(node, O_RDWR | O_CLOEXEC);
  if (fd < 0) return false;
  const int result = ioctl(fd, number, record);
  const int error = errno;
  close(fd);
  errno = error;
  return result >= 0;
}

bool make_volume() {
  ubi_mkvol_req volume = {};
  volume.vol_id = 0;
  volume.alignment = 1;
  volume.bytes = static_cast<std::int64_t>(number_in(kAvailable)) * number_in(kBlockSize);
  volume.vol_type = UBI_DYNAMIC_VOLUME;
  volume.name_len = static_cast<std::int16_t>(strlen(kVolume));
  memcpy(volume.name, kVolume, sizeof kVolume);
  return request("/dev/ubi0", UBI_IOCMKVOL, &volume);
}

}  // namespace

bool attach_flash(std::string* problem) {
  ubi_attach_req attach = {};
  attach.ubi_num = 0;
  attach.mtd_num = 0;
  const bool done = request("/dev/ubi_ctrl", UBI_IOCATT, &attach) &&
                    (access(kVolumeNode, F_OK) == 0 || make_volume());
  if (!done) *problem = std::string("flash: ") + strerror(errno);
  return done;
}

}  // namespace vboard::kernel
