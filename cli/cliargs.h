#ifndef CLIARGS_H
#define CLIARGS_H

#include "zdict.h"
#include "zerror.h"
#include "zlist.h"
#include "zstring.h"

#include <cstdint>

// One option of a command: its name without the dashes, and whether a
// value follows it. A table ends with a null name.
struct CliOption {
    const char* name;
    bool hasValue;
};

// The arguments of one command: options ("--name value", "--name=value";
// "--" ends the options) and the arguments between them, in order.
class CliArgs {
public:
    // Failures: "Unknown option: --x", "Option --x needs a value",
    // "Option --x takes no value".
    ZError parse(int argc, char** argv, const CliOption* options);

    bool has(const char* name) const;
    // The last value given to the option, or fallback.
    ZString value(const char* name, const ZString& fallback = ZString()) const;
    const ZList<ZString>& arguments() const { return oarguments; }

    // The option's value as a whole number from min to max, or a real number
    // above 0; absent options leave out unchanged. Failure: "Invalid value
    // for --x: 'text'".
    ZError number(const char* name, uint64_t& out, uint64_t min, uint64_t max) const;
    ZError positive(const char* name, double& out) const;

private:
    ZDict<ZString> ovalues;
    ZList<ZString> oarguments;
};

#endif
