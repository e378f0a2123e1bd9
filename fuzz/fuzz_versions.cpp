// Version strings come from Info.plists, feeds and the App Store; the order must stay a
// strict order on all of them or sorting and "is newer" checks go wrong.
#include "core/updates/Versions.h"

#include <QString>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

[[noreturn]] void violated(const char *law, const QString &a, const QString &b)
{
    std::fprintf(stderr, "version order broken (%s): a=\"%s\" b=\"%s\"\n", law,
                 a.toUtf8().constData(), b.toUtf8().constData());
    std::abort();
}

} // namespace

// Input: a, NUL, b (without a NUL, b is empty).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *bytes = reinterpret_cast<const char *>(data);
    const void *nul = std::memchr(bytes, 0, size);
    const size_t aSize = nul ? size_t(static_cast<const char *>(nul) - bytes) : size;
    const QString a = QString::fromUtf8(bytes, qsizetype(aSize));
    const QString b =
        nul ? QString::fromUtf8(bytes + aSize + 1, qsizetype(size - aSize - 1)) : QString();

    const bool ab = Versions::versionLess(a, b);
    const bool ba = Versions::versionLess(b, a);
    if (Versions::versionLess(a, a))
        violated("irreflexive", a, a);
    if (Versions::versionLess(b, b))
        violated("irreflexive", b, b);
    if (ab && ba)
        violated("asymmetric", a, b);
    return 0;
}
