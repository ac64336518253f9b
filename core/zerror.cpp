#include "zerror.h"

#include "zlist.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

ZError zerrorFromErrno(int err) {
    return ZError(-err, ZString(strerror(err)));
}

ZError zerrorFromErrno(int err, const ZString& prefix) {
    return ZError(-err, prefix + strerror(err));
}

void zlistOverRange() {
    fputs("ZList over range\n", stderr);
    fflush(stderr);
    abort();
}
