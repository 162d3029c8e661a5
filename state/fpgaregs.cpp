// Storage of the applied FPGA-side settings.
#include "state/fpgaregs.h"

FpgaRegs fpgaregs;
