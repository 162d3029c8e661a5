// Every option: with its operands, without them, with operands that are no
// numbers, and with its device gone. A missing operand and one that is no number
// count as 0.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/command/command_case.h"

namespace {

class Option : public testing::TestWithParam<CommandCase> {};

TEST_P(Option, prints_and_does) { check(GetParam()); }

const char kBus[] = "fault missing i2c";
const char kFpga[] = "fault missing fpga";
const char kVideo[] = "fault missing video0";

// ---- nothing to do -----------------------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    nothing, Option,
    testing::Values(CommandCase{.name = "no_arguments"},
                    CommandCase{.name = "unknown_option", .arguments = "-unknown 1 2 3"},
                    CommandCase{.name = "option_in_capitals", .arguments = "-HELP"},
                    CommandCase{.name = "longer_than_an_option", .arguments = "-rdregs 0x10"},
                    CommandCase{.name = "empty_argument", .arguments = "''"}),
    case_name);

// ---- picture position ----------------------------------------------------------
// Without hd.ini the standard is -1: defaults H 120, V 24.
std::string offset_text(const char* x, const char* y, const char* set) {
  return std::string("Set Offset x=") + x + " y=" + y +
         "\ncan not open hd.ini file\n"
         "Default: Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = 0x18 (24)\n"
         "Set:     " +
         set + ", std=-1\n";
}
Lines offset_trace(const char* x, const char* y) {
  return {"file /home/tovin/hd.ini r = ENOENT",
          "open /dev/video0",
          "wait 10",
          "video0 0xc004562c 24",
          std::string("video0 0xc004562d ") + x,
          "wait 1000000",
          "video0 0xc004562c 16",
          std::string("video0 0xc004562d ") + y,
          "wait 1000000",
          "close /dev/video0"};
}
INSTANTIATE_TEST_SUITE_P(
    offset, Option,
    testing::Values(
        // 120 + 10 = 130 = 0x82, 24 + 20 = 44 = 0x2c
        CommandCase{.name = "offset",
                    .arguments = "-offset 10 20",
                    .out = offset_text("10", "20",
                                       "Horizontal Offset Reg = 0x82 (130), Vertical Offset Reg = "
                                       "0x2c (44)"),
                    .trace = offset_trace("130", "44")},
        // hexadecimal and octal: 0x10 = 16 -> 136 = 0x88, 010 = 8 -> 32 = 0x20
        CommandCase{.name = "offset_hexadecimal_and_octal",
                    .arguments = "-offset 0x10 010",
                    .out = offset_text("16", "8",
                                       "Horizontal Offset Reg = 0x88 (136), Vertical Offset Reg = "
                                       "0x20 (32)"),
                    .trace = offset_trace("136", "32")},
        // -3 counts as -4 -> 116 = 0x74; 24 - 30 is below the floor of 0
        CommandCase{.name = "offset_negative",
                    .arguments = "-offset -3 -30",
                    .out = offset_text("-3", "-30",
                                       "Horizontal Offset Reg = 0x74 (116), Vertical Offset Reg = "
                                       "0x0 (0)"),
                    .trace = offset_trace("116", "0")},
        CommandCase{.name = "offset_missing_operands",
                    .arguments = "-offset",
                    .out = offset_text("0", "0",
                                       "Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = "
                                       "0x18 (24)"),
                    .trace = offset_trace("120", "24")},
        CommandCase{.name = "offset_wrong_operands",
                    .arguments = "-offset left up",
                    .out = offset_text("0", "0",
                                       "Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = "
                                       "0x18 (24)"),
                    .trace = offset_trace("120", "24")},
        CommandCase{.name = "offset_device_missing",
                    .arguments = "-offset 0 0",
                    .world = {kVideo},
                    .out = "Set Offset x=0 y=0\n"
                           "can not open hd.ini file\n"
                           "Cannot open video 0\n"
                           "Default: Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = "
                           "0x18 (24)\n"
                           "Set:     Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = "
                           "0x18 (24), std=-1\n",
                    .trace = {"file /home/tovin/hd.ini r = ENOENT", "open /dev/video0 = ENOENT",
                              "wait 10", "wait 1000000", "wait 1000000"}}),
    case_name);

// ---- DSP registers ---------------------------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    bf_rw, Option,
    testing::Values(
        // The descriptor stays open after a read that worked.
        CommandCase{.name = "bf_rw_read",
                    .arguments = "-bf_rw 1 5",
                    .out = "Blackfin Reg util Read reg=0x5 get data=0x0",
                    .trace = {"open /dev/i2c-1", "i2c 1c wr 20 05", "wait 10", "i2c 1c rd -> 00"}},
        CommandCase{.name = "bf_rw_write",
                    .arguments = "-bf_rw 0 0x10 0x1234",
                    .out = " data1=0x34 data2=0x12\n"
                           "Blackfin Reg util Write to reg=0x10 data=0x1234",
                    .trace = on_bus({"i2c 1c wr 10 10 34 12"})},
        // Only the low byte names the register; the message shows it whole.
        CommandCase{.name = "bf_rw_wide_register",
                    .arguments = "-bf_rw 1 0x1FE",
                    .out = "Blackfin Reg util Read reg=0x1fe get data=0x0",
                    .trace = {"open /dev/i2c-1", "i2c 1c wr 20 fe", "wait 10", "i2c 1c rd -> 00"}},
        // rw 0x100 is not 0, but its low byte is: a write of 0, reported as a read.
        CommandCase{.name = "bf_rw_low_byte_of_rw_is_zero",
                    .arguments = "-bf_rw 0x100 5 7",
                    .out = " data1=0x0 data2=0x0\n"
                           "Blackfin Reg util Read reg=0x5 get data=0x0",
                    .trace = on_bus({"i2c 1c wr 10 05 00 00"})},
        CommandCase{.name = "bf_rw_missing_operands",
                    .arguments = "-bf_rw",
                    .out = " data1=0x0 data2=0x0\n"
                           "Blackfin Reg util Write to reg=0x0 data=0x0",
                    .trace = on_bus({"i2c 1c wr 10 00 00 00"})},
        CommandCase{.name = "bf_rw_wrong_operands",
                    .arguments = "-bf_rw read five six",
                    .out = " data1=0x0 data2=0x0\n"
                           "Blackfin Reg util Write to reg=0x0 data=0x0",
                    .trace = on_bus({"i2c 1c wr 10 00 00 00"})},
        CommandCase{.name = "bf_rw_read_device_missing",
                    .arguments = "-bf_rw 1 5",
                    .world = {kBus},
                    .out = "blkfn i2c error\n"
                           "Blackfin Reg util Read reg=0x5 get data=0xff",
                    .trace = kNoBus},
        CommandCase{.name = "bf_rw_write_device_missing",
                    .arguments = "-bf_rw 0 5 6",
                    .world = {kBus},
                    .out = "blkfn i2c error\n"
                           "Blackfin Reg util Write to reg=0x5 data=0x6",
                    .trace = kNoBus},
        CommandCase{.name = "bf_rw_read_dsp_silent",
                    .arguments = "-bf_rw 1 5",
                    .world = {"fault dsp-dead"},
                    .out = "blkfn i2c error\n"
                           "Blackfin Reg util Read reg=0x5 get data=0xfe",
                    .trace = on_bus({"i2c 1c wr 20 05 = EREMOTEIO"})}),
    case_name);

