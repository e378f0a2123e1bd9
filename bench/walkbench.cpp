// The two disk walks as bare commands, so bench/run.sh can time them against du, gdu and
// find on the same tree. Nothing here is shown to users: plain numbers, one per line.
#include "core/cleanup/CleanScanners.h"
#include "core/disk/DiskScanner.h"

#include <QByteArray>
#include <QFileInfo>
#include <QString>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void write(std::FILE *stream, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

int usage()
{
    write(stderr, "usage: quorvel-walkbench size PATH\n"
                  "       quorvel-walkbench large MINBYTES [--list] [--threads N]\n"
                  "size prints the allocated bytes of every regular file below PATH;\n"
                  "large prints the count and byte sum of the large files in $HOME,\n"
                  "and with --list one \"bytes<TAB>path\" line per file, in the scan's\n"
                  "order. --threads 1 walks depth-first on one thread (the reference).\n");
    return 2;
}

int size(const char *argument)
{
    const QString path = QString::fromLocal8Bit(argument);
    // directorySize answers 0 for anything it cannot open; a typo must not pass as an
    // empty tree in the comparison.
    if (!QFileInfo(path).isDir()) {
        write(stderr, "quorvel-walkbench: not a folder: " + QByteArray(argument) + '\n');
        return 1;
    }
    write(stdout, QByteArray::number(DiskScanner::directorySize(path)) + '\n');
    return 0;
}

int large(const char *argument, bool list, int threads)
{
    bool ok = false;
    const qint64 minBytes = QByteArray(argument).toLongLong(&ok);
    if (!ok || minBytes < 0)
        return usage();
    const QList<CleanItem> found =
        Cleaner::largeFiles(minBytes, {}, Locations::fromEnvironment(), threads);
    qint64 total = 0;
    for (const CleanItem &item : found)
        total += item.bytes;
    QByteArray text = QByteArray::number(found.size()) + ' ' + QByteArray::number(total) + '\n';
    if (list) {
        for (const CleanItem &item : found)
            text += QByteArray::number(item.bytes) + '\t' + item.path.toUtf8() + '\n';
    }
    write(stdout, text);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    // No QCoreApplication: the walks need none, and its start-up would be timed too.
    if (argc == 3 && std::strcmp(argv[1], "size") == 0)
        return size(argv[2]);
    if (argc < 3 || std::strcmp(argv[1], "large") != 0)
        return usage();
    bool list = false;
    int threads = 0;
    for (int i = 3; i < argc; ++i) {
        if (std::strcmp(argv[i], "--list") == 0) {
            list = true;
        } else if (std::strcmp(argv[i], "--threads") == 0 && i + 1 < argc) {
            threads = std::atoi(argv[++i]);
            if (threads < 1)
                return usage();
        } else {
            return usage();
        }
    }
    return large(argv[2], list, threads);
}
