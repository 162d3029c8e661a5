// The help text, kept word for word: it is documentation only, and lists
// "-testbf" and the "-bf_rw" directions as the operators know them.
#include "app/help.h"

#include <cstdio>

static constexpr const char* kHelpLines[] = {
    "----------------------------------------------------------",
    "           help for command line to vantorig",
    "     ***********************************************",
    "   1- test load Blackfin          cmd: ./vantorig -testbf ",
    "   2- run time load Blackfin      cmd: ./vantorig -loadbf ",
    "   3- R/W IPIPE reg Read reg=0x10 cmd: ./vantorig -ipiperw 1 0x10 ",
    "         Write reg=0x10 valu=0x20 cmd: ./vantorig -ipiperw 0 0x10 0x20",
    "   4- R/W ISIF reg Read reg=0x10  cmd: ./vantorig -isifrw 1 0x10 ",
    "         Write reg=0x10 valu=0x20 cmd: ./vantorig -isifrw 0 0x10 0x20",
    "   5- R/W 5150 reg Read reg=0x10  cmd: ./vantorig -5150rw 1 0x10 ",
    "         Write reg=0x10 valu=0x20 cmd: ./vantorig -5150rw 0 0x10 0x20",
    "   6- R/W vblk reg Read reg=0x10  cmd: ./vantorig -vblk_rw 1 0x10 ",
    "         Write reg=0x10 valu=0x20 cmd: ./vantorig -vblk_rw 0 0x10 0x20",
    "   7- test TVP5150                cmd: ./vantorig -5150 ",
    "   8- test TVP7002                cmd: ./vantorig -7002 ",
    "   9- RUN encoder                 cmd: ./vantorig -602 ",
    "   10- set reset GPIO 28          cmd: ./vantorig -gpio 28 ",
    "       GPIO 26 set 0 :reset the tvp5150",
    "       GPIO 27 set 1 :release the tvp5150 ",
    "       GPIO 93 set 0 :reset the tvp7002",
    "       GPIO 94 set 1 :release the tvp7002 ",
    "       GPIO 28 set 0 :reset the ac3 dsp ",
    "       GPIO 29 set 1 :release the ac3 dsp",
    "       GPIO 95 set 0 :reset the Audio ",
    "       GPIO 96 set 1 :release the Audio",
    "       GPIO 82 set 0 :on gpio 82 ",
    "       GPIO 83 set 0 :on gpio 83 ",
    "       GPIO 84 set 0 :on gpio 84 ",
    "       GPIO 85 set 1 :on gpio 82 ",
    "       GPIO 86 set 1 :on gpio 83 ",
    "       GPIO 87 set 1 :on gpio 84 ",
    "       GPIO 79 Sel_HDMI_video select TVP7002 ",
    "       GPIO 80 Sel_HDMI_video select TVP5150 ",
    "   11- R/W Blackfin reg Read reg=0x10  cmd: ./vantorig -bf_rw 0 0x10 ",
    "              Write reg=0x10 valu=0x20 cmd: ./vantorig -bf_rw 1 0x10 0x20",
    "   12- Set X/Y offset for VGA cmd: ./vantorig -offset x y ",
    "----------------------------------------------------------",
};

void print_help() {
  for (const char* line : kHelpLines) puts(line);
}
