#ifndef ZSTRINGLIST_H
#define ZSTRINGLIST_H

#include "zarray.h"
#include "zlist.h"
#include "zstring.h"

#include <cstdint>

// Comma-separated text to a list; with stripSpaces each piece loses its
// surrounding white space. A trailing "," gives a final empty element.
ZList<ZString> zstringToList(const ZString& s, int stripSpaces);
ZArray<ZString> zstringToArray(const ZString& s, int stripSpaces);
// From a null-terminated array of texts.
ZList<ZString> charToList(const char** texts);
ZArray<ZString> charToArray(const char** texts);
// Elements joined with ",".
ZString zlistToString(const ZList<ZString>& list);
ZString zarrayToString(const ZArray<ZString>& array);
// 1 when s equals an element, else 0.
int zstringListinList(const ZList<ZString>& list, const ZString& s);

// Plain text forms and back.
void toZString(const ZString& value, ZString& out);
void toZString(const ZList<ZString>& value, ZString& out);
void toZString(int value, ZString& out);
void toZString(unsigned int value, ZString& out);
void toZString(unsigned long value, ZString& out);
void toZString(double value, ZString& out);
void fromZString(const ZString& text, ZString& value);
void fromZString(const ZString& text, ZList<ZString>& value);
void fromZString(const ZString& text, int& value);
void fromZString(const ZString& text, unsigned int& value);
void fromZString(const ZString& text, unsigned long& value);
void fromZString(const ZString& text, double& value);

// Allocation-free formatting into buf of the given size, always
// NUL-terminated; width pads on the left with spaces. Return the length written.
int intToString(char* buf, int size, int value, int width);
int int64ToString(char* buf, int size, int64_t value, int width);
// value with the given number of digits after the point.
int floatToString(char* buf, int size, double value, int digits);

// strncpy that always terminates at n - 1.
char* zstrncpy(char* dst, const char* src, int n);
// Trims leading and trailing white space in place.
char* zstrtrim(char* s);

#endif