// ---- registers behind the capture driver ------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    capture_registers, Option,
    testing::Values(
        CommandCase{.name = "isifrw_read",
                    .arguments = "-isifrw 1 0x10",
                    .out = "reg util for ISIF \n",
                    .trace = {"open /dev/video0", "video0 0xc004562a 16"}},
        CommandCase{.name = "isifrw_write",
                    .arguments = "-isifrw 0 0x10 0x20",
                    .out = "reg util for ISIF \n",
                    .trace = {"open /dev/video0", "video0 0xc004562a 16", "video0 0xc004562b 32"}},
        CommandCase{.name = "isifrw_missing_operands",
                    .arguments = "-isifrw",
                    .out = "reg util for ISIF \n",
                    .trace = {"open /dev/video0", "video0 0xc004562a 0", "video0 0xc004562b 0"}},
        CommandCase{.name = "isifrw_wrong_operands",
                    .arguments = "-isifrw write this now",
                    .out = "reg util for ISIF \n",
                    .trace = {"open /dev/video0", "video0 0xc004562a 0", "video0 0xc004562b 0"}},
        CommandCase{.name = "isifrw_register_refused",
                    .arguments = "-isifrw 1 3",
                    .out = "reg util for ISIF \n",
                    .trace = {"open /dev/video0", "video0 0xc004562a 3 = EINVAL"}},
        CommandCase{.name = "isifrw_device_missing",
                    .arguments = "-isifrw 1 0x10",
                    .world = {kVideo},
                    .out = "reg util for ISIF \nCannot open video 0\n",
                    .trace = kNoCapture},
        CommandCase{.name = "ipiperw_read",
                    .arguments = "-ipiperw 1 0x10",
                    .out = "reg util for IPIPE \n",
                    .trace = {"open /dev/video0", "video0 0xc004562c 16", "close /dev/video0"}},
        CommandCase{.name = "ipiperw_write",
                    .arguments = "-ipiperw 0 0x10 0x20",
                    .out = "reg util for IPIPE \n",
                    .trace = {"open /dev/video0", "video0 0xc004562c 16", "video0 0xc004562d 32",
                              "close /dev/video0"}},
        CommandCase{.name = "ipiperw_missing_operands",
                    .arguments = "-ipiperw",
                    .out = "reg util for IPIPE \n",
                    .trace = {"open /dev/video0", "video0 0xc004562c 0", "video0 0xc004562d 0",
                              "close /dev/video0"}},
        CommandCase{.name = "ipiperw_wrong_operands",
                    .arguments = "-ipiperw write this now",
                    .out = "reg util for IPIPE \n",
                    .trace = {"open /dev/video0", "video0 0xc004562c 0", "video0 0xc004562d 0",
                              "close /dev/video0"}},
        CommandCase{.name = "ipiperw_device_missing",
                    .arguments = "-ipiperw 0 0x10 0x20",
                    .world = {kVideo},
                    .out = "reg util for IPIPE \nCannot open video 0\n",
                    .trace = kNoCapture}),
    case_name);

