#include "platform/Spotlight.h"

#import <CoreServices/CoreServices.h>
#import <Foundation/Foundation.h>

// MDItemCreateWithURL and MDItemCopyAttribute follow the Create and Copy rules: both
// results are ours to release. ARC does not manage them.
std::optional<QDateTime> Platform::spotlightLastUsed(const QString &bundlePath)
{
    @autoreleasepool {
        NSURL *url = [NSURL fileURLWithPath:bundlePath.toNSString() isDirectory:YES];
        if (url == nil)
            return std::nullopt;
        MDItemRef item = MDItemCreateWithURL(kCFAllocatorDefault, (__bridge CFURLRef)url);
        if (item == nullptr)
            return std::nullopt; // not indexed, or no such bundle
        CFTypeRef value = MDItemCopyAttribute(item, kMDItemLastUsedDate);
        CFRelease(item);
        if (value == nullptr)
            return std::nullopt;
        std::optional<QDateTime> date;
        if (CFGetTypeID(value) == CFDateGetTypeID())
            date = QDateTime::fromCFDate(static_cast<CFDateRef>(value)).toUTC();
        CFRelease(value);
        return date;
    }
}
