#ifndef ZCORE_H
#define ZCORE_H

// The core library's value types in one include.
#include "zarray.h"
#include "zdict.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"
#include "zstringlist.h"

#endif