// ---- video chips -------------------------------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    video_chips, Option,
    testing::Values(
        CommandCase{.name = "5150rw_read",
                    .arguments = "-5150rw 1 0x28",
                    .out = "reg 0x28=0x0\n",
                    .trace = on_bus({"i2c 5d rd 28 -> 00"})},
        CommandCase{.name = "5150rw_write",
                    .arguments = "-5150rw 0 0x28 0x0A",
                    .trace = on_bus({"i2c 5d wr 28 0a"})},
        // The register is shown whole; one byte of it goes out.
        CommandCase{.name = "5150rw_wide_register",
                    .arguments = "-5150rw 1 0x128",
                    .out = "reg 0x128=0x0\n",
                    .trace = on_bus({"i2c 5d rd 28 -> 00"})},
        // rw is not 0, so no data is read; its low byte is, so 0 is written.
        CommandCase{.name = "5150rw_low_byte_of_rw_is_zero",
                    .arguments = "-5150rw 0x100 0x28 7",
                    .trace = on_bus({"i2c 5d wr 28 00"})},
        CommandCase{.name = "5150rw_missing_operands",
                    .arguments = "-5150rw",
                    .trace = on_bus({"i2c 5d wr 00 00"})},
        CommandCase{.name = "5150rw_wrong_operands",
                    .arguments = "-5150rw read this now",
                    .trace = on_bus({"i2c 5d wr 00 00"})},
        CommandCase{.name = "5150rw_device_missing",
                    .arguments = "-5150rw 1 0x28",
                    .world = {kBus},
                    .out = "Cannot access I2C device - 5150\nreg 0x28=0x0\n",
                    .trace = kNoBus},
        CommandCase{.name = "5150rw_chip_silent",
                    .arguments = "-5150rw 1 0x28",
                    .world = {"fault i2c-fail 5d"},
                    .out = "reg 0x28=0x0\n",
                    .trace = on_bus({"i2c 5d rd 28 = EREMOTEIO"})},
        CommandCase{.name = "vblk_rw_read",
                    .arguments = "-vblk_rw 1 0x40",
                    .out = "reg 0x40=0x2c\n",
                    .trace = on_bus({"i2c 5c rd 40 -> 2c"})},
        CommandCase{.name = "vblk_rw_write",
                    .arguments = "-vblk_rw 0 0x40 0x55",
                    .trace = on_bus({"i2c 5c wr 40 55"})},
        CommandCase{.name = "vblk_rw_low_byte_of_rw_is_zero",
                    .arguments = "-vblk_rw 0x100 0x40 7",
                    .trace = on_bus({"i2c 5c wr 40 00"})},
        // Register 0 is none that anybody writes: the board takes note of it.
        CommandCase{.name = "vblk_rw_missing_operands",
                    .arguments = "-vblk_rw",
                    .trace = on_bus({"violation tvp7002 write of register 00", "i2c 5c wr 00 00"})},
        CommandCase{.name = "vblk_rw_wrong_operands",
                    .arguments = "-vblk_rw read this now",
                    .trace = on_bus({"violation tvp7002 write of register 00", "i2c 5c wr 00 00"})},
        CommandCase{.name = "vblk_rw_device_missing",
                    .arguments = "-vblk_rw 1 0x40",
                    .world = {kBus},
                    .out = "Cannot access I2C device - Brightness\nreg 0x40=0x0\n",
                    .trace = kNoBus},
        CommandCase{.name = "vblk_test",
                    .arguments = "-vblk_test",
                    .trace = on_bus({"i2c 5c wr 40 47", "i2c 5c wr 41 01", "i2c 5c wr 42 4b",
                                     "i2c 5c wr 43 06", "i2c 5c wr 44 05", "i2c 5c wr 45 05",
                                     "i2c 5c wr 46 1e", "i2c 5c rd 46 -> 1e", "i2c 5c wr 47 1e"})},
        CommandCase{.name = "vblk_test_device_missing",
                    .arguments = "-vblk_test",
                    .world = {kBus},
                    .out = "Cannot access I2C device - Brightness\n",
                    .trace = kNoBus}),
    case_name);

// ---- AC-3 DSP -----------------------------------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    dsp, Option,
    testing::Values(
        // mode 1, parameter 100 = 0x64, then the operand, low byte first
        CommandCase{.name = "i2c_bf",
                    .arguments = "-i2c_bf 0x123456",
                    .trace = on_bus({"i2c 1c wr 01 01 64 00 56 34 12 00"}) +
                             Lines{"wait 1000000", "wait 1000000"}},
        CommandCase{.name = "i2c_bf_missing_operand",
                    .arguments = "-i2c_bf",
                    .trace = on_bus({"i2c 1c wr 01 01 64 00 00 00 00 00"}) +
                             Lines{"wait 1000000", "wait 1000000"}},
        CommandCase{.name = "i2c_bf_wrong_operand",
                    .arguments = "-i2c_bf loud",
                    .trace = on_bus({"i2c 1c wr 01 01 64 00 00 00 00 00"}) +
                             Lines{"wait 1000000", "wait 1000000"}},
        CommandCase{.name = "i2c_bf_device_missing",
                    .arguments = "-i2c_bf 1",
                    .world = {kBus},
                    .out = "blkfn i2c error \n",
                    .trace = kNoBus + Lines{"wait 1000000", "wait 1000000"}},
        // Five attempts, and no word about it.
        CommandCase{.name = "i2c_bf_dsp_silent",
                    .arguments = "-i2c_bf 1",
                    .world = {"fault dsp-dead"},
                    .trace = on_bus({"i2c 1c wr 01 01 64 00 01 00 00 00 = EREMOTEIO",
                                     "i2c 1c wr 01 01 64 00 01 00 00 00 = EREMOTEIO",
                                     "i2c 1c wr 01 01 64 00 01 00 00 00 = EREMOTEIO",
                                     "i2c 1c wr 01 01 64 00 01 00 00 00 = EREMOTEIO",
                                     "i2c 1c wr 01 01 64 00 01 00 00 00 = EREMOTEIO"}) +
                             Lines{"wait 1000000", "wait 1000000"}},
        CommandCase{.name = "i2c_bf_st",
                    .arguments = "-i2c_bf_st",
                    .trace = on_bus({"i2c 1c wr 02"}) + Lines{"wait 1000000"}},
        CommandCase{.name = "i2c_bf_st_device_missing",
                    .arguments = "-i2c_bf_st",
                    .world = {kBus},
                    .out = "blkfn i2c error : Cannot access I2C device\n",
                    .trace = kNoBus + Lines{"wait 1000000"}},
        // the board's DSP reports 0x21: version 2.1
        CommandCase{.name = "rdver_bf",
                    .arguments = "-rdver_bf",
                    .out = "---------------bf version = 0x21 --------------------\n"
                           "bf version is : 2.1\n",
                    .trace = on_bus({"i2c 1c wr 80 00", "wait 10", "i2c 1c rd -> 21"})},
        // -1: -1 >> 4 = -1, -1 & 15 = 15
        CommandCase{.name = "rdver_bf_device_missing",
                    .arguments = "-rdver_bf",
                    .world = {kBus},
                    .out = "blkfn i2c error\nbf version is : -1.15\n",
                    .trace = kNoBus},
        // -2: -2 >> 4 = -1, -2 & 15 = 14
        CommandCase{.name = "rdver_bf_dsp_silent",
                    .arguments = "-rdver_bf",
                    .world = {"fault dsp-dead"},
                    .out = "blkfn i2c error\nbf version is : -1.14\n",
                    .trace = on_bus({"i2c 1c wr 80 00 = EREMOTEIO"})},
        CommandCase{.name = "rdstat_bf",
                    .arguments = "-rdstat_bf",
                    .out = "bf status is 0x0\n",
                    .trace = on_bus({"i2c 1c wr 00 00", "wait 10", "i2c 1c rd -> 00"})},
        CommandCase{.name = "rdstat_bf_device_missing",
                    .arguments = "-rdstat_bf",
                    .world = {kBus},
                    .out = "blkfn i2c error \nbf status is 0xffffffff\n",
                    .trace = kNoBus},
        CommandCase{.name = "loadbf_firmware_answers",
                    .arguments = "-loadbf",
                    .out = "Test if BF is Empty\n"
                           "---------------bf version = 0x21 --------------------\n"
                           "The BF is Loaded\n",
                    .trace = on_bus({"i2c 1c wr 80 00", "wait 10", "i2c 1c rd -> 21"})},
        CommandCase{.name = "loadbf_no_bus_and_no_fpga",
                    .arguments = "-loadbf",
                    .world = {kBus, kFpga},
                    .out = "Test if BF is Empty\n"
                           "blkfn i2c error\n"
                           "start download file to the BF\n"
                           "Cannot access SPI port (/dev/fpga)\n"
                           "Cannot access SPI port (/dev/fpga)\n"
                           "Cannot access SPI port (/dev/fpga)\n"
                           "Fault To load BF from SPI\n",
                    .trace = kNoBus + kNoFpga + kNoFpga + kNoFpga}),
    case_name);

