#include "platform/HealthSources.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <mach/mach.h>
#include <mach/vm_page_size.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <vector>

#import <Foundation/Foundation.h>
#import <IOKit/ps/IOPowerSources.h>

namespace {

// mach_host_self() hands out a new send right on every call; one per pass would leak a
// port reference every two seconds.
class HostPort
{
public:
    HostPort() : m_port(mach_host_self()) {}
    ~HostPort()
    {
        if (m_port != MACH_PORT_NULL)
            mach_port_deallocate(mach_task_self(), m_port);
    }
    HostPort(const HostPort &) = delete;
    HostPort &operator=(const HostPort &) = delete;
    host_t get() const { return m_port; }

private:
    host_t m_port;
};

// The scalar entries of a power source description; nested values are not needed and
// would only drag CF types across.
QVariantMap scalarEntries(NSDictionary *description)
{
    QVariantMap map;
    for (id key in description) {
        if (![key isKindOfClass:[NSString class]])
            continue;
        const QString name = QString::fromNSString(key);
        id value = description[key];
        if ([value isKindOfClass:[NSString class]]) {
            map.insert(name, QString::fromNSString(value));
        } else if ([value isKindOfClass:[NSNumber class]]) {
            NSNumber *number = value;
            // The CF Booleans are NSNumbers too; only their identity tells them from 1 and 0.
            const char *type = number.objCType;
            if (value == (__bridge id)kCFBooleanTrue || value == (__bridge id)kCFBooleanFalse)
                map.insert(name, bool(number.boolValue));
            else if (std::strcmp(type, @encode(double)) == 0 ||
                     std::strcmp(type, @encode(float)) == 0)
                map.insert(name, number.doubleValue);
            else
                map.insert(name, qlonglong(number.longLongValue));
        }
    }
    return map;
}

} // namespace

namespace Platform {

std::optional<RawCpuTicks> readCpuTicks(const char *)
{
    HostPort host;
    host_cpu_load_info_data_t load;
    mach_msg_type_number_t count = HOST_CPU_LOAD_INFO_COUNT;
    if (host_statistics(host.get(), HOST_CPU_LOAD_INFO, reinterpret_cast<host_info_t>(&load),
                        &count) != KERN_SUCCESS)
        return std::nullopt;
    RawCpuTicks raw;
    raw.format = RawCpuTicks::Format::machCounters;
    raw.user = load.cpu_ticks[CPU_STATE_USER];
    raw.system = load.cpu_ticks[CPU_STATE_SYSTEM];
    raw.idle = load.cpu_ticks[CPU_STATE_IDLE];
    raw.nice = load.cpu_ticks[CPU_STATE_NICE];
    return raw;
}

std::optional<RawMemory> readMemory(const char *)
{
    HostPort host;
    vm_statistics64_data_t vm;
    mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
    if (host_statistics64(host.get(), HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&vm),
                          &count) != KERN_SUCCESS)
        return std::nullopt;
    RawMemory raw;
    raw.format = RawMemory::Format::machPages;
    raw.activePages = vm.active_count;
    raw.wiredPages = vm.wire_count;
    raw.compressorPages = vm.compressor_page_count;
    // The counts are in the kernel's pages, which are not the process's under Rosetta
    // (16 KiB against 4 KiB).
    raw.pageSize = vm_kernel_page_size;
    return raw;
}

std::optional<RawPressure> readMemoryPressure(const char *)
{
    int level = 0;
    size_t size = sizeof level;
    if (sysctlbyname("kern.memorystatus_vm_pressure_level", &level, &size, nullptr, 0) != 0 ||
        size != sizeof level)
        return std::nullopt;
    RawPressure raw;
    raw.format = RawPressure::Format::kernelLevel;
    raw.level = level;
    return raw;
}

std::optional<RawPowerSources> readPowerSources(const char *)
{
    @autoreleasepool {
        // Copy rule for the blob and the list; the descriptions are borrowed from the blob,
        // which ARC keeps alive until the end of this scope.
        id info = CFBridgingRelease(IOPSCopyPowerSourcesInfo());
        if (info == nil)
            return std::nullopt;
        NSArray *list = CFBridgingRelease(IOPSCopyPowerSourcesList((__bridge CFTypeRef)info));
        if (list == nil || list.count == 0)
            return std::nullopt;

        RawPowerSources raw;
        raw.format = RawPowerSources::Format::ioKitDescriptions;
        for (id source in list) {
            CFDictionaryRef description =
                IOPSGetPowerSourceDescription((__bridge CFTypeRef)info, (__bridge CFTypeRef)source);
            raw.descriptions.append(description != nullptr
                                        ? scalarEntries((__bridge NSDictionary *)description)
                                        : QVariantMap());
        }
        return raw;
    }
}

std::optional<RawInterfaces> readInterfaces(const char *)
{
    // The routing socket's interface list in its second form carries struct if_data64, whose
    // byte counters do not wrap at 4 GiB as getifaddrs' if_data ones do.
    int mib[] = {CTL_NET, PF_ROUTE, 0, 0, NET_RT_IFLIST2, 0};
    std::vector<char> buffer;
    size_t length = 0;
    // The list can grow between asking its size and reading it; a little slack and one more
    // try cover an interface that appears meanwhile.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (sysctl(mib, 6, nullptr, &length, nullptr, 0) != 0)
            return std::nullopt;
        length += length / 8;
        buffer.resize(length);
        if (sysctl(mib, 6, buffer.data(), &length, nullptr, 0) == 0)
            break;
        if (errno != ENOMEM || attempt == 1)
            return std::nullopt;
    }

    RawInterfaces raw;
    raw.format = RawInterfaces::Format::machLink;
    // Messages of several kinds and lengths follow one another; all begin with the length
    // and the type. Read by copying: nothing aligns them for us.
    constexpr size_t kTypeAt = offsetof(if_msghdr2, ifm_type);
    for (size_t offset = 0; offset + kTypeAt < length;) {
        unsigned short messageLength = 0;
        std::memcpy(&messageLength, buffer.data() + offset, sizeof messageLength);
        if (messageLength == 0)
            break; // a malformed list would otherwise never end
        const auto type = static_cast<unsigned char>(buffer[offset + kTypeAt]);
        if (type == RTM_IFINFO2 && offset + sizeof(if_msghdr2) <= length) {
            if_msghdr2 info;
            std::memcpy(&info, buffer.data() + offset, sizeof info);
            char name[IF_NAMESIZE] = {};
            if (if_indextoname(info.ifm_index, name) != nullptr) {
                RawInterface counters;
                counters.name = QString::fromUtf8(name);
                counters.rxBytes = info.ifm_data.ifi_ibytes;
                counters.txBytes = info.ifm_data.ifi_obytes;
                raw.interfaces.append(counters);
            }
        }
        offset += messageLength;
    }
    return raw;
}

qint64 physicalMemory()
{
    uint64_t bytes = 0;
    size_t size = sizeof bytes;
    if (sysctlbyname("hw.memsize", &bytes, &size, nullptr, 0) != 0 || size != sizeof bytes)
        return 0;
    return qint64(bytes);
}

} // namespace Platform
