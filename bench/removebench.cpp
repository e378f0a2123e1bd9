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
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// This process's user + system time so far.
double cpuMs()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval &t) { return t.tv_sec * 1e3 + t.tv_usec / 1e3; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

void write(std::FILE *stream, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

int usage()
{
    write(stderr, "usage: quorvel-removebench [--no-sizes | --restore | --floor]\n"
                  "Moves every entry directly in $HOME/Library/Caches to the Trash in one\n"
                  "Cleaner::remove call (category userCache) and prints \"key value\" lines:\n"
                  "items, moved, failures, bytes, and the milliseconds spent listing,\n"
                  "measuring and removing. --no-sizes gives every item 0 bytes.\n"
                  "--restore puts back every logged move that can go back, as `quorvel-cli\n"
                  "restore --since` does: restorable, restored, failures, list_ms,\n"
                  "restore_ms.\n"
                  "--floor creates and writes one small file per entry of the folder in a\n"
                  "fresh folder $HOME/floor (what any XDG Trash must do per item): items,\n"
                  "floor_ms, floor_cpu_ms; then renames each into $HOME/floor.moved:\n"
                  "rename_ms.\n");
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

// The file system's floor for a Trash move: one new file of a .trashinfo's size per item,
// then (apart) one rename of each such file into a second fresh folder.
int floor(const QList<QByteArray> &names, const QByteArray &folder)
{
    if (::mkdir(folder.constData(), 0700) != 0 || ::mkdir(folder + ".moved", 0700) != 0) {
        write(stderr, "quorvel-removebench: cannot make " + folder + '\n');
        return 1;
    }
    const int dir = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int moved = ::open(folder + ".moved", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const double cpuStart = cpuMs();
    const Clock::time_point start = Clock::now();
    bool ok = dir >= 0;
    for (const QByteArray &name : names) {
        const QByteArray text = "[Trash Info]\nPath=/home/user/Library/Caches/" +
                                name.toPercentEncoding("/") +
                                "\nDeletionDate=2026-11-16T20:48:37\n";
        const int fd = ::openat(dir, (name + ".trashinfo").constData(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        ok = ok && fd >= 0 && ::write(fd, text.constData(), size_t(text.size())) == text.size();
        ok = ::close(fd) == 0 && ok;
    }
    const double floorMs = msSince(start), floorCpuMs = cpuMs() - cpuStart;
    const Clock::time_point renameStart = Clock::now();
    for (const QByteArray &name : names) {
        const QByteArray file = name + ".trashinfo";
        ok = ::renameat(dir, file.constData(), moved, file.constData()) == 0 && ok;
    }
    std::printf("items %lld\nfloor_ms %.3f\nfloor_cpu_ms %.3f\nrename_ms %.3f\n",
                (long long)names.size(), floorMs, floorCpuMs, msSince(renameStart));
    ::close(dir);
    ::close(moved);
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    // No QCoreApplication: Cleaner needs none, and its start-up would be timed too.
    bool sizes = true, floorOnly = false;
    if (argc == 2 && std::strcmp(argv[1], "--restore") == 0)
        return restoreAll();
    if (argc == 2 && std::strcmp(argv[1], "--no-sizes") == 0)
        sizes = false;
    else if (argc == 2 && std::strcmp(argv[1], "--floor") == 0)
        floorOnly = true;
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
    if (floorOnly)
        return floor(*names, QFile::encodeName(system.where().home()) + "/floor");
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

    const double sizeCpuStart = cpuMs();
    const Clock::time_point sizeStart = Clock::now();
    if (sizes) {
        for (CleanItem &item : items)
            item.bytes = DiskScanner::directorySize(item.path);
    }
    const double sizeMs = msSince(sizeStart), sizeCpuMs = cpuMs() - sizeCpuStart;

    const double removeCpuStart = cpuMs();
    const Clock::time_point removeStart = Clock::now();
    const Cleaner::Result result = Cleaner::remove(items, system);
    const double removeMs = msSince(removeStart), removeCpuMs = cpuMs() - removeCpuStart;

    const QStringList failures = Words::failureLines(result);
    for (const QString &failure : failures)
        write(stderr, "quorvel-removebench: " + failure.toUtf8() + '\n');
    std::printf("items %lld\nmoved %d\nfailures %lld\nbytes %lld\n"
                "list_ms %.3f\nsize_ms %.3f\nsize_cpu_ms %.3f\nremove_ms %.3f\n"
                "remove_cpu_ms %.3f\n",
                (long long)items.size(), result.count, (long long)failures.size(),
                (long long)result.bytes, listMs, sizeMs, sizeCpuMs, removeMs, removeCpuMs);
    return failures.isEmpty() && result.count == items.size() ? 0 : 1;
}
