#include "simfiles.h"

#include <algorithm>
#include <cstring>

namespace TavroSim {

using namespace TavroApi;

namespace {

const char* const Roots[] = {"/internal", "/sdcard"};
const char* const FirmwareTargets[] = {"FirmwareCpu", "FirmwareFpga", "FirmwareWifi"};
const unsigned int PathMax = 127;

ZError noSuchFile() {
    return ZError(2, "No such file or directory");
}
ZError badHandle() {
    return ZError(9, "Bad file handle");
}
ZError noSpace() {
    return ZError(28, "No space left on device");
}

} // namespace

SimFiles::SimFiles(bool sdcard) : osdcard(sdcard) {
    format();
}

void SimFiles::format() {
    oentries.clear();
    ostaging.clear();
    for (Handle& h : ohandles)
        h = Handle();
    for (const char* root : Roots) {
        if (!osdcard && strcmp(root, "/sdcard") == 0)
            continue;
        oentries[root].folder = true;
        oentries[std::string(root) + "/data"].folder = true;
    }
}

bool SimFiles::isFirmware(const ZString& name) {
    for (const char* t : FirmwareTargets)
        if (name == t)
            return true;
    return false;
}

ZString SimFiles::rootOf(const ZString& path) {
    for (const char* root : Roots) {
        int n = int(strlen(root));
        if (path.subString(0, n) == root && (path.len() == n || path[n] == '/'))
            return root;
    }
    return ZString();
}

std::string SimFiles::parentOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string() : path.substr(0, slash);
}

// A path as the file system keys it: absolute, no empty, "." or ".." parts,
// no trailing slash, on a root that is there.
ZError SimFiles::check(const ZString& path, std::string& out) const {
    std::string p(path.str(), size_t(path.len()));
    if (p.size() > 1 && p.back() == '/')
        p.pop_back();
    if (p.empty() || p[0] != '/' || p.size() > PathMax || p.find("//") != std::string::npos ||
        p.find("/./") != std::string::npos || p.find("/../") != std::string::npos ||
        (p.size() >= 2 && p.compare(p.size() - 2, 2, "/.") == 0) ||
        (p.size() >= 3 && p.compare(p.size() - 3, 3, "/..") == 0))
        return ZError(22, "Invalid path");
    ZString root = rootOf(path);
    if (root.isEmpty())
        return noSuchFile();
    if (root == "/sdcard" && !osdcard)
        return ZError(19, "No such device");
    out = p;
    return ZError();
}

uint64_t SimFiles::size(const std::string& root) const {
    return root == "/sdcard" ? sdcardSize : internalSize;
}

uint64_t SimFiles::used(const std::string& root) const {
    uint64_t n = 0;
    for (auto i = oentries.lower_bound(root); i != oentries.end(); ++i) {
        if (i->first.compare(0, root.size(), root) != 0)
            break;
        n += i->second.data.size();
    }
    return n;
}

bool SimFiles::isOpen(const std::string& path) const {
    for (const Handle& h : ohandles)
        if (h.used && h.path == path)
            return true;
    return false;
}

SimFiles::Handle* SimFiles::handleOf(unsigned int handle) {
    if (handle < 1 || handle > handlesMax || !ohandles[handle - 1].used)
        return nullptr;
    return &ohandles[handle - 1];
}

ZError SimFiles::info(const ZString& path, FilesysInfo& info) const {
    std::string p;
    ZError err = check(path, p);
    if (err)
        return err;
    std::string root(rootOf(path).str());
    info = FilesysInfo();
    setCharArray(info.name, root.c_str());
    info.size = size(root);
    info.free = info.size - std::min(info.size, used(root));
    return ZError();
}

ZError SimFiles::list(const ZString& folder, unsigned int index, FileInfo& info) const {
    std::string p;
    ZError err = check(folder, p);
    if (err)
        return err;
    auto f = oentries.find(p);
    if (f == oentries.end())
        return noSuchFile();
    if (!f->second.folder)
        return ZError(20, "Not a directory");
    unsigned int n = 0;
    for (const auto& e : oentries) {
        if (parentOf(e.first) != p)
            continue;
        if (n++ < index)
            continue;
        info = FileInfo();
        setCharArray(info.name, e.first.substr(p.size() + 1).c_str());
        info.time = ZTime(e.second.time);
        info.fileType = e.second.folder ? FileType::Dir : FileType::File;
        info.fileLength = e.second.data.size();
        return ZError();
    }
    return ZError(14, "No more files");
}

