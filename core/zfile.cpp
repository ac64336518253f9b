#include "zfile.h"

#include "zdir.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

ZFile& ZFile::operator=(ZFile&& o) noexcept {
    if (this != &o) {
        close();
        file = o.file;
        name = o.name;
        o.file = nullptr;
        o.name.clear();
    }
    return *this;
}

ZError ZFile::open(const ZString& fileName, const ZString& mode) {
    close();
    name = fileName;
    file = fopen(fileName.retStr(), mode.retStr());
    if (!file) {
        int err = errno;
        return ZError(-err, ZString("Cannot open file: ") + fileName + ": " + strerror(err));
    }
    return ZError();
}

ZError ZFile::open(FILE* stream) {
    close();
    name.clear();
    file = stream;
    if (!stream)
        return ZError(-EINVAL, ZString(strerror(EINVAL)));
    return ZError();
}

ZError ZFile::open(int fd, const ZString& mode) {
    close();
    name.clear();
    file = fdopen(fd, mode.retStr());
    if (!file) {
        int err = errno;
        return ZError(-err, ZString("Cannot open file descriptor: ") + ZString(fd) + ": " +
                                strerror(err));
    }
    return ZError();
}

ZError ZFile::openTemp(ZString& pattern, const ZString& mode) {
    close();
    // The extension is that of the file-name part; a leading dot (".rc") is
    // part of the name, not an extension.
    int slash = pattern.findReverse('/');
    int dot = pattern.findReverse('.');
    ZString path;
    int suffixLen = 0;
    if (dot > slash + 1) {
        path = pattern.subString(0, dot) + "-XXXXXX" + pattern.subString(dot);
        suffixLen = pattern.len() - dot;
    } else {
        path = pattern + "-XXXXXX";
    }
    char* buf = path.retStrDup();
    int fd = mkstemps(buf, suffixLen);
    if (fd < 0) {
        int err = errno;
        free(buf);
        return ZError(-err, ZString(strerror(err)));
    }
    pattern = buf;
    free(buf);
    file = fdopen(fd, mode.retStr());
    if (!file) {
        int err = errno;
        ::close(fd);
        return ZError(-err, ZString("Cannot open file: ") + pattern + ": " + strerror(err));
    }
    name = pattern;
    return ZError();
}

ZError ZFile::close() {
    if (!file)
        return ZError();
    FILE* f = file;
    file = nullptr; // forgotten whatever fclose says
    if (fclose(f) != 0) {
        int err = errno;
        return ZError(-err, ZString(strerror(err)));
    }
    return ZError();
}

bool ZFile::isEnd() const {
    return !file || feof(file);
}

int ZFile::getFd() const {
    return file ? fileno(file) : -1;
}

int64_t ZFile::length() const {
    if (!file)
        return -1;
    fflush(file);
    struct stat st;
    if (fstat(fileno(file), &st) != 0)
        return -1;
    return st.st_size;
}

size_t ZFile::read(void* data, size_t n) {
    return file ? fread(data, 1, n, file) : 0;
}

size_t ZFile::write(const void* data, size_t n) {
    return file ? fwrite(data, 1, n, file) : 0;
}

char* ZFile::fgets(char* buffer, int size) {
    return file ? ::fgets(buffer, size, file) : nullptr;
}

int ZFile::readString(ZString& text) {
    text.clear();
    if (!file)
        return 0;
    char buf[readStringMax + 1];
    if (!::fgets(buf, sizeof(buf), file))
        return 0;
    text = buf;
    return text.len();
}

int ZFile::writeString(const ZString& text) {
    if (!file)
        return -1;
    size_t n = fwrite(text.retStr(), 1, text.len(), file);
    return n == size_t(text.len()) ? int(n) : -1;
}

int ZFile::printf(const char* format, ...) {
    if (!file)
        return -1;
    va_list ap;
    va_start(ap, format);
    int r = vfprintf(file, format, ap);
    va_end(ap);
    return r;
}

int ZFile::seek(int64_t pos) {
    return file ? fseeko(file, off_t(pos), SEEK_SET) : -1;
}

int64_t ZFile::position() const {
    return file ? int64_t(ftello(file)) : -1;
}

int ZFile::setVBuf(char* buffer, int mode, size_t size) {
    return file ? setvbuf(file, buffer, mode, size) : -1;
}

ZError ZFile::truncate() {
    if (!file)
        return ZError(-EBADF, ZString(strerror(EBADF)));
    if (fflush(file) != 0) {
        int err = errno;
        return ZError(-err, ZString(strerror(err)));
    }
    off_t pos = ftello(file);
    if (pos < 0 || ftruncate(fileno(file), pos) != 0) {
        int err = errno;
        return ZError(-err, ZString(strerror(err)));
    }
    return ZError();
}

ZError ZFile::flush() {
    if (!file)
        return ZError(-EBADF, ZString(strerror(EBADF)));
    if (fflush(file) != 0) {
        int err = errno;
        return ZError(-err, ZString(strerror(err)));
    }
    return ZError();
}

static ZError writeError(int err) {
    ZString text;
    text.printf("File write error: %s\n", strerror(err));
    return ZError(1, text);
}

ZError zcopyFile(const ZString& from, const ZString& to) {
    ZFile in, out;
    ZError e = in.open(from, "r");
    if (e)
        return e;
    e = out.open(to, "w");
    if (e)
        return e; // in is closed by its destructor
    char buf[10240];
    for (;;) {
        size_t n = in.read(buf, sizeof(buf));
        if (n < 1)
            break;
        errno = 0;
        if (out.write(buf, n) < n) {
            int err = errno ? errno : EIO;
            in.close();
            out.close();
            return writeError(err);
        }
    }
    in.close();
    // A file smaller than the stream's buffer only meets a full disk when the
    // buffer is written out at close: report that as the same write error.
    ZError c = out.close();
    if (c)
        return writeError(-c.number);
    return ZError();
}

// Deliberately literal: every entry but "." and ".." goes through
// zcopyFile. A subdirectory is not descended into; since fopen "r" of a
// directory succeeds on Linux and its first read fails (EISDIR), it becomes an
// empty file of the same name at the destination.
ZError zcopyDir(const ZString& from, const ZString& to) {
    ZDir dir;
    ZError e = dir.open(from);
    if (e)
        return e;
    if (access(to.retStr(), X_OK) != 0) {
        if (mkdir(to.retStr(), 0777) != 0) {
            int err = errno;
            return ZError(-err, ZString("Cannot create directory: ") + to + ": " + strerror(err));
        }
    }
    const ZList<ZDirEntry>& entries = dir.entries();
    for (ZIter it = entries.first(); !entries.isEnd(it); it = entries.next(it)) {
        const ZString& n = entries.nodeGet(it).name;
        if (n == "." || n == "..")
            continue;
        e = zcopyFile(from + "/" + n, to + "/" + n);
        if (e)
            return e;
    }
    return ZError();
}