// ---- FPGA registers -------------------------------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    fpga, Option,
    testing::Values(
        // word 0x10 is byte address 0x20
        CommandCase{.name = "rdreg",
                    .arguments = "-rdreg 0x10",
                    .out = "addr 0x10: 0x0\n",
                    .trace = on_fpga({"fpga rd 0x0020 -> 0x0000"})},
        CommandCase{.name = "rdreg_missing_operand",
                    .arguments = "-rdreg",
                    .out = "addr 0x0: 0x117\n",
                    .trace = on_fpga({"fpga rd 0x0000 -> 0x0117"})},
        CommandCase{.name = "rdreg_wrong_operand",
                    .arguments = "-rdreg version",
                    .out = "addr 0x0: 0x117\n",
                    .trace = on_fpga({"fpga rd 0x0000 -> 0x0117"})},
        CommandCase{.name = "rdreg_number_with_a_tail",
                    .arguments = "-rdreg 16x",
                    .out = "addr 0x10: 0x0\n",
                    .trace = on_fpga({"fpga rd 0x0020 -> 0x0000"})},
        CommandCase{.name = "rdreg_outside_the_register_file",
                    .arguments = "-rdreg -1",
                    .out = "addr 0xffffffff: 0x0\n",
                    .trace = on_fpga({"violation fpga register index -1 out of range"})},
        CommandCase{.name = "rdreg_device_missing",
                    .arguments = "-rdreg 0x10",
                    .world = {kFpga},
                    .out = "Cannot access SPI port (/dev/fpga)\naddr 0x10: 0x0\n",
                    .trace = kNoFpga},
        CommandCase{.name = "rdreg_request_fails",
                    .arguments = "-rdreg 0",
                    .world = {"fault fpga-fail 16"},
                    .out = "addr 0x0: 0x0\n",
                    .trace = on_fpga({"fpga request 16 = EIO"})},
        CommandCase{.name = "wrreg",
                    .arguments = "-wrreg 0x102 0x55",
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x55 to reg 0x102\n",
                    .trace = on_fpga({"fpga wr 0x0204 <- 0x0055"})},
        // 16 bits of the value reach the register
        CommandCase{.name = "wrreg_wide_value",
                    .arguments = "-wrreg 0x102 0x12345",
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x12345 to reg 0x102\n",
                    .trace = on_fpga({"fpga wr 0x0204 <- 0x2345"})},
        CommandCase{.name = "wrreg_missing_operands",
                    .arguments = "-wrreg",
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x0 to reg 0x0\n",
                    .trace = on_fpga({"fpga wr 0x0000 <- 0x0000"})},
        CommandCase{.name = "wrreg_missing_value",
                    .arguments = "-wrreg 0x102",
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x0 to reg 0x102\n",
                    .trace = on_fpga({"fpga wr 0x0204 <- 0x0000"})},
        CommandCase{.name = "wrreg_wrong_operands",
                    .arguments = "-wrreg here this",
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x0 to reg 0x0\n",
                    .trace = on_fpga({"fpga wr 0x0000 <- 0x0000"})},
        CommandCase{.name = "wrreg_device_missing",
                    .arguments = "-wrreg 0x102 0x55",
                    .world = {kFpga},
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\n"
                           "Cannot access SPI port (/dev/fpga)\n"
                           "Write 0x55 to reg 0x102\n",
                    .trace = kNoFpga},
        // 274 = 0x112, the word address of register 0x224
        CommandCase{.name = "wr",
                    .arguments = "-wr 0x1234",
                    .out = "FPGA WR  command\nread reg add 0x112 data 0x1234 \n",
                    .trace = on_fpga({"fpga wr 0x0224 <- 0x1234", "wait 1000"})},
        CommandCase{.name = "wr_wide_value",
                    .arguments = "-wr 0x12345",
                    .out = "FPGA WR  command\nread reg add 0x112 data 0x2345 \n",
                    .trace = on_fpga({"fpga wr 0x0224 <- 0x2345", "wait 1000"})},
        CommandCase{.name = "wr_missing_operand",
                    .arguments = "-wr",
                    .out = "FPGA WR  command\nread reg add 0x112 data 0x0 \n",
                    .trace = on_fpga({"fpga wr 0x0224 <- 0x0000", "wait 1000"})},
        CommandCase{.name = "wr_wrong_operand",
                    .arguments = "-wr word",
                    .out = "FPGA WR  command\nread reg add 0x112 data 0x0 \n",
                    .trace = on_fpga({"fpga wr 0x0224 <- 0x0000", "wait 1000"})},
        CommandCase{.name = "wr_device_missing",
                    .arguments = "-wr 1",
                    .world = {kFpga},
                    .out = "FPGA WR  command\n"
                           "Cannot access SPI port (/dev/fpga)\n"
                           "read reg add 0x112 data 0x1 \n",
                    .trace = kNoFpga + Lines{"wait 1000"}},
        // The stream of a line action is never closed.
        CommandCase{.name = "gpio",
                    .arguments = "-gpio 28",
                    .out = "Start prog_gpio,input_data = 28\n",
                    .trace = {"open /dev/fpga r+b", "fpga line 28"}},
        // request 0 reads the configuration status
        CommandCase{.name = "gpio_missing_operand",
                    .arguments = "-gpio",
                    .out = "Start prog_gpio,input_data = 0\n",
                    .trace = {"open /dev/fpga r+b", "fpga config-status -> 2"}},
        CommandCase{.name = "gpio_wrong_operand",
                    .arguments = "-gpio reset",
                    .out = "Start prog_gpio,input_data = 0\n",
                    .trace = {"open /dev/fpga r+b", "fpga config-status -> 2"}},
        CommandCase{.name = "gpio_unknown_line",
                    .arguments = "-gpio 999",
                    .out = "Start prog_gpio,input_data = 999\nError -1 in IOCTL - LED\n",
                    .trace = {"open /dev/fpga r+b", "violation fpga request 999"}},
        // Requests beside the line actions take longer records: the words behind
        // the 1 are 0. A register write: index 1, value 0.
        CommandCase{.name = "gpio_number_of_the_register_write",
                    .arguments = "-gpio 15",
                    .out = "Start prog_gpio,input_data = 15\n",
                    .trace = {"open /dev/fpga r+b", "fpga wr 0x0002 <- 0x0000"}},
        CommandCase{.name = "gpio_request_fails",
                    .arguments = "-gpio 28",
                    .world = {"fault fpga-fail 28"},
                    .out = "Start prog_gpio,input_data = 28\nError -1 in IOCTL - LED\n",
                    .trace = {"open /dev/fpga r+b", "fpga request 28 = EIO"}},
        CommandCase{.name = "gpio_device_missing",
                    .arguments = "-gpio 28",
                    .world = {kFpga},
                    .out = "Start prog_gpio,input_data = 28\n"
                           "Cannot access SPI port (/dev/fpga) - 1\n",
                    .trace = kNoFpga},
        CommandCase{.name = "reg_device_missing",
                    .arguments = "-reg",
                    .world = {kFpga},
                    .out = "Cannot access SPI port (/dev/fpga)\n",
                    .trace = kNoFpga},
        CommandCase{.name = "perf_device_missing",
                    .arguments = "-perf",
                    .world = {kFpga},
                    .out = "Cannot access SPI port (/dev/fpga)\n",
                    .trace = kNoFpga},
        CommandCase{.name = "bitstream_device_missing",
                    .arguments = "-f=image",
                    .world = {kFpga},
                    .out = "Cannot access SPI port (/dev/fpga)\n",
                    .trace = kNoFpga},
        CommandCase{.name = "bitstream_file_missing",
                    .arguments = "-f=image",
                    .out = "Cannot access RBF file\n",
                    .trace = on_fpga({"file image rb = ENOENT"})},
        CommandCase{.name = "bitstream_without_a_name",
                    .arguments = "-w=",
                    .out = "Cannot access RBF file\n",
                    .trace = on_fpga({"file  rb = ENOENT"})}),
    case_name);