ZError SimFiles::open(const ZString& name, const ZString& mode, uint32_t now,
                      unsigned int& handle) {
    ZString m = mode;
    if (m.len() == 2 && m[1] == 'b')
        m = m.subString(0, 1);
    bool read = m == "r" || m == "r+";
    bool write = m == "w" || m == "a" || m == "r+";
    if (!read && !write)
        return ZError(22, "Invalid mode");
    unsigned int slot = 0;
    while (slot < handlesMax && ohandles[slot].used)
        slot++;
    if (slot == handlesMax)
        return ZError(23, "Too many open files");

    Handle h;
    h.used = true;
    h.read = read;
    h.write = write;
    h.append = m == "a";
    if (isFirmware(name)) {
        if (read || h.append)
            return ZError(22, "Invalid mode");
        h.path = name.str();
        ostaging[h.path].clear();
    } else {
        std::string p;
        ZError err = check(name, p);
        if (err)
            return err;
        auto e = oentries.find(p);
        if (e != oentries.end() && e->second.folder)
            return ZError(21, "Is a directory");
        if (e == oentries.end()) {
            if (m == "r" || m == "r+")
                return noSuchFile();
            err = create(name, now);
            if (err)
                return err;
        } else if (m == "w") {
            e->second.data.clear();
            e->second.time = now;
        }
        h.path = p;
    }
    ohandles[slot] = h;
    handle = slot + 1;
    return ZError();
}

ZError SimFiles::read(unsigned int handle, unsigned int offset, unsigned int length,
                      FileData& data) {
    Handle* h = handleOf(handle);
    if (!h || !h->read)
        return badHandle();
    auto e = oentries.find(h->path);
    if (e == oentries.end())
        return noSuchFile();
    const std::vector<uint8_t>& d = e->second.data;
    if (offset >= d.size())
        return ZError(14, "End of file");
    size_t n = std::min<size_t>({length, FileData::dataMax, d.size() - offset});
    data = FileData();
    data.length = uint32_t(n);
    memcpy(data.data, d.data() + offset, n);
    return ZError();
}

ZError SimFiles::write(unsigned int handle, unsigned int offset, const FileData& data,
                       uint32_t now) {
    Handle* h = handleOf(handle);
    if (!h || !h->write)
        return badHandle();
    if (data.length > FileData::dataMax)
        return ZError(22, "Invalid length");
    std::vector<uint8_t>* d;
    if (isFirmware(h->path.c_str())) {
        d = &ostaging[h->path];
        if (offset + size_t(data.length) > firmwareMax)
            return noSpace();
    } else {
        auto e = oentries.find(h->path);
        if (e == oentries.end())
            return noSuchFile();
        d = &e->second.data;
        if (h->append)
            offset = unsigned(d->size());
        size_t grow =
            offset + size_t(data.length) > d->size() ? offset + size_t(data.length) - d->size() : 0;
        std::string root(rootOf(h->path.c_str()).str());
        if (used(root) + grow > size(root))
            return noSpace();
        e->second.time = now;
    }
    if (offset > d->size())
        return ZError(22, "Invalid offset");
    if (offset + size_t(data.length) > d->size())
        d->resize(offset + size_t(data.length));
    memcpy(d->data() + offset, data.data, data.length);
    return ZError();
}

ZError SimFiles::close(unsigned int handle) {
    Handle* h = handleOf(handle);
    if (!h)
        return badHandle();
    if (isFirmware(h->path.c_str())) {
        std::vector<uint8_t>& image = ostaging[h->path];
        if (!image.empty())
            ofirmware[h->path] = image;
        ostaging.erase(h->path);
    }
    *h = Handle();
    return ZError();
}

