#ifndef ZDATACHUNK_H
#define ZDATACHUNK_H

#include <cstdint>

// One piece of a gathered write: a pointer to the bytes and their length.
struct ZDataChunk {
    const void* data;
    uint32_t length;
};

#endif
