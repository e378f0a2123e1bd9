#include "platform/HealthSources.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>

// These files are read on every sampling pass, so each read is open/read/close into a
// fixed buffer on the stack: a QFile per file would cost more than the kernel's own work.

namespace Platform {

namespace {

constexpr size_t kPathSize = 512;

// The parts one after the other; false when they would not fit.
bool joinPath(char (&out)[kPathSize], std::initializer_list<const char *> parts)
{
    size_t used = 0;
    for (const char *part : parts) {
        const size_t length = std::strlen(part);
        if (used + length >= kPathSize)
            return false;
        std::memcpy(out + used, part, length);
        used += length;
    }
    out[used] = '\0';
    return true;
}

// Up to `capacity` bytes of the file; -1 with errno set when it cannot be read.
ssize_t readInto(const char *path, char *buffer, size_t capacity)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    size_t used = 0;
    while (used < capacity) {
        const ssize_t n = ::read(fd, buffer + used, capacity - used);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            errno = error;
            return -1;
        }
        if (n == 0)
            break;
        used += size_t(n);
    }
    ::close(fd);
    return ssize_t(used);
}

// A small attribute file without surrounding white space; nullopt when it cannot be read
// (missing, or a driver that answers with an error such as ENODATA).
std::optional<QByteArray> readAttribute(const char *path)
{
    char buffer[128];
    const ssize_t n = readInto(path, buffer, sizeof buffer);
    if (n < 0)
        return std::nullopt;
    return QByteArray(buffer, n).trimmed();
}

// The entries of a sysfs class folder in name order; nullopt when it cannot be opened.
std::optional<QList<QByteArray>> listFolder(const char *path)
{
    DIR *dir = ::opendir(path);
    if (dir == nullptr)
        return std::nullopt;
    QList<QByteArray> names;
    while (const dirent *entry = ::readdir(dir)) {
        if (entry->d_name[0] != '.')
            names.append(QByteArray(entry->d_name));
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

std::optional<RawCpuTicks> readCpuTicks(const char *root)
{
    // The aggregate line comes first and is far shorter than this; the per-processor lines
    // and interrupt counts after it are not needed.
    char path[kPathSize];
    char buffer[1024];
    if (!joinPath(path, {root, "/proc/stat"}))
        return std::nullopt;
    const ssize_t n = readInto(path, buffer, sizeof buffer);
    if (n <= 0)
        return std::nullopt;
    const void *newline = std::memchr(buffer, '\n', size_t(n));
    const ssize_t length = newline ? static_cast<const char *>(newline) - buffer : n;
    RawCpuTicks raw;
    raw.format = RawCpuTicks::Format::procStat;
    raw.line = QByteArray(buffer, length);
    return raw;
}

std::optional<RawMemory> readMemory(const char *root)
{
    char path[kPathSize];
    char buffer[8192];
    if (!joinPath(path, {root, "/proc/meminfo"}))
        return std::nullopt;
    const ssize_t n = readInto(path, buffer, sizeof buffer);
    if (n <= 0)
        return std::nullopt;
    RawMemory raw;
    raw.format = RawMemory::Format::procMeminfo;
    raw.text = QByteArray(buffer, n);
    return raw;
}

std::optional<RawPressure> readMemoryPressure(const char *root)
{
    char path[kPathSize];
    char buffer[512];
    if (!joinPath(path, {root, "/proc/pressure/memory"}))
        return std::nullopt;
    RawPressure raw;
    raw.format = RawPressure::Format::psi;
    const ssize_t n = readInto(path, buffer, sizeof buffer);
    if (n < 0) {
        // Without PSI the folder is not there; a cgroup-style file that exists but is
        // switched off answers EOPNOTSUPP.
        if (errno == ENOENT || errno == ENOTDIR || errno == EOPNOTSUPP)
            return raw;
        return std::nullopt;
    }
    raw.text = QByteArray(buffer, n);
    return raw;
}

std::optional<RawPowerSources> readPowerSources(const char *root)
{
    char folder[kPathSize];
    if (!joinPath(folder, {root, "/sys/class/power_supply/"}))
        return std::nullopt;
    const std::optional<QList<QByteArray>> names = listFolder(folder);
    if (!names || names->isEmpty())
        return std::nullopt;

    static constexpr const char *kAttributes[] = {"type", "scope", "capacity", "status", "online"};
    RawPowerSources raw;
    raw.format = RawPowerSources::Format::sysfsSupplies;
    for (const QByteArray &name : *names) {
        QMap<QString, QString> supply;
        for (const char *attribute : kAttributes) {
            char path[kPathSize];
            if (!joinPath(path, {folder, name.constData(), "/", attribute}))
                continue;
            if (const std::optional<QByteArray> value = readAttribute(path))
                supply.insert(QString::fromLatin1(attribute), QString::fromUtf8(*value));
        }
        raw.supplies.append(supply);
    }
    return raw;
}

std::optional<RawInterfaces> readInterfaces(const char *root)
{
    char folder[kPathSize];
    if (!joinPath(folder, {root, "/sys/class/net/"}))
        return std::nullopt;
    const std::optional<QList<QByteArray>> names = listFolder(folder);
    if (!names)
        return std::nullopt;

    RawInterfaces raw;
    raw.format = RawInterfaces::Format::sysfsStatistics;
    for (const QByteArray &name : *names) {
        char path[kPathSize];
        struct stat info;
        if (!joinPath(path, {folder, name.constData(), "/device"}) || ::lstat(path, &info) != 0)
            continue;
        RawInterface entry;
        entry.name = QString::fromUtf8(name);
        // A counter that cannot be read stays empty; the parser leaves such an interface out.
        if (joinPath(path, {folder, name.constData(), "/statistics/rx_bytes"}))
            entry.rxText = readAttribute(path).value_or(QByteArray());
        if (joinPath(path, {folder, name.constData(), "/statistics/tx_bytes"}))
            entry.txText = readAttribute(path).value_or(QByteArray());
        raw.interfaces.append(entry);
    }
    return raw;
}

qint64 physicalMemory()
{
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0)
        return 0;
    return qint64(pages) * qint64(pageSize);
}

} // namespace Platform
