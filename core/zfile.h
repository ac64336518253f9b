#ifndef ZFILE_H
#define ZFILE_H

#include "zerror.h"
#include "zstring.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

// A buffered standard-library stream with ZError reporting.
// Failures of system calls come back as the negated errno with the system's
// text. The destructor closes the stream. Not copyable; movable.
class ZFile {
public:
    // Longest piece readString() reads in one call.
    static const int readStringMax = 10240;

    ZFile() : file(nullptr) {}
    ~ZFile() { close(); }
    ZFile(const ZFile&) = delete;
    ZFile& operator=(const ZFile&) = delete;
    ZFile(ZFile&& o) noexcept : file(o.file), name(o.name) { o.file = nullptr; }
    ZFile& operator=(ZFile&& o) noexcept;

    // fopen with the mode ("r", "w", ...); an open stream is closed first.
    // Failure: -errno and "Cannot open file: " + name + ": " + system text.
    ZError open(const ZString& name, const ZString& mode);
    // Adopt a stream (owned from now on: close() closes it); null gives -EINVAL.
    ZError open(FILE* stream);
    // Adopt a descriptor through fdopen. Failure: -errno and
    // "Cannot open file descriptor: " + fd + ": " + system text.
    ZError open(int fd, const ZString& mode);
    // Creates a unique file with mkstemps. "dir/data.csv" becomes
    // "dir/data-XXXXXX.csv" (extension kept as the suffix), "dir/name" becomes
    // "dir/name-XXXXXX"; the six X are replaced and the created name is stored
    // back into pattern. A name whose only dot leads it (".rc") has no
    // extension. Failure of mkstemps: -errno and the system's text.
    ZError openTemp(ZString& pattern, const ZString& mode);
    // fclose. The stream is forgotten even when fclose fails (-errno and its
    // text then). Closing a closed file succeeds.
    ZError close();

    bool isOpen() const { return file != nullptr; }
    // True at end of file (feof) and when closed.
    bool isEnd() const;
    // The descriptor, -1 when closed.
    int getFd() const;
    const ZString& fileName() const { return name; }
    FILE* stream() const { return file; }
    // Size from fstat (buffered output is flushed first); -1 when closed or on failure.
    int64_t length() const;

    // fread/fwrite of n one-byte items; return the count (0 when closed).
    size_t read(void* data, size_t n);
    size_t write(const void* data, size_t n);
    // fgets: the buffer, or null at the end of the file, on error or when closed.
    char* fgets(char* buffer, int size);
    // One line of at most readStringMax bytes into text, line end kept.
    // Returns its length, 0 at the end of the file (text is then empty).
    int readString(ZString& text);
    // Return the number of bytes written, or -1 (closed or failed).
    int writeString(const ZString& text);
    int printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Absolute positioning: 0 or -1.
    int seek(int64_t position);
    // Current position, -1 when closed.
    int64_t position() const;
    // setvbuf: 0 or non-zero on failure.
    int setVBuf(char* buffer, int mode, size_t size);
    // Cuts the file at the current position (ftruncate after fflush).
    ZError truncate();
    // fflush; -errno and its text on failure.
    ZError flush();

private:
    FILE* file;
    ZString name;
};

// Copies the file from into to ("r" and "w", blocks of 10240 bytes). Open
// failures come back as from ZFile::open; a short write (or a failure to
// write out the last buffered bytes when closing the destination) gives
// number 1 and "File write error: " + system text + "\n".
ZError zcopyFile(const ZString& from, const ZString& to);

// Copies every entry of directory from except "." and ".." with zcopyFile
// into directory to, which is created (mode 0777) when it cannot be entered.
// Subdirectories are not descended into (see zfile.cpp). Stops at the first error.
ZError zcopyDir(const ZString& from, const ZString& to);

#endif
