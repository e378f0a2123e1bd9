#include "platform/Packages.h"

#include <array>
#include <cstring>
#include <strings.h>

namespace Platform {
namespace {

// Linux has no notion of packages; these are the folder kinds macOS shows as one file.
// The one list of them.
constexpr std::array<const char *, 35> kPackageExtensions{
    "app",        "bundle",        "framework",     "plugin",    "kext",       "appex",
    "xpc",        "photoslibrary", "musiclibrary",  "tvlibrary", "photobooth", "utm",
    "vmwarevm",   "pvm",           "sparsebundle",  "rtfd",      "xcodeproj",  "xcworkspace",
    "xcarchive",  "playground",    "pages",         "numbers",   "key",        "logicx",
    "fcpbundle",  "band",          "imovielibrary", "aplibrary", "lrlibrary",  "dSYM",
    "mdimporter", "qlgenerator",   "prefPane",      "saver",     "wdgt",
};

} // namespace

bool isPackage(int, const char *name)
{
    const char *dot = std::strrchr(name, '.');
    if (!dot || dot == name)
        return false;
    for (const char *extension : kPackageExtensions) {
        if (strcasecmp(dot + 1, extension) == 0)
            return true;
    }
    return false;
}

} // namespace Platform