// ---- clocks and small chips --------------------------------------------------------------
INSTANTIATE_TEST_SUITE_P(
    clocks, Option,
    testing::Values(
        CommandCase{.name = "blk",
                    .arguments = "-blk",
                    .out = "Y prog_blk\nrc = 0\n",
                    .trace = on_bus({"i2c 1c wr 02", "wait 1000000"})},
        CommandCase{.name = "blk_device_missing",
                    .arguments = "-blk",
                    .world = {kBus},
                    .out = "Y prog_blk\nCannot access I2C device1 \n",
                    .trace = kNoBus},
        CommandCase{.name = "aablk_device_missing",
                    .arguments = "-aablk",
                    .world = {kBus},
                    .out = "Cannot access I2C device1 \n",
                    .trace = kNoBus},
        // 8-bit address 0xB8 is 7-bit 0x5C; its register 0x14 shows component sync
        CommandCase{.name = "i2c",
                    .arguments = "-i2c 0xB8 0x14 1 2",
                    .out = "i2c readb (rc 2): device_addr 0xb8, reg_addr 0x14: 0xda 0x4 \n",
                    .trace = on_bus({"i2c 5c rd 14 -> da 04", "wait 1000000"})},
        // without a register address one byte is read, whatever is asked for
        CommandCase{.name = "i2c_no_register_address",
                    .arguments = "-i2c 0xB8 0x14 0 3",
                    .out = "i2c readb (rc 1): device_addr 0xb8, reg_addr 0x14: 0x2 0x0 0x0 \n",
                    .trace = on_bus({"i2c 5c rd -> 02", "wait 1000000"})},
        CommandCase{.name = "i2c_negative_count",
                    .arguments = "-i2c 0xB8 0x14 1 -2",
                    .out = "i2c readb (rc 2): device_addr 0xb8, reg_addr 0x14: \n",
                    .trace = on_bus({"i2c 5c rd 14 ->", "wait 1000000"})},
        CommandCase{.name = "i2c_missing_operands",
                    .arguments = "-i2c",
                    .out = "i2c readb (rc -1): device_addr 0x0, reg_addr 0x0: \n",
                    .trace = on_bus({"i2c 00 rd = EREMOTEIO", "wait 1000000"})},
        CommandCase{.name = "i2c_wrong_operands",
                    .arguments = "-i2c some chip one two",
                    .out = "i2c readb (rc -1): device_addr 0x0, reg_addr 0x0: \n",
                    .trace = on_bus({"i2c 00 rd = EREMOTEIO", "wait 1000000"})},
        CommandCase{.name = "i2c_chip_silent",
                    .arguments = "-i2c 0xB8 0x14 1 2",
                    .world = {"fault i2c-fail 5c"},
                    .out = "i2c readb (rc -1): device_addr 0xb8, reg_addr 0x14: 0x0 0x0 \n",
                    .trace = on_bus({"i2c 5c rd 14 = EREMOTEIO", "wait 1000000"})},
        CommandCase{.name = "i2c_device_missing",
                    .arguments = "-i2c 0xB8 0x14 1 2",
                    .world = {kBus},
                    .out = "Cannot access I2C device1 \n",
                    .trace = kNoBus},
        CommandCase{.name = "7353",
                    .arguments = "-7353",
                    .out = "prog7353\n"
                           "ch #1, i2c_readblk rc=2, buf[0]=0x0\n"
                           "ch #2, i2c_readblk rc=2, buf[0]=0x0\n"
                           "ch #3, i2c_readblk rc=2, buf[0]=0x0\n"
                           "ch #1, i2c_write rc=1\n"
                           "ch #2, i2c_write rc=1\n"
                           "ch #3, i2c_write rc=1\n"
                           "SYNC data = 0xda\n",
                    .trace = on_bus({"i2c 2e rd 01 -> 00", "i2c 2e rd 02 -> 00",
                                     "i2c 2e rd 03 -> 00", "i2c 2e wr 01 14", "i2c 2e wr 02 15",
                                     "i2c 2e wr 03 14", "i2c 5c rd 14 -> da"})},
        CommandCase{.name = "7353_device_missing",
                    .arguments = "-7353",
                    .world = {kBus},
                    .out = "prog7353\nCannot access I2C device1 \n",
                    .trace = kNoBus},
        CommandCase{.name = "4192_device_missing",
                    .arguments = "-4192",
                    .world = {kBus},
                    .out = "Y prog4192\n",
                    .trace = kNoBus}),
    case_name);