ZError SimFiles::remove(const ZString& path) {
    if (isFirmware(path)) {
        for (const Handle& h : ohandles)
            if (h.used && h.path == path.str())
                return ZError(16, "File is open");
        return ofirmware.erase(path.str()) ? ZError() : noSuchFile();
    }
    std::string p;
    ZError err = check(path, p);
    if (err)
        return err;
    auto e = oentries.find(p);
    if (e == oentries.end())
        return noSuchFile();
    if (e->second.folder)
        return ZError(21, "Is a directory");
    if (isOpen(p))
        return ZError(16, "File is open");
    oentries.erase(e);
    return ZError();
}

ZError SimFiles::removeAll(const ZString& root, FilesysDeleteType type) {
    std::string p;
    ZError err = check(root, p);
    if (err)
        return err;
    if (rootOf(root) != p.c_str())
        return ZError(22, "Invalid path");
    if (type != FilesysDeleteType::Data && type != FilesysDeleteType::Format)
        return ZError(22, "Invalid delete type");
    std::string under = type == FilesysDeleteType::Data ? p + "/data/" : p + "/";
    for (Handle& h : ohandles)
        if (h.used && h.path.compare(0, under.size(), under) == 0)
            h = Handle();
    for (auto i = oentries.lower_bound(under); i != oentries.end();) {
        if (i->first.compare(0, under.size(), under) != 0)
            break;
        i = oentries.erase(i);
    }
    oentries[p + "/data"].folder = true;
    return ZError();
}

ZError SimFiles::create(const ZString& path, uint32_t now) {
    std::string p;
    ZError err = check(path, p);
    if (err)
        return err;
    auto parent = oentries.find(parentOf(p));
    if (parent == oentries.end() || !parent->second.folder)
        return noSuchFile();
    Entry& e = oentries[p];
    if (e.folder)
        return ZError(21, "Is a directory");
    e.data.clear();
    e.time = now;
    return ZError();
}

ZError SimFiles::append(const ZString& path, const void* data, size_t n, uint32_t now) {
    std::string p;
    ZError err = check(path, p);
    if (err)
        return err;
    auto e = oentries.find(p);
    if (e == oentries.end() || e->second.folder)
        return noSuchFile();
    std::string root(rootOf(path).str());
    if (used(root) + n > size(root))
        return noSpace();
    const uint8_t* b = static_cast<const uint8_t*>(data);
    e->second.data.insert(e->second.data.end(), b, b + n);
    e->second.time = now;
    return ZError();
}

ZError SimFiles::contents(const ZString& path, std::vector<uint8_t>& data) const {
    std::string p;
    ZError err = check(path, p);
    if (err)
        return err;
    auto e = oentries.find(p);
    if (e == oentries.end() || e->second.folder)
        return noSuchFile();
    data = e->second.data;
    return ZError();
}

ZError SimFiles::put(const ZString& path, const std::vector<uint8_t>& data, uint32_t now) {
    ZError err = create(path, now);
    return err ? err : append(path, data.data(), data.size(), now);
}

ZList<ZString> SimFiles::names(const ZString& folder) const {
    ZList<ZString> out;
    FileInfo info;
    for (unsigned int i = 0; !list(folder, i, info); i++)
        out.append(getCharArray(info.name));
    return out;
}

bool SimFiles::exists(const ZString& path) const {
    std::string p;
    return !check(path, p) && oentries.count(p) != 0;
}

bool SimFiles::removeOldest(const ZString& folder, const ZString& keep) {
    std::string p, k;
    if (check(folder, p) || check(keep, k))
        return false;
    auto oldest = oentries.end();
    for (auto i = oentries.begin(); i != oentries.end(); ++i) {
        if (i->second.folder || parentOf(i->first) != p || i->first == k || isOpen(i->first))
            continue;
        if (oldest == oentries.end() || i->second.time < oldest->second.time)
            oldest = i;
    }
    if (oldest == oentries.end())
        return false;
    oentries.erase(oldest);
    return true;
}

bool SimFiles::takeFirmware(const ZString& target, std::vector<uint8_t>& image) {
    auto f = ofirmware.find(target.str());
    if (f == ofirmware.end())
        return false;
    image.swap(f->second);
    ofirmware.erase(f);
    return true;
}

} // namespace TavroSim
