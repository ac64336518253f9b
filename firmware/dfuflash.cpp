#include "dfuflash.h"

#include "dfu.h"
#include "zcomms.h"

ZError dfuFlashCpu(Dfu& dfu, const ZString& fileName, const DfuFlashOptions& options) {
    auto progress = [&](const ZString& text, double done) {
        return !options.progress || options.progress(text, done);
    };

    ZString version;
    ZError err = Dfu::validateFile(fileName, Dfu::PlatformTavro40x, version);
    if (err || (err = dfu.init(false)))
        return err;

    bool found = false;
    err = dfu.detectDevice(found);
    if (err && found == false && err.str() != "No DFU devices found")
        return err;
    if (!found) {
        bool unit = false;
        if ((err = dfu.detectUnit(unit)))
            return err;
        if (!unit)
            return ZError("Error: no DFU or Tavro units present on the USB bus");
        if (options.startBootloader && (err = options.startBootloader()))
            return err;
        for (unsigned int i = 0; i < options.polls && !found; i++) {
            if (!progress("Waiting for the unit's boot loader", double(i) / options.polls))
                break;
            delayMs(options.pollMs);
            dfu.detectDevice(found);
        }
        if (!found)
            return ZError("Error: no DFU units present on the USB bus");
    }

    if (!(err = dfu.connect())) {
        dfu.setProgress([&](const ZString& text, double done) { progress(text, done); });
        err = dfu.upload(fileName, Dfu::PlatformTavro40x);
        dfu.setProgress(nullptr);
    }
    ZError closeErr = dfu.disconnect();
    return err ? err : closeErr;
}