// ---- options that need more than a row ------------------------------------------------

TEST(Option7353, chips_silent_show_what_was_not_read) {
  BoardRun board;
  board.vboard("fault i2c-fail 2e");
  board.vboard("fault i2c-fail 5c");
  const Result result = board.vantorig("-7353");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "prog7353\n"
            "ch #1, i2c_readblk rc=-1, buf[0]=0xaa\n"
            "ch #2, i2c_readblk rc=-1, buf[0]=0xaa\n"
            "ch #3, i2c_readblk rc=-1, buf[0]=0xaa\n"
            "ch #1, i2c_write rc=-1\n"
            "ch #2, i2c_write rc=-1\n"
            "ch #3, i2c_write rc=-1\n"
            "Error i2c_readbyte -7002\n"
            "SYNC data = 0x0\n");
}

TEST(OptionI2c, count_beyond_the_buffer_is_bounded) {
  BoardRun board;
  const Result result = board.vantorig("-i2c 0x38 0 0 5000");  // the DSP answers one byte
  const std::string head = ": ";
  const std::string bytes = result.out.substr(result.out.find(head, 30) + head.size());
  EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 'x'), 1023);
  EXPECT_EQ(result.status, 0);
}

TEST(OptionGpio, every_line_reaches_its_request) {
  for (const int line : {26, 27, 28, 29, 79, 80, 82, 83, 84, 85, 86, 87, 93, 94, 95, 96}) {
    BoardRun board;
    const std::string number = std::to_string(line);
    const Result result = board.vantorig("-gpio " + number);
    EXPECT_EQ(result.out, "Start prog_gpio,input_data = " + number + "\n");
    EXPECT_EQ(board.trace(), (Lines{"open /dev/fpga r+b", "fpga line " + number}));
  }
}

// 17 bytes: 16 and 1. Bits reversed: 01 -> 80, a5 stays, f0 -> 0f.
TEST(OptionBitstream, file_goes_out_reversed_in_chunks_with_a_closing_byte) {
  for (const char* option : {"-f=", "-w="}) {
    BoardRun board;
    board.put_file("image.rbf", "\x01\xA5" + std::string(15, '\xF0'));
    const Result result = board.vantorig(std::string(option) + "image.rbf");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "waited 0 loops for nSTATUS to respond\n"
              "Wrote 17 configuration bytes to the FPGA\n"
              "Configuartion completed successfully\n");
    const std::string chunk = " 80 a5 0f 0f 0f 0f 0f 0f 0f 0f 0f 0f 0f 0f 0f 0f";
    EXPECT_EQ(board.trace(),
              on_fpga({"file image.rbf rb", "fpga config-line 1", "wait 1000", "fpga config-line 0",
                       "fpga config-line 1", "fpga config-status -> 2", "wait 1000",
                       "fpga port wr" + chunk, "fpga port rd" + chunk, "fpga port wr 0f",
                       "fpga port rd 0f", "fpga config-status -> 3", "fpga port wr ff"}));
  }
}

TEST(OptionBitstream, device_never_ready_gives_up_after_100_polls) {
  BoardRun board;
  board.put_file("image.rbf", "x");
  board.vboard("fault nstatus never");
  const Result result = board.vantorig("-f=image.rbf");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "waited 100 loops for nSTATUS to respond\n"
            "nSTATUS = 0, expected 2\n");
  EXPECT_EQ(board.trace({"fpga config-status"}).size(), 100u);
  EXPECT_EQ(board.trace({"wait 1000"}).size(), 101u);
  EXPECT_TRUE(board.trace({"fpga port"}).empty());
}

TEST(OptionBitstream, configuration_error_is_told_and_exits_zero) {
  BoardRun board;
  board.put_file("image.rbf", "x");
  board.vboard("fault config-broken");
  const Result result = board.vantorig("-f=image.rbf");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(lines_of(result.out).back(), "Configuration error: status=0x2");
}

