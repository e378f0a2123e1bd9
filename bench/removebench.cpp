// Moves everything directly in $HOME/Library/Caches to the Trash through Cleaner::remove, so
// bench/remove.sh can time it against gio trash and trash-put on identical trees. Plain
// "key value" lines on stdout, failures on stderr; nothing here is for people.
#include "core/cleanup/Cleaner.h"
#include "core/cleanup/Restorer.h"
#include "core/disk/DiskScanner.h"
#include "core/system/RealSystem.h"
#include "core/types/CleanItem.h"
#include "core/words/CleanupWords.h"
#include "core/words/RestoreWords.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QString>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void write(std::FILE *stream, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

int usage()
{
    write(stderr, "usage: quorvel-removebench [--no-sizes | --restore]\n"
                  "Moves every entry directly in $HOME/Library/Caches to the Trash in one\n"
                  "Cleaner::remove call (category userCache) and prints \"key value\" lines:\n"
                  "items, moved, failures, bytes, and the milliseconds spent listing,\n"
                  "measuring and removing. --no-sizes gives every item 0 bytes.\n"
                  "--restore puts back every logged move that can go back, as `quorvel-cli\n"
                  "restore --since` does: restorable, restored, failures, list_ms,\n"
                  "restore_ms.\n");
    return 2;
}

// readdir rather than QDir: names that are not valid UTF-8 must still round-trip, and the
// order is fixed afterwards so that runs compare.
std::optional<QList<QByteArray>> entryNames(const QByteArray &folder)
{
    DIR *dir = ::opendir(folder.constData());
    if (dir == nullptr)
        return std::nullopt;
    QList<QByteArray> names;
    while (const dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.append(QByteArray(entry->d_name));
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

// Reads the log back, proves each line against the Trash, and puts everything back.
int restoreAll()
{
    const RealSystem system(Locations::fromEnvironment());
    const Clock::time_point listStart = Clock::now();
    const QList<Restorer::Move> moves = Restorer::restorable(system);
    const double listMs = msSince(listStart);
    const Clock::time_point restoreStart = Clock::now();
    const Restorer::Result result = Restorer::restore(moves, system);
    const double restoreMs = msSince(restoreStart);
    const QStringList failures = Words::failureLines(result);
    for (const QString &failure : failures)
        write(stderr, "quorvel-removebench: " + failure.toUtf8() + '\n');
    std::printf("restorable %lld\nrestored %d\nfailures %lld\nlist_ms %.3f\nrestore_ms %.3f\n",
                (long long)moves.size(), result.count, (long long)failures.size(), listMs,
                restoreMs);
    return failures.isEmpty() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    // No QCoreApplication: Cleaner needs none, and its start-up would be timed too.
    bool sizes = true;
    if (argc == 2 && std::strcmp(argv[1], "--restore") == 0)
        return restoreAll();
    if (argc == 2 && std::strcmp(argv[1], "--no-sizes") == 0)
        sizes = false;
    else if (argc != 1)
        return usage();

    const Clock::time_point listStart = Clock::now();
    const RealSystem system(Locations::fromEnvironment());
    const QString caches = system.where().library(QStringLiteral("Caches"));
    const std::optional<QList<QByteArray>> names = entryNames(QFile::encodeName(caches));
    if (!names) {
        write(stderr, "quorvel-removebench: cannot list " + QFile::encodeName(caches) + '\n');
        return 1;
    }
    QList<CleanItem> items;
    items.reserve(names->size());
    for (const QByteArray &name : *names) {
        CleanItem item;
        item.title = QFile::decodeName(name);
        item.path = caches + u'/' + item.title;
        item.category = CleanCategory::userCache;
        item.method = CleanMethod::delete_;
        items.append(item);
    }
    const double listMs = msSince(listStart);

    const Clock::time_point sizeStart = Clock::now();
    if (sizes) {
        for (CleanItem &item : items)
            item.bytes = DiskScanner::directorySize(item.path);
    }
    const double sizeMs = msSince(sizeStart);

    const Clock::time_point removeStart = Clock::now();
    const Cleaner::Result result = Cleaner::remove(items, system);
    const double removeMs = msSince(removeStart);

    const QStringList failures = Words::failureLines(result);
    for (const QString &failure : failures)
        write(stderr, "quorvel-removebench: " + failure.toUtf8() + '\n');
    std::printf("items %lld\nmoved %d\nfailures %lld\nbytes %lld\n"
                "list_ms %.3f\nsize_ms %.3f\nremove_ms %.3f\n",
                (long long)items.size(), result.count, (long long)failures.size(),
                (long long)result.bytes, listMs, sizeMs, removeMs);
    return failures.isEmpty() && result.count == items.size() ? 0 : 1;
}
