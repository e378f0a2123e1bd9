// Appcast feeds come from any server an installed app names; nothing in them is trusted.
#include "core/updates/AppcastParser.h"
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

namespace {

QString versionKey(const AppcastParser::Entry &entry)
{
    if (entry.short_)
        return *entry.short_;
    return entry.build ? *entry.build : QStringLiteral("0");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    AppcastParser parser;
    parser.parse(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    const std::optional<AppcastParser::Entry> best = parser.best();

    // best() must be a channel-free entry that no other channel-free entry outranks, and
    // exist exactly when there is one: a wrong pick would offer users a beta as an update.
    bool anyStable = false;
    bool bestListed = false;
    for (const AppcastParser::Entry &entry : parser.entries()) {
        if (entry.channel)
            continue;
        anyStable = true;
        FUZZ_CHECK(best);
        FUZZ_CHECK(!Versions::versionLess(versionKey(*best), versionKey(entry)));
        bestListed = bestListed || entry == *best;
    }
    FUZZ_CHECK(anyStable == best.has_value());
    FUZZ_CHECK(!best || bestListed);
    return 0;
}
