#pragma once

#include <QByteArray>

// Folders reached without passing through a symbolic link. What is judged by its path must
// be what is acted on: a folder opened here stays the folder that was checked, however its
// path is relinked or renamed afterwards.
namespace Platform::NoLinkPath {

// Opens `anchor` (links in the anchor itself are followed: a home folder reached through a
// link is the user's home all the same), then each component of `relative` ("a/b/c", no
// "." or "..", may be empty) as a real folder. A read-only descriptor, or -1 with errno:
// ELOOP or ENOTDIR when a component is a link or no folder, ENOENT when one is missing.
int openFolder(const QByteArray &anchor, const QByteArray &relative);

// The same below an anchor already open as `base`, which stays open and is not re-checked.
int openBelow(int base, const QByteArray &relative);

// True when a component of `relative` below `anchor` is a symbolic link. Checking stops at
// the first component that does not exist (a later move fails on its own).
bool passesThroughLink(const QByteArray &anchor, const QByteArray &relative);

// `path` split at `anchor`: the part below it without a leading slash, or nullopt-like
// false when `path` is neither the anchor nor below it. Both are absolute and standardized.
bool relativeTo(const QByteArray &anchor, const QByteArray &path, QByteArray *relative);

} // namespace Platform::NoLinkPath
