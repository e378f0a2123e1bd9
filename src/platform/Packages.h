#pragma once

namespace Platform {

// Whether the folder `name` inside the open folder `dirFd` is a package: a folder the
// system presents as a single file (an application, a library, a document bundle).
// Called for every folder of a large-file walk, so it builds no path unless it must.
bool isPackage(int dirFd, const char *name);

} // namespace Platform
