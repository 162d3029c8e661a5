// What the reports of the TVP5150 say for a register value.
#pragma once

#include <string>

namespace tvp5150_texts {

inline std::string choice(int value, int bit, const char* set, const char* clear) {
  return std::string((value & bit) != 0 ? set : clear) + "\n";
}

inline std::string locks(int status1) {
  return choice(status1, 0x02, "***********  Horizontal sync lock status",
                "Horizontal sync is not locked") +
         choice(status1, 0x04, "***********  Vertical sync lock status",
                "Vertical sync is not locked") +
         choice(status1, 0x08, "***********  Color subcarrier is locked",
                "Color subcarrier is not locked.") +
         choice(status1, 0x10, "Lost lock since status register",
                "No lost lock since status register");
}

inline std::string status1(int value) {
  return "Status Register #1 reg =0x88 \n \n" + choice(value, 0x01, "VCR ", "TV ") + locks(value) +
         choice(value, 0x20, "Field rate status: 50Hz", "Field rate status: 60Hz") +
         choice(value, 0x40, "Line-alternating status", "No Line-alternating status") +
         choice(value, 0x80, "Peak white is detected.", "Peak white is not detected.");
}

// Behind the heading of status register #2 (and of its weak-signal line).
inline std::string status2_bits(int value) {
  std::string text =
      choice(value, 0x20, "PAL switch is 1.", "PAL switch is 0.") +
      choice(value, 0x10, "Odd field.", "Even field.") +
      choice(value, 0x08, "AGC and offset are frozen.", "AGC and offset are not frozen");
  switch (value & 0x0F) {
    case 0:
      return text + "AGC and offset are not frozen\n";
    case 1:
      return text + "AGC pulses/pseudo-syncs present\n";
    case 2:
      return text + "AGC pulses/pseudo-syncs and 2-line color striping present\n";
    case 3:
      return text + "AGC pulses/pseudo-syncs and 4-line color striping present\n";
    default:
      return text;
  }
}

inline std::string fifo(int caption_status) {
  return choice(caption_status, 0x40, "FIFO is empty", "FIFO is not empty") +
         choice(caption_status, 0x80, "FIFO was full during a write to FIFO.",
                "No FIFO full error.");
}

// Autoswitch and standard of status register #5; 11 is named by one report only.
inline std::string status5_bits(int value, bool names_secam) {
  std::string text =
      choice(value, 0x80, "Autoswitch mode ", "Stand-alone (forced video standard) mode ");
  switch (value & 0x0F) {
    case 1:
      return text + "(M) NTSC ITU-R BT.601\n";
    case 3:
      return text + "(B, G, H, I, N) PAL ITU-R BT.601\n";
    case 5:
      return text + "(M) PAL ITU-R BT.601\n";
    case 7:
      return text + "(Combination-N) ITU-R BT.601\n";
    case 9:
      return text + "NTSC 4.43 ITU-R BT.601\n";
    case 11:
      return names_secam ? text + "SECAM ITU-R BT.601\n" : text;
    default:
      return text;
  }
}

}  // namespace tvp5150_texts
