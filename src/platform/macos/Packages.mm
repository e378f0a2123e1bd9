#include "platform/Packages.h"

#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/param.h>

#import <Foundation/Foundation.h>

bool Platform::isPackage(int dirFd, const char *name)
{
    if (name == nullptr)
        return false;

    // Packages are declared by extension (apps, bundles, documents of installed apps), so
    // only a name with one goes to Foundation; that spares a whole-home walk a path and a
    // Launch Services lookup at every folder. The price: a folder that is a package by its
    // bundle bit alone, with no extension, is walked like any other, and a large file in
    // it can be listed. Such folders are rare today.
    const char *dot = std::strrchr(name, '.');
    if (dot == nullptr || dot == name || dot[1] == '\0')
        return false;

    // The man page asks for a buffer of at least MAXPATHLEN.
    char folder[MAXPATHLEN];
    if (::fcntl(dirFd, F_GETPATH, folder) == -1)
        return false;

    std::string path(folder);
    if (path.empty() || path.back() != '/')
        path += '/';
    path += name;

    @autoreleasepool {
        // From the bytes as they are: the name need not survive a round trip through
        // NSString to be looked up.
        NSURL *url = [NSURL fileURLWithFileSystemRepresentation:path.c_str()
                                                    isDirectory:YES
                                                  relativeToURL:nil];
        if (url == nil)
            return false;
        id value = nil;
        if (![url getResourceValue:&value forKey:NSURLIsPackageKey error:nil])
            return false;
        if (![value isKindOfClass:[NSNumber class]])
            return false;
        NSNumber *flag = value;
        return flag.boolValue;
    }
}
