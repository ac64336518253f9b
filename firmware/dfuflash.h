#ifndef DFUFLASH_H
#define DFUFLASH_H

#include "zerror.h"
#include "zstring.h"

#include <functional>

class Dfu;

// How dfuFlashCpu waits for the boot loader.
struct DfuFlashOptions {
    // Looks for the boot loader this many times, pollMs apart, before giving up.
    unsigned int polls = 30;
    unsigned int pollMs = 1000;
    // Called once when a running unit but no boot loader is on the bus: asks
    // the unit to restart into its boot loader. Null: just wait.
    std::function<ZError()> startBootloader;
    // Progress texts; returning false gives up waiting for the boot loader.
    std::function<bool(const ZString& text, double done)> progress;
};

// Flashes a raw main-processor image into a unit's boot loader over USB DFU:
// validates the image (platform 33), finds the boot loader (or a running
// unit, then waits for the boot loader to appear), connects, uploads and
// disconnects. The device is given back on every path.
// Failures: those of Dfu, "Error: no DFU or Tavro units present on the USB
// bus", "Error: no DFU units present on the USB bus".
ZError dfuFlashCpu(Dfu& dfu, const ZString& fileName, const DfuFlashOptions& options);

#endif