TEST(OptionLoadbf, silent_dsp_gets_its_firmware) {
  BoardRun board;
  board.vboard("fault dsp-no-firmware");
  board.put_file("MELK_spi.bin", "abc");
  const Result result = board.vantorig("-loadbf");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "Test if BF is Empty\n"
            "blkfn i2c error\n"
            "start download file to the BF\n"
            "open file MELK_spi.bin\n"
            "the size is=3 off MELK_spi.bin\n"
            "Start prog_gpio,input_data = 28\n"
            "Start prog_gpio,input_data = 29\n"
            "Initial SPI state: HWAIT=0, SPI_STATUS_REG 0x0\n"
            "Writing control_data 0x3\n"
            "sending data 0 0x61 level 0 0x0\n"
            "end send file MELK_spi.bin size 3\n"
            "The BF is Loaded from SPI\n");
  EXPECT_EQ(
      board.trace({"fpga", "wait", "file"}),
      (Lines{"file /home/tovin/MELK_spi.bin rb", "fpga line 28", "wait 10000", "fpga line 29",
             "wait 10000", "fpga rd 0x0148 -> 0x0000", "fpga rd 0x0148 -> 0x0000",
             "fpga wr 0x0144 <- 0x0000", "fpga wr 0x0144 <- 0x0003", "fpga rd 0x0148 -> 0x0000",
             "fpga wr 0x0140 <- 0x0061", "fpga rd 0x0148 -> 0x0001", "fpga wr 0x0140 <- 0x0062",
             "fpga rd 0x0148 -> 0x0001", "fpga wr 0x0140 <- 0x0063", "fpga wr 0x0144 <- 0x0002"}));
}

TEST(OptionLoadbf, firmware_file_missing_exits_one) {
  BoardRun board;
  board.vboard("fault dsp-no-firmware");
  std::filesystem::remove(board.path("MELK_spi.bin"));
  const Result result = board.vantorig("-loadbf");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "File error");
  EXPECT_EQ(result.out,
            "Test if BF is Empty\n"
            "blkfn i2c error\n"
            "start download file to the BF\n"
            "open file MELK_spi.bin\n");
}

const char* const kRestoreShell[] = {"shell tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/",
                                     "shell chmod +x *", "shell chmod +x *.*",
                                     "shell tmp/./update.sh", "shell ls -l tmp/"};

TEST(OptionRestor, archive_is_unpacked_and_its_script_run) {
  BoardRun board;
  board.put_file("tmp/update.sh", "#!/bin/sh\necho installing in $PWD\n");
  const std::string tmp = board.path("tmp");
  ASSERT_EQ(shell("cd " + tmp +
                  " && chmod +x update.sh && tar -czf new_hd_version_master.tar.gz "
                  "update.sh && rm update.sh")
                .status,
            0);
  const Result result = board.vantorig("-restor");
  EXPECT_EQ(result.status, 0);
  Lines out = lines_of(result.out);
  ASSERT_EQ(out.size(), 8u);
  out.resize(5);
  EXPECT_EQ(out, (Lines{" Go to Restor  command", "Extract the from manufacture file", "update.sh",
                        "copy file to work dir", "installing in /home/tovin"}));
  EXPECT_EQ(board.trace(), (Lines{kRestoreShell[0], "wait 1000", kRestoreShell[1], kRestoreShell[2],
                                  kRestoreShell[3], "wait 1000", kRestoreShell[4]}));
}

TEST(OptionRestor, archive_missing_goes_through_the_steps) {
  BoardRun board;
  const Result result = board.vantorig("-restor");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            " Go to Restor  command\n"
            "Extract the from manufacture file\n"
            "copy file to work dir\n");
  EXPECT_EQ(board.trace({"shell"}).size(), std::size(kRestoreShell));
}

// ---- RGB set-up ------------------------------------------------------------------------

// Standard 25, then the writes common to all standards.
const Lines kRgbSetUp = {
    "i2c 5c wr 01 61",    "i2c 5c wr 02 80",    "i2c 5c wr 03 a0",    "i2c 5c wr 07 20",
    "i2c 5c wr 0e 20",    "i2c 5c wr 2c 50",    "i2c 5c wr 40 7a",    "i2c 5c wr 41 00",
    "i2c 5c wr 42 f2",    "i2c 5c wr 43 05",    "i2c 5c wr 44 03",    "i2c 5c wr 45 03",
    "i2c 5c wr 46 1e",    "i2c 5c wr 47 1e",    "i2c 5c wr 34 13",    "i2c 5c rd 01 -> 61",
    "i2c 5c rd 02 -> 80", "i2c 5c rd 03 -> a0", "i2c 5c rd 04 -> 80", "i2c 5c rd 12 -> 00",
    "i2c 5c rd 13 -> 00", "i2c 5c rd 34 -> 13", "i2c 5c wr 19 aa",    "wait 100",
    "i2c 5c rd 19 -> aa", "i2c 5c wr 1a 6a",    "wait 100",           "i2c 5c rd 1a -> 6a",
    "i2c 5c wr 04 80",    "i2c 5c wr 05 06",    "i2c 5c wr 06 10",    "i2c 5c wr 08 3c",
    "i2c 5c wr 09 3c",    "i2c 5c wr 0a 3c",    "i2c 5c wr 0f 2e",    "i2c 5c wr 10 58",
    "i2c 5c wr 11 40",    "i2c 5c wr 12 01",    "i2c 5c wr 13 00",    "i2c 5c wr 15 04",
    "i2c 5c wr 17 00",    "i2c 5c wr 18 01",    "i2c 5c wr 19 aa",    "i2c 5c wr 1a 6a",
    "i2c 5c wr 21 0d",    "i2c 5c wr 22 00",    "i2c 5c wr 26 80",    "i2c 5c wr 28 53",
    "i2c 5c wr 29 08",    "i2c 5c wr 2a 07",    "i2c 5c wr 2b 00",    "i2c 5c wr 31 18",
    "i2c 5c wr 35 00",    "i2c 5c wr 36 00",    "i2c 5c wr 3d 06"};
const Lines kSelectRgb = {"shmget 0x4d454c4b 4096 0x3ff", "open /dev/video0", "video0 S_INPUT 3",
                          "close /dev/video0"};

