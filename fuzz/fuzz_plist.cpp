// Info.plist files inside app bundles are written by whoever made the app.
#include "core/plist/PlistReader.h"

#include <QByteArray>
#include <QVariantList>
#include <QVariantMap>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(cond)                                                                           \
    do {                                                                                           \
        if (!(cond)) {                                                                             \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);          \
            std::abort();                                                                          \
        }                                                                                          \
    } while (0)

namespace {

// The reader cuts nesting off at 64 levels below the top dictionary.
constexpr int kMaxDepth = 64;

// Callers switch on these types only; anything else would be silently misread.
void walk(const QVariant &value, int depth)
{
    FUZZ_CHECK(value.isValid());
    FUZZ_CHECK(depth <= kMaxDepth);
    switch (value.typeId()) {
    case QMetaType::QString:
        (void)value.toString().size();
        break;
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::Double:
        break;
    case QMetaType::QVariantList:
        for (const QVariant &item : value.toList())
            walk(item, depth + 1);
        break;
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            walk(it.value(), depth + 1);
        break;
    }
    default:
        std::fprintf(stderr, "unexpected value type %s\n", value.typeName());
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<QVariantMap> root = PlistReader::parseDictionary(
        QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)),
        {QStringLiteral("CFBundleIdentifier"), QStringLiteral("CFBundleName"), QStringLiteral("k"),
         QStringLiteral("")});
    if (!root)
        return 0;
    for (auto it = root->cbegin(); it != root->cend(); ++it)
        walk(it.value(), 1);
    return 0;
}
