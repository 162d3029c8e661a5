// The documented messages, by scenario and failed call.
#include "tests/sweep/messages.h"

#include <algorithm>

namespace {

struct Message {
  const char* scenario;  // its name; with a star what it begins with
  const char* failed;    // the failed call begins so
  const char* text;      // one of these, separated by '|'; "" when it fails in silence
};

constexpr char kNoFpga[] = "Cannot access SPI port (/dev/fpga)\n";
constexpr char kNoFpga1[] = "Cannot access SPI port (/dev/fpga) - 1\n";
constexpr char kNoBus1[] = "Cannot access I2C device1 \n";
constexpr char kNoVideo[] = "Cannot open video 0\n";
constexpr char kNoDecoder[] = "Cannot access I2C device 5150\n";
constexpr char kNoDigitizer[] = "Cannot access I2C device - Brightness\n";
constexpr char kDspError[] = "blkfn i2c error\n";

// The first row that fits decides.
constexpr Message kMessages[] = {
    // bench commands
    {"rdreg", "fopen /dev/fpga", kNoFpga},
    {"wrreg", "fopen /dev/fpga", kNoFpga},
    {"wr", "fopen /dev/fpga", kNoFpga},
    {"gpio", "fopen /dev/fpga", kNoFpga1},
    {"gpio", "ioctl /dev/fpga", "Error -1 in IOCTL - LED\n"},
    {"offset", "fopen /home/tovin/hd.ini", "can not open hd.ini file\n"},
    {"offset", "open /dev/video0", kNoVideo},
    {"bf_rw*", "open /dev/i2c-1", kDspError},
    {"bf_rw*", "ioctl /dev/i2c-1", kDspError},
    {"ipiperw*", "open /dev/video0", kNoVideo},
    {"isifrw*", "open /dev/video0", kNoVideo},
    {"5150rw*", "open /dev/i2c-1", "Cannot access I2C device - 5150\n"},
    {"5150", "open /dev/i2c-1", kNoDecoder},
    {"vblk_rw*", "open /dev/i2c-1", kNoDigitizer},
    {"vblk_test", "open /dev/i2c-1", kNoDigitizer},
    {"i2c_bf_st", "open /dev/i2c-1", "blkfn i2c error : Cannot access I2C device\n"},
    {"i2c_bf_st", "ioctl /dev/i2c-1", kDspError},
    {"i2c_bf", "open /dev/i2c-1", "blkfn i2c error \n"},
    {"rdver_bf", "open /dev/i2c-1", kDspError},
    {"rdver_bf", "ioctl /dev/i2c-1", kDspError},
    {"rdstat_bf", "open /dev/i2c-1", "blkfn i2c error \n"},
    {"rdstat_bf", "ioctl /dev/i2c-1", kDspError},
    {"7353", "open /dev/i2c-1", kNoBus1},
    {"7353", "ioctl /dev/i2c-1", "rc=-1|Error i2c_readbyte -7002\n"},
    {"blk", "open /dev/i2c-1", kNoBus1},
    {"aablk", "open /dev/i2c-1", kNoBus1},
    {"i2c", "open /dev/i2c-1", kNoBus1},
    {"i2c", "ioctl /dev/i2c-1", "(rc -1)"},
    {"7002", "open /dev/video0", kNoVideo},
    {"7002", "open /dev/i2c-1", kNoDigitizer},
    {"reg", "fopen /dev/fpga", kNoFpga},
    {"perf", "fopen /dev/fpga", kNoFpga},
    {"pll", "fopen /dev/fpga2", "Cannot access SPI port (/dev/fpga2)\n"},
    {"pll", "fwrite", "Failed to write 2 (wrote 0,  total 0)\n"},
    {"loadbf", "fopen /dev/fpga", "Cannot access SPI port (/dev/fpga)"},
    {"loadbf", "open /dev/i2c-1", kDspError},
    {"bitstream*", "fopen /dev/fpga", kNoFpga},
    {"bitstream*", "fopen stream.rbf", "Cannot access RBF file\n"},
    {"bitstream*", "ioctl /dev/fpga", "in IOCTL"},
    {"file_to_fpga", "fopen /dev/fpga", kNoFpga},
    {"file_to_fpga", "fopen stream", "Cannot access MPEG2 file\n"},
    {"link_read", "fopen /dev/spislave", "Cannot access SPI port (/dev/spislave)\n"},
    {"decoder_bench", "open /dev/i2c-1", kNoDecoder},
    {"gpio_value*", "open /sys/class/gpio", "gpio canot work"},
    {"ac3*", "shmat", "cannot map SNMP shared memory"},
    {"ac3*", "fopen /mnt", "can not open capture file\n"},
    {"ac3*", "fopen /dev/fpga", "Cannot access SPI port (/dev/fpga)"},

    // the service
    {"*", "shmget", "cannot create shared memory"},
    {"*", "shmat", "cannot map SNMP shared memory"},
    {"*", "fopen /dev/spislave", "Cannot access SPI port (/dev/spislave)\n"},
    {"*", "select", "SPI: select error\n"},
    {"service*", "fopen /dev/fpga", "Cannot access SPI port (/dev/fpga)"},
    {"service*", "fgets", "read error\n"},
    {"service_getmon", "fopen monitor.txt", "error while open monitor.txt file\n"},
    {"configuration*", "fopen /home/tovin/hd.ini", "can not open hd.ini file\n"},
    {"apply*", "fopen /home/tovin/hd.ini", "can not open hd.ini file\n"},
    {"reapply*", "fopen /home/tovin/hd.ini", "can not open hd.ini file\n"},
    {"configuration*", "malloc", "error file size"},
    {"host_SEND_HD*", "fopen /home/tovin/hd.ini", "can not open hd.ini file\n"},
    {"host_READ_REG", "open /dev/i2c-1", "Cannot access I2C device2 \n"},
    {"host_READ_REG", "ioctl /dev/i2c-1", "Error i2c_readbyte2\n"},
    {"host_GET_LOG*", "fopen", "error while open temp_log"},
    {"host_GET_MONITOR_FILE", "fopen", "error while open temp_log"},
    {"host_GET_LOG*", "fread", "error fread (send_log_file)\n|"},
    {"host_GET_UPDATE_RESULT", "fopen", "update failed!!\n"},
    {"host_UPDATE_VERSION", "fopen /home/tovin/tmp/new", "can not open new application file\n"},
    {"host_UPDATE_VERSION", "malloc", "limit file size file\n"},
    {"host_NEW_UPDATE_VERSION", "fopen /home/tovin/tmp/new", "can not open new application file\n"},
    {"host_NEW_UPDATE_VERSION", "malloc", "limit file size file\n"},
    {"restart*", "open /dev/i2c-1", "Cannot access I2C device"},
};

bool begins(const std::string& text, const std::string& with) {
  return text.compare(0, with.size(), with) == 0;
}

bool fits(const std::string& scenario, const std::string& pattern) {
  if (pattern.back() != '*') return scenario == pattern;
  return begins(scenario, pattern.substr(0, pattern.size() - 1));
}

bool any_of(const std::string& output, const std::string& texts) {
  for (std::size_t at = 0; at <= texts.size();) {
    const std::size_t end = std::min(texts.find('|', at), texts.size());
    if (output.find(texts.substr(at, end - at)) != std::string::npos) return true;
    at = end + 1;
  }
  return false;
}

}  // namespace

bool message_given(const std::string& scenario, const std::string& failed,
                   const std::string& output, std::string* wanted) {
  for (const Message& row : kMessages) {
    if (!fits(scenario, row.scenario) || !begins(failed, row.failed)) continue;
    *wanted = row.text;
    return any_of(output, row.text);
  }
  return true;
}
