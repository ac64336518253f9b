#include "zdir.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <mutex>

namespace {
// The process-wide pattern handed to scandir's selection function, which
// takes no user argument. wildMutex is held for the whole scandir call that
// uses it, so concurrent filtered reads cannot see each other's pattern.
std::mutex wildMutex;
const ZString* wildPattern = nullptr;

int wildSelect(const struct dirent* e) {
    return ZString(e->d_name).compareWild(*wildPattern) == 0 ? 1 : 0;
}
} // namespace

ZDir::ZDir(const ZString& path) : sortMode(0) {
    open(path);
}

ZError ZDir::open(const ZString& path) {
    dirPath = path;
    return read();
}

ZError ZDir::read() {
    list.clear();
    lastError.clear();
    struct dirent** names = nullptr;
    int n;
    int (*cmp)(const struct dirent**, const struct dirent**) = sortMode == 1 ? alphasort : nullptr;
    int err = 0;
    {
        std::lock_guard<std::mutex> lock(wildMutex);
        wildPattern = &pattern;
        n = scandir(dirPath.retStr(), &names, pattern.isEmpty() ? nullptr : wildSelect, cmp);
        if (n < 0)
            err = errno;
        wildPattern = nullptr;
    }
    if (n < 0) {
        lastError =
            ZError(-err, ZString("Cannot read directory: ") + dirPath + ": " + strerror(err));
        return lastError;
    }
    for (int i = 0; i < n; i++) {
        ZDirEntry entry;
        entry.name = names[i]->d_name;
        entry.type = names[i]->d_type;
        entry.inode = names[i]->d_ino;
        list.append(std::move(entry));
        free(names[i]);
    }
    free(names);
    return lastError;
}

ZError ZDir::setWild(const ZString& wild) {
    pattern = wild;
    if (dirPath.isEmpty())
        return ZError();
    return read();
}

ZString ZDir::entryPath(ZIter it) const {
    return dirPath + "/" + list.nodeGet(it).name;
}

struct stat ZDir::entryStat(ZIter it) {
    struct stat st;
    if (stat(entryPath(it).retStr(), &st) != 0) {
        int err = errno;
        memset(&st, 0, sizeof(st));
        lastError = ZError(-err, ZString(strerror(err)));
    } else {
        lastError.clear();
    }
    return st;
}

struct stat64 ZDir::entryStat64(ZIter it) {
    struct stat64 st;
    if (stat64(entryPath(it).retStr(), &st) != 0) {
        int err = errno;
        memset(&st, 0, sizeof(st));
        lastError = ZError(-err, ZString(strerror(err)));
    } else {
        lastError.clear();
    }
    return st;
}