TEST(Option7002, sets_the_digitizer_up_for_standard_25) {
  BoardRun board;
  const Result result = board.vantorig("-7002");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "Set CH input to 3 \n"
            "Set Video Input To RGB std 25\n"
            "reg 01 61 \nreg 02 80 \nreg 03 a0 \nreg 04 80 \nreg 012 0 \nreg 013 0 \nreg 34 13 \n"
            "Set Video Input To all config CH 3 RGB Input\n"
            "read reg 19 aa \nread reg 1A 6a \n");
  EXPECT_EQ(board.trace(), kSelectRgb + Lines{"open /dev/i2c-1"} + kRgbSetUp);
}

TEST(Option7002, bus_missing_stops_after_the_input) {
  BoardRun board;
  board.vboard("fault missing i2c");
  const Result result = board.vantorig("-7002");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Set CH input to 3 \nCannot access I2C device - Brightness\n");
  EXPECT_EQ(board.trace(), kSelectRgb + kNoBus);
}

TEST(Option7002, capture_device_missing_sets_the_chip_up) {
  BoardRun board;
  board.vboard("fault missing video0");
  const Result result = board.vantorig("-7002");
  EXPECT_EQ(result.out.substr(0, 39), "Cannot open video 0\nSet CH input to 3 \n");
  EXPECT_EQ(board.trace(), Lines{"shmget 0x4d454c4b 4096 0x3ff"} + kNoCapture +
                               Lines{"open /dev/i2c-1"} + kRgbSetUp);
}

// ---- DIX4192 --------------------------------------------------------------------------

TEST(Option4192, programs_page_0_and_dumps_it) {
  BoardRun board;
  board.vboard("audio none");
  const Result result = board.vantorig("-4192");
  EXPECT_EQ(result.status, 0);
  // What was written stands at its register, 0 everywhere else.
  std::string dump;
  Lines reads;
  for (int reg = 0x03; reg <= 0x2C; ++reg) {
    const int value = reg == 0x03   ? 0x29
                      : reg == 0x04 ? 0x0B
                      : reg == 0x0D ? 0x08
                      : reg == 0x0E ? 0x01
                      : reg == 0x0F ? 0x34
                      : reg == 0x1B ? 0x07
                                    : 0;
    char text[40];
    snprintf(text, sizeof text, "reg %02x=0x%02x\t", static_cast<unsigned>(reg),
             static_cast<unsigned>(value));
    dump += text;
    snprintf(text, sizeof text, "i2c 70 rd %02x -> %02x", static_cast<unsigned>(reg),
             static_cast<unsigned>(value));
    reads.emplace_back(text);
  }
  EXPECT_EQ(result.out,
            "Y prog4192\n"
            "page 0====================================\n"
            "receiver_pll1_reg1 = 0x34\n"
            "receiver_pll1_reg2 = 0x0\n"
            "receiver_pll1_reg3 = 0x0\n"
            "rc=2\n" +
                dump + "\n");
  EXPECT_EQ(board.trace(),
            on_bus(Lines{"i2c 70 wr 7f 00", "i2c 70 wr 01 80", "wait 100", "i2c 70 wr 01 7f",
                         "wait 5000", "i2c 70 wr 7f 00", "i2c 70 wr 03 29", "i2c 70 wr 04 0b",
                         "i2c 70 wr 0d 08", "i2c 70 wr 0e 01", "i2c 70 wr 1b 07", "i2c 70 wr 0f 34",
                         "i2c 70 wr 10 00", "i2c 70 wr 11 00", "wait 10000"} +
                   reads + Lines{"wait 10000"}));
}

// ---- FPGA bench -----------------------------------------------------------------------

// Registers that the FPGA itself fills read as it fills them: word 0 the
// version, 6 the audio status, 128 and 130 the capture FIFO.
TEST(OptionReg, tests_32_cells_and_68_words) {
  BoardRun board;
  board.vboard("audio none");
  const Result result = board.vantorig("-reg");
  std::string expected;
  char text[80];
  for (unsigned i = 0; i < 32; ++i) {
    snprintf(text, sizeof text, "13 - WR  i=%u rc=0\n14 - RD i=%u rc=0 val=0x%x\n", i, i, i);
    expected += text;
  }
  Lines cells;
  for (int i = 0; i < 32; ++i) {
    const std::string number = std::to_string(i);
    cells = cells + Lines{"fpga test-select " + number, "fpga test-wr " + number,
                          "fpga test-select " + number, "fpga test-rd -> " + number};
  }
  Lines writes;
  Lines reads;
  for (unsigned n = 0; n <= 134; n += 2) {
    const unsigned held = n == 0 ? 0x117 : n == 6 || n == 128 || n == 130 ? 0 : n + 0x1234;
    snprintf(text, sizeof text, "fpga wr 0x%04x <- 0x%04x", n * 2, n + 0x1234);
    writes.emplace_back(text);
    snprintf(text, sizeof text, "fpga rd 0x%04x -> 0x%04x", n * 2, held);
    reads.emplace_back(text);
    reads.emplace_back(text);
    snprintf(text, sizeof text, "0x%x\t", held);
    expected += text;
  }
  EXPECT_EQ(writes.size(), 68u);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, expected);
  EXPECT_EQ(board.trace(), on_fpga(cells + writes + reads));
}

// 40 000 000 bytes a size: 156250 blocks of 256, half as many of 512, ...
TEST(OptionPerf, prints_nine_sizes_a_pass) {
  BoardRun board;
  const Result result = board.vantorig("-perf");
  EXPECT_EQ(result.status, 0);
  const Lines out = lines_of(result.out);
  ASSERT_EQ(out.size(), 20u);
  EXPECT_EQ(out[0], "Write performance:");
  EXPECT_EQ(out[10], "Read performance:");
  for (int pass = 0; pass < 2; ++pass)
    for (int row = 0; row < 9; ++row) {
      const std::string head = "block size=" + std::to_string(256 << row) + "  duration=";
      EXPECT_EQ(out[static_cast<std::size_t>(pass * 10 + 1 + row)].substr(0, head.size()), head);
    }
  EXPECT_EQ(board.trace({"fpga wrblk 0x0000 n=256"}).size(), 156250u);
  EXPECT_EQ(board.trace({"fpga rdblk 0x0000 n=65536"}).size(), 611u);  // 610.35 rounded up
}

}  // namespace
