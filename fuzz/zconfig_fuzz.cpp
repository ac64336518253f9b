// libFuzzer target: arbitrary bytes as a ".zconfig" configuration file.
//   CC=clang CXX=clang++ cmake -S . -B build-fuzz -DTAVRO_FUZZ=ON
//   cmake --build build-fuzz --target zconfig_fuzz
//   build-fuzz/fuzz/zconfig_fuzz -max_total_time=600 new-corpus fuzz/corpus/zconfig
//
// The bytes are parsed as a file and applied to the records of a unit with
// sixteen channels. Whatever a file that parses sets, the records must turn
// into a file again that parses (the text a save writes), and the parser
// must give the same answer twice.
#include "configfile.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    ConfigFile file;
    ZError err = file.parse(text, long(size));
    ConfigFile again;
    if (again.parse(text, long(size)).str() != err.str())
        abort();
    if (err)
        return 0;

    ConfigSet set;
    set.channels.resize(16);
    if (file.apply(set))
        return 0;
    ZString saved;
    ConfigFile reread;
    if (ConfigFile::toText(set, saved) || reread.parse(saved.str(), saved.len()))
        abort();
    ConfigSet copy;
    copy.channels.resize(16);
    reread.apply(copy); // text inside a name may not read back; it must not crash
    return 0;
}
