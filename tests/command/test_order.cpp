// Several options on one line: what the scan makes of them, and the fixed order
// in which they act. Operands stand at fixed positions, so an option word read as
// an operand counts as 0.
#include <gmock/gmock.h>

#include <string>

#include "tests/command/command_case.h"

namespace {

class Order : public testing::TestWithParam<CommandCase> {};

TEST_P(Order, is_fixed) { check(GetParam()); }

const std::string kBlkText = "Y prog_blk\nrc = 0\n";
const Lines kBlkTrace = on_bus({"i2c 1c wr 02", "wait 1000000"});
const std::string k7353Text =
    "prog7353\n"
    "ch #1, i2c_readblk rc=2, buf[0]=0x0\n"
    "ch #2, i2c_readblk rc=2, buf[0]=0x0\n"
    "ch #3, i2c_readblk rc=2, buf[0]=0x0\n"
    "ch #1, i2c_write rc=1\n"
    "ch #2, i2c_write rc=1\n"
    "ch #3, i2c_write rc=1\n"
    "SYNC data = 0xda\n";
const Lines k7353Trace =
    on_bus({"i2c 2e rd 01 -> 00", "i2c 2e rd 02 -> 00", "i2c 2e rd 03 -> 00", "i2c 2e wr 01 14",
            "i2c 2e wr 02 15", "i2c 2e wr 03 14", "i2c 5c rd 14 -> da"});
const Lines kVblkTrace = on_bus({"i2c 5c wr 40 47", "i2c 5c wr 41 01", "i2c 5c wr 42 4b",
                                 "i2c 5c wr 43 06", "i2c 5c wr 44 05", "i2c 5c wr 45 05",
                                 "i2c 5c wr 46 1e", "i2c 5c rd 46 -> 1e", "i2c 5c wr 47 1e"});
const std::string kVersionText =
    "---------------bf version = 0x21 --------------------\nbf version is : 2.1\n";
const Lines kVersionTrace = on_bus({"i2c 1c wr 80 00", "wait 10", "i2c 1c rd -> 21"});
const Lines kVersionRegister = on_fpga({"fpga rd 0x0000 -> 0x0117"});

INSTANTIATE_TEST_SUITE_P(
    first_ten, Order,
    testing::Values(
        CommandCase{.name = "offset_in_second_position_is_ignored",
                    .arguments = "-blk -offset",
                    .out = kBlkText,
                    .trace = kBlkTrace},
        CommandCase{.name = "wr_in_second_position_is_ignored",
                    .arguments = "-rdreg -wr",
                    .out = "addr 0x0: 0x117\n",
                    .trace = kVersionRegister},
        CommandCase{.name = "loadbf_in_second_position_is_ignored", .arguments = "-ts -loadbf"},
        CommandCase{.name = "restor_in_second_position_is_ignored", .arguments = "x -restor"},
        CommandCase{.name = "5150_in_second_position_is_ignored", .arguments = "x -5150"},
        CommandCase{.name = "bf_rw_in_second_position_is_ignored", .arguments = "x -bf_rw 1 2"},
        CommandCase{.name = "isifrw_in_second_position_is_ignored", .arguments = "x -isifrw"},
        CommandCase{.name = "ipiperw_in_second_position_is_ignored", .arguments = "x -ipiperw"},
        CommandCase{.name = "5150rw_in_second_position_is_ignored", .arguments = "x -5150rw"},
        // three passes, three checks for firmware
        CommandCase{.name = "loadbf_acts_once_a_pass",
                    .arguments = "-loadbf x y",
                    .out = "Test if BF is Empty\n"
                           "---------------bf version = 0x21 --------------------\n"
                           "The BF is Loaded\n"
                           "Test if BF is Empty\n"
                           "---------------bf version = 0x21 --------------------\n"
                           "The BF is Loaded\n"
                           "Test if BF is Empty\n"
                           "---------------bf version = 0x21 --------------------\n"
                           "The BF is Loaded\n",
                    .trace = kVersionTrace + kVersionTrace + kVersionTrace}),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    prefixes, Order,
    testing::Values(
        // the name comes from argument 1, after its third character: "-gpio" -> "io"
        CommandCase{.name = "bitstream_in_second_position_takes_its_name_from_the_first",
                    .arguments = "-gpio -f=image",
                    .out = "Start prog_gpio,input_data = 0\nCannot access RBF file\n",
                    .trace = Lines{"open /dev/fpga r+b", "fpga config-status -> 2"} +
                             on_fpga({"file io rb = ENOENT"})},
        CommandCase{.name = "bitstream_behind_a_short_argument_has_no_name",
                    .arguments = "x -w=image",
                    .out = "Cannot access RBF file\n",
                    .trace = on_fpga({"file  rb = ENOENT"})},
        CommandCase{.name = "both_bitstream_options_load_the_same_name",
                    .arguments = "-w=one -f=two",
                    .out = "Cannot access RBF file\nCannot access RBF file\n",
                    .trace = on_fpga({"file one rb = ENOENT"}) + on_fpga({"file one rb = ENOENT"})},
        CommandCase{.name = "same_bitstream_option_twice_loads_once",
                    .arguments = "-f=one -f=two",
                    .out = "Cannot access RBF file\n",
                    .trace = on_fpga({"file one rb = ENOENT"})}),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    ts, Order,
    testing::Values(CommandCase{.name = "ts_alone", .arguments = "-ts"},
                    CommandCase{.name = "ts_with_one_argument", .arguments = "-ts -gpio"},
                    CommandCase{.name = "ts_skips_two_options", .arguments = "-ts -gpio -rdreg"},
                    // "a" is what stands at the operand's position
                    CommandCase{.name = "ts_leaves_the_third_option",
                                .arguments = "-ts a b -gpio 5",
                                .out = "Start prog_gpio,input_data = 0\n",
                                .trace = {"open /dev/fpga r+b", "fpga config-status -> 2"}},
                    CommandCase{.name = "ts_skipped_words_still_are_operands",
                                .arguments = "-ts 28 b -gpio 5",
                                .out = "Start prog_gpio,input_data = 28\n",
                                .trace = {"open /dev/fpga r+b", "fpga line 28"}},
                    CommandCase{.name = "ts_behind_another_option",
                                .arguments = "-gpio 28 -ts -blk -rdreg",
                                .out = "Start prog_gpio,input_data = 28\n",
                                .trace = {"open /dev/fpga r+b", "fpga line 28"}}),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    steps, Order,
    testing::Values(
        // 120 + 10 = 130 = 0x82, 24 + 20 = 44 = 0x2c; then the clock block
        CommandCase{.name = "offset_goes_on_to_blk",
                    .arguments = "-offset 10 20 -blk",
                    .out = "Set Offset x=10 y=20\n"
                           "can not open hd.ini file\n"
                           "Default: Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = "
                           "0x18 (24)\n"
                           "Set:     Horizontal Offset Reg = 0x82 (130), Vertical Offset Reg = "
                           "0x2c (44), std=-1\n" +
                           kBlkText,
                    .trace = Lines{"file /home/tovin/hd.ini r = ENOENT", "open /dev/video0",
                                   "wait 10", "video0 0xc004562c 24", "video0 0xc004562d 130",
                                   "wait 1000000", "video0 0xc004562c 16", "video0 0xc004562d 44",
                                   "wait 1000000", "close /dev/video0"} +
                             kBlkTrace},
        CommandCase{.name = "i2c_bf_ends_before_vblk_test",
                    .arguments = "-vblk_test 5 -i2c_bf",
                    .trace = on_bus({"i2c 1c wr 01 01 64 00 05 00 00 00"}) +
                             Lines{"wait 1000000", "wait 1000000"}},
        CommandCase{.name = "vblk_test_goes_on_to_the_version",
                    .arguments = "-rdver_bf -vblk_test",
                    .out = kVersionText,
                    .trace = kVblkTrace + kVersionTrace},
        CommandCase{.name = "vblk_test_comes_before_bf_rw",
                    .arguments = "-bf_rw 0 1 2 -vblk_test",
                    .out = " data1=0x2 data2=0x0\nBlackfin Reg util Write to reg=0x1 data=0x2",
                    .trace = kVblkTrace + on_bus({"i2c 1c wr 10 01 02 00"})},
        // no line end behind the register text
        CommandCase{.name = "bf_rw_goes_on_to_the_version",
                    .arguments = "-bf_rw 0 1 2 -rdver_bf",
                    .out = " data1=0x2 data2=0x0\n"
                           "Blackfin Reg util Write to reg=0x1 data=0x2" +
                           kVersionText,
                    .trace = on_bus({"i2c 1c wr 10 01 02 00"}) + kVersionTrace},
        CommandCase{.name = "isifrw_ends_before_the_version",
                    .arguments = "-isifrw 1 0x10 -rdver_bf",
                    .out = "reg util for ISIF \n",
                    .trace = {"open /dev/video0", "video0 0xc004562a 16"}},
        CommandCase{.name = "ipiperw_ends_before_vblk_rw",
                    .arguments = "-ipiperw 1 0x10 -vblk_rw",
                    .out = "reg util for IPIPE \n",
                    .trace = {"open /dev/video0", "video0 0xc004562c 16", "close /dev/video0"}},
        CommandCase{.name = "5150rw_goes_before_vblk_rw",
                    .arguments = "-5150rw 1 0x28 -vblk_rw",
                    .out = "reg 0x28=0x0\n",
                    .trace = on_bus({"i2c 5d rd 28 -> 00"})},
        // operands at positions 2 and 3: "1" and "0x40"
        CommandCase{.name = "vblk_rw_ends_before_the_dsp_start",
                    .arguments = "-i2c_bf_st 1 0x40 -vblk_rw",
                    .out = "reg 0x40=0x2c\n",
                    .trace = on_bus({"i2c 5c rd 40 -> 2c"})},
        CommandCase{.name = "dsp_start_ends_before_the_version",
                    .arguments = "-rdver_bf -i2c_bf_st",
                    .trace = on_bus({"i2c 1c wr 02"}) + Lines{"wait 1000000"}},
        CommandCase{.name = "version_ends_before_the_status",
                    .arguments = "-rdstat_bf -rdver_bf",
                    .out = kVersionText,
                    .trace = kVersionTrace},
        CommandCase{.name = "status_ends_before_rdreg",
                    .arguments = "-rdreg -rdstat_bf",
                    .out = "bf status is 0x0\n",
                    .trace = on_bus({"i2c 1c wr 00 00", "wait 10", "i2c 1c rd -> 00"})},
        CommandCase{.name = "rdreg_ends_before_wrreg",
                    .arguments = "-wrreg 0 5 -rdreg",
                    .out = "addr 0x0: 0x117\n",
                    .trace = kVersionRegister},
        CommandCase{.name = "rdreg_ends_before_wr",
                    .arguments = "-wr -rdreg",
                    .out = "addr 0x0: 0x117\n",
                    .trace = kVersionRegister},
        CommandCase{.name = "wrreg_ends_before_gpio",
                    .arguments = "-gpio 0x102 7 -wrreg",
                    .out = "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x7 to reg 0x102\n",
                    .trace = on_fpga({"fpga wr 0x0204 <- 0x0007"})},
        // both take argument 2; 28 = 0x1c
        CommandCase{.name = "wr_then_gpio",
                    .arguments = "-wr 28 -gpio",
                    .out = "FPGA WR  command\n"
                           "read reg add 0x112 data 0x1c \n"
                           "Start prog_gpio,input_data = 28\n",
                    .trace = on_fpga({"fpga wr 0x0224 <- 0x001c", "wait 1000"}) +
                             Lines{"open /dev/fpga r+b", "fpga line 28"}},
        CommandCase{.name = "gpio_then_bitstream",
                    .arguments = "-f=none 28 -gpio",
                    .out = "Start prog_gpio,input_data = 28\nCannot access RBF file\n",
                    .trace = Lines{"open /dev/fpga r+b", "fpga line 28"} +
                             on_fpga({"file none rb = ENOENT"})},
        CommandCase{.name = "bitstream_then_7353",
                    .arguments = "-f=none -7353",
                    .out = "Cannot access RBF file\n" + k7353Text,
                    .trace = on_fpga({"file none rb = ENOENT"}) + k7353Trace},
        // the operands are "-blk" and "-i2c": address 0 does not answer
        CommandCase{
            .name = "7353_then_blk_then_i2c",
            .arguments = "-7353 -blk -i2c",
            .out = k7353Text + kBlkText + "i2c readb (rc -1): device_addr 0x0, reg_addr 0x0: \n",
            .trace = k7353Trace + kBlkTrace + on_bus({"i2c 00 rd = EREMOTEIO", "wait 1000000"})},
        // an option that reads as a number is one: -7353 = 0xffffe347
        CommandCase{
            .name = "option_as_operand_is_scanned_for_a_number",
            .arguments = "-i2c x -7353",
            .out = k7353Text + "i2c readb (rc -1): device_addr 0x0, reg_addr 0xffffe347: \n",
            .trace = k7353Trace + on_bus({"i2c 00 rd = EREMOTEIO", "wait 1000000"})},
        // 1.00267 s until the first write (four reads of 0.4 ms, three writes of 0.29,
        // one of a single byte of 0.2, a second), then one every 1.29 ms; "-i2c" is never
        // reached
        CommandCase{.name = "7353_then_blk_then_aablk_for_ever",
                    .arguments = "-7353 -blk -aablk -i2c",
                    .seconds = 1.006,
                    .out = k7353Text + kBlkText +
                           "i2c_writebyte AA blk \ni2c_writebyte AA blk \ni2c_writebyte AA blk \n",
                    .trace = k7353Trace + kBlkTrace +
                             Lines{"open /dev/i2c-1", "i2c 55 wr 63 63", "wait 1000",
                                   "i2c 55 wr 63 63", "wait 1000", "i2c 55 wr 63 63", "wait 1000"}},
        CommandCase{.name = "5150_without_a_bus_ends_before_7002",
                    .arguments = "-5150 -7002",
                    .world = {"fault missing i2c"},
                    .status = 255,
                    .out = "Cannot access I2C device 5150\n",
                    .trace = kNoBus},
        CommandCase{
            .name = "blk_comes_before_5150",
            .arguments = "-5150 -blk",
            .world = {"fault missing i2c"},
            .status = 255,
            .out = "Y prog_blk\nCannot access I2C device1 \nCannot access I2C device 5150\n",
            .trace = kNoBus + kNoBus},
        CommandCase{.name = "7002_then_4192_then_reg_then_perf",
                    .arguments = "-perf -reg -4192 -7002",
                    .world = {"fault missing i2c", "fault missing fpga", "fault missing video0"},
                    .out = "Cannot open video 0\n"
                           "Set CH input to 3 \n"
                           "Cannot access I2C device - Brightness\n"
                           "Y prog4192\n"
                           "Cannot access SPI port (/dev/fpga)\n"
                           "Cannot access SPI port (/dev/fpga)\n",
                    .trace = Lines{"shmget 0x4d454c4b 4096 0x3ff"} + kNoCapture + kNoBus + kNoBus +
                             kNoFpga + kNoFpga}),
    case_name);

TEST(OrderOfRepetition, restor_acts_once_a_pass) {
  BoardRun board;
  const Result result = board.vantorig("-restor x");
  const std::string once =
      " Go to Restor  command\nExtract the from manufacture file\ncopy file to work dir\n";
  EXPECT_EQ(result.out, once + once);
  EXPECT_EQ(board.trace({"shell tar"}).size(), 2u);
}

TEST(OrderOfRepetition, flagged_option_twice_acts_once) {
  BoardRun board;
  const Result result = board.vantorig("-blk -blk -blk");
  EXPECT_EQ(result.out, kBlkText);
  EXPECT_EQ(board.trace(), kBlkTrace);
}

}  // namespace
