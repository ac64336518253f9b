#ifndef ZDIR_H
#define ZDIR_H

#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <sys/stat.h>
#include <sys/types.h>

// One directory entry as scandir gave it; the name never includes the path.
struct ZDirEntry {
    ZString name;
    unsigned char type = 0; // d_type (DT_REG, DT_DIR, ... or DT_UNKNOWN)
    ino_t inode = 0;
};

// A directory listing: scandir, optionally filtered by a shell
// wildcard (ZString::compareWild) and sorted with alphasort when the sort
// mode is 1 (otherwise the system's order). "." and ".." are kept when they
// match.
//
// The wildcard reaches scandir's selection function through one
// process-wide pattern. A mutex held for the whole scandir call guards it,
// so concurrent read() calls from several threads are safe; they are
// serialised while they list.
class ZDir {
public:
    ZDir() : sortMode(0) {}
    // Opens and reads path; see error() for the outcome.
    explicit ZDir(const ZString& path);

    // Stores the path and reads the directory.
    ZError open(const ZString& path);
    // Clears the entry list and lists the directory again. Failure: -errno
    // and "Cannot read directory: " + path + ": " + system text.
    ZError read();
    // Stores the pattern (empty = no filter) and reads the directory again
    // when a path is set.
    ZError setWild(const ZString& pattern);
    // 1 = alphabetical (alphasort), anything else = directory order. Takes
    // effect at the next read().
    void setSort(int mode) { sortMode = mode; }
    void clear() { list.clear(); }

    const ZString& path() const { return dirPath; }
    const ZString& wild() const { return pattern; }
    int sort() const { return sortMode; }
    const ZList<ZDirEntry>& entries() const { return list; }
    int number() const { return list.number(); }
    ZIter first() const { return list.first(); }
    ZIter next(ZIter it) const { return list.next(it); }
    bool isEnd(ZIter it) const { return list.isEnd(it); }

    // The entry's name, without the path.
    ZString entryName(ZIter it) const { return list.nodeGet(it).name; }
    // stat/stat64 of path + "/" + name. On failure the result is zeroed and
    // error() holds -errno and the system's text; on success error() is cleared.
    struct stat entryStat(ZIter it);
    struct stat64 entryStat64(ZIter it);

    // The last error (of read() or an entry stat).
    const ZError& error() const { return lastError; }

private:
    ZString entryPath(ZIter it) const;

    ZString dirPath;
    ZString pattern;
    int sortMode;
    ZList<ZDirEntry> list;
    ZError lastError;
};

#endif
