#include "platform/Volume.h"

#import <Foundation/Foundation.h>

namespace {

// The value Foundation gave for `key`, or nullopt when it gave none: a key the volume
// cannot answer is left out of the dictionary, not reported as an error.
std::optional<qint64> byteCount(NSDictionary<NSURLResourceKey, id> *values, NSURLResourceKey key)
{
    id value = values[key];
    if (![value isKindOfClass:[NSNumber class]])
        return std::nullopt;
    NSNumber *number = value;
    return qint64(number.longLongValue);
}

} // namespace

std::optional<Platform::VolumeCapacity> Platform::volumeCapacity(const QString &path)
{
    // Foundation raises on an empty path, and a NUL would cut the path short.
    if (path.isEmpty() || path.contains(QChar(u'\0')))
        return std::nullopt;

    @autoreleasepool {
        NSURL *url = [NSURL fileURLWithPath:path.toNSString()];
        NSArray<NSURLResourceKey> *keys = @[
            NSURLVolumeTotalCapacityKey, NSURLVolumeAvailableCapacityForImportantUsageKey,
            NSURLVolumeAvailableCapacityKey
        ];
        // A path that does not exist fails here (no such file) instead of answering for the
        // volume of its nearest existing parent.
        NSDictionary<NSURLResourceKey, id> *values = [url resourceValuesForKeys:keys error:nil];
        if (values == nil)
            return std::nullopt;

        const std::optional<qint64> total = byteCount(values, NSURLVolumeTotalCapacityKey);
        std::optional<qint64> available =
            byteCount(values, NSURLVolumeAvailableCapacityForImportantUsageKey);
        if (!total || !available)
            return std::nullopt;

        // The important-usage figure comes from the purgeable-space service, which answers 0
        // rather than failing where it has nothing to say (volumes other than APFS, no user
        // logged in). A 0 beside free blocks is that non-answer; the blocks are then the
        // truer figure.
        if (*available == 0) {
            const std::optional<qint64> plain = byteCount(values, NSURLVolumeAvailableCapacityKey);
            if (plain && *plain > 0)
                available = plain;
        }
        return VolumeCapacity{*total, *available};
    }
}
