#ifndef TAVRORECORDS_H
#define TAVRORECORDS_H

// Every record and enumeration of the Tavro device API.

#include "tavrochannel.h"
#include "tavroconfig.h"
#include "tavrodata.h"
#include "tavroenums.h"
#include "tavrofiles.h"
#include "tavromember.h"
#include "tavromisc.h"
#include "tavronode.h"

#endif
