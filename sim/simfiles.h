#ifndef SIMFILES_H
#define SIMFILES_H

#include "tavrorecords.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TavroSim {

// The file system of a simulated unit, held in memory.
//
// Roots "/internal" (64 MiB) and, with a card, "/sdcard" (256 MiB), each with
// a "data" folder. Paths are absolute, at most 127 characters, without "."
// or ".." parts. The names "FirmwareCpu", "FirmwareFpga" and "FirmwareWifi"
// are not files: opened for writing they take a firmware image, which is
// staged for installation when its handle is closed.
//
// Errors: 2 "No such file or directory", 9 "Bad file handle", 14 "End of
// file" (and "No more files" past the last entry of a folder), 16 "File is
// open", 19 "No such device" (no card), 21 "Is a directory", 22 "Invalid
// path", "Invalid mode", "Invalid length", "Invalid offset", "Invalid delete
// type", 23 "Too many open files", 28 "No space left on device".
class SimFiles {
public:
    static constexpr unsigned int handlesMax = 8;
    static constexpr uint64_t internalSize = 64ull << 20;
    static constexpr uint64_t sdcardSize = 256ull << 20;
    static constexpr size_t firmwareMax = 4u << 20;

    explicit SimFiles(bool sdcard);

    // The roots and their data folders, empty; every handle closed.
    void format();
    ZError info(const ZString& path, TavroApi::FilesysInfo& info) const;
    ZError list(const ZString& folder, unsigned int index, TavroApi::FileInfo& info) const;
    ZError open(const ZString& name, const ZString& mode, uint32_t now, unsigned int& handle);
    ZError read(unsigned int handle, unsigned int offset, unsigned int length,
                TavroApi::FileData& data);
    ZError write(unsigned int handle, unsigned int offset, const TavroApi::FileData& data,
                 uint32_t now);
    ZError close(unsigned int handle);
    ZError remove(const ZString& path);
    ZError removeAll(const ZString& root, TavroApi::FilesysDeleteType type);

    // For the unit itself: a new empty file, bytes added at its end, whole contents.
    ZError create(const ZString& path, uint32_t now);
    ZError append(const ZString& path, const void* data, size_t n, uint32_t now);
    ZError contents(const ZString& path, std::vector<uint8_t>& data) const;
    ZError put(const ZString& path, const std::vector<uint8_t>& data, uint32_t now);
    ZList<ZString> names(const ZString& folder) const;
    bool exists(const ZString& path) const;
    // Deletes the oldest closed file of a folder other than keep; false when none.
    bool removeOldest(const ZString& folder, const ZString& keep);
    // The root of a path ("/internal"), empty when there is none.
    static ZString rootOf(const ZString& path);

    // Takes the staged image of a firmware target; false when there is none.
    bool takeFirmware(const ZString& target, std::vector<uint8_t>& image);
    static bool isFirmware(const ZString& name);

private:
    struct Entry {
        bool folder = false;
        uint32_t time = 0;
        std::vector<uint8_t> data;
    };
    struct Handle {
        bool used = false;
        bool read = false;
        bool write = false;
        bool append = false;
        std::string path; // a file, or a firmware target
    };

    ZError check(const ZString& path, std::string& out) const;
    uint64_t used(const std::string& root) const;
    uint64_t size(const std::string& root) const;
    bool isOpen(const std::string& path) const;
    Handle* handleOf(unsigned int handle);
    static std::string parentOf(const std::string& path);

    bool osdcard;
    std::map<std::string, Entry> oentries;
    std::map<std::string, std::vector<uint8_t>> ostaging;  // firmware being written
    std::map<std::string, std::vector<uint8_t>> ofirmware; // firmware to install
    Handle ohandles[handlesMax];
};

} // namespace TavroSim

#endif
