#include "cliargs.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace {

const CliOption* findOption(const CliOption* options, const ZString& name) {
    for (; options && options->name; options++) {
        if (name == options->name)
            return options;
    }
    return nullptr;
}

ZError invalid(const char* name, const ZString& text) {
    return ZError(ZString("Invalid value for --") + name + ": '" + text + "'");
}

} // namespace

ZError CliArgs::parse(int argc, char** argv, const CliOption* options) {
    bool optionsEnd = false;
    for (int i = 0; i < argc; i++) {
        const ZString arg(argv[i]);
        if (optionsEnd || arg.subString(0, 2) != "--" || arg == "-") {
            oarguments.append(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnd = true;
            continue;
        }
        ZString name = arg.subString(2);
        ZString value;
        const int equals = name.find('=');
        const bool inlineValue = equals >= 0;
        if (inlineValue) {
            value = name.subString(equals + 1);
            name = name.subString(0, equals);
        }
        const CliOption* option = findOption(options, name);
        if (!option)
            return ZError("Unknown option: --" + name);
        if (option->hasValue && !inlineValue) {
            if (i + 1 >= argc)
                return ZError("Option --" + name + " needs a value");
            value = argv[++i];
        } else if (!option->hasValue && inlineValue) {
            return ZError("Option --" + name + " takes no value");
        }
        ovalues[name] = value;
    }
    return ZError();
}

bool CliArgs::has(const char* name) const {
    return ovalues.contains(name);
}

ZString CliArgs::value(const char* name, const ZString& fallback) const {
    return ovalues.value(name, fallback);
}

ZError CliArgs::number(const char* name, uint64_t& out, uint64_t min, uint64_t max) const {
    if (!has(name))
        return ZError();
    const ZString text = value(name);
    const char* s = text.str();
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = strtoull(s, &end, 10);
    if (!*s || *end || errno || *s == '-' || *s == '+' || v < min || v > max)
        return invalid(name, text);
    out = v;
    return ZError();
}

ZError CliArgs::positive(const char* name, double& out) const {
    if (!has(name))
        return ZError();
    const ZString text = value(name);
    const char* s = text.str();
    char* end = nullptr;
    errno = 0;
    const double v = strtod(s, &end);
    if (!*s || *end || errno || !std::isfinite(v) || v <= 0.0)
        return invalid(name, text);
    out = v;
    return ZError();
}
