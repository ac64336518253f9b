#ifndef ZERROR_H
#define ZERROR_H

#include "zstring.h"

#include <cstdint>

// Result of almost every operation: 0 is success, anything else a failure.
// A text alone gives number 1; system-call wrappers give the negated errno.
class ZError {
public:
    ZError() : number(0) {}
    explicit ZError(const ZString& text) : number(1), string(text) {}
    explicit ZError(const char* text) : number(1), string(text) {}
    ZError(int number, const ZString& text) : number(number), string(text) {}

    void clear() {
        number = 0;
        string.clear();
    }
    void setError(const ZString& text) {
        number = 1;
        string = text;
    }
    void set(int n, const ZString& text) {
        number = n;
        string = text;
    }
    // An error with a private copy of the text, for handing to another thread.
    ZError copy() const { return ZError(number, string.copy()); }

    int getNumber() const { return number; }
    int num() const { return number; }
    int getErrorNo() const { return number; }
    ZString getString() const { return string; }
    ZString str() const { return string; }

    explicit operator bool() const { return number != 0; }
    bool operator==(const ZError& e) const { return number == e.number && string == e.string; }

    int32_t number;
    ZString string;
};

// The negated errno with the system's text for it.
ZError zerrorFromErrno(int err);
ZError zerrorFromErrno(int err, const ZString& prefix);

#endif
