// The App Store lookup answer arrives over the network (or from a mirror the user set).
#include "core/updates/AppStore.h"
#include "core/updates/Versions.h"

#include <QByteArray>
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const AppInfo app{
        QStringLiteral("/Applications/Example.app"),
        QStringLiteral("Example"),
        QStringLiteral("com.example.Example"),
        QStringLiteral("2.4.1"),
        QStringLiteral("2410"),
        std::nullopt,
        true,
    };
    const std::optional<OutdatedApp> found = AppStore::parseAppStoreAnswer(
        app, QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    if (!found)
        return 0;

    // A finding describes this app and only ever a strictly newer version.
    FUZZ_CHECK(found->id == app.bundleID);
    FUZZ_CHECK(found->name == app.name);
    FUZZ_CHECK(found->installed == app.shortVersion);
    FUZZ_CHECK(found->source == OutdatedApp::Source::appStore);
    FUZZ_CHECK(found->appPath == app.path);
    FUZZ_CHECK(Versions::versionLess(app.shortVersion, found->latest));
    return 0;
}
