// `brew outdated --json=v2` output: a Homebrew release or a broken tap can print anything.
#include "core/updates/Homebrew.h"

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
    const QList<OutdatedApp> apps = Homebrew::parseBrewOutdated(
        QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));

    // The id is what the upgrade runs against; it must say which kind of package it is,
    // and formulae are listed before casks.
    bool seenCask = false;
    for (const OutdatedApp &app : apps) {
        const bool cask = app.source == OutdatedApp::Source::brewCask;
        FUZZ_CHECK(cask || app.source == OutdatedApp::Source::brewFormula);
        FUZZ_CHECK(app.id == (cask ? QStringLiteral("cask:") : QStringLiteral("brew:")) + app.name);
        FUZZ_CHECK(!app.appPath);
        FUZZ_CHECK(cask || !seenCask);
        seenCask = seenCask || cask;
    }
    return 0;
}
