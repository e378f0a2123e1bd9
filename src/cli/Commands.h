#pragma once

#include "core/system/Locations.h"

#include <QString>
#include <QStringList>

// One entry point per subcommand; each takes the arguments after its own name and the
// user's locations (read once in main), and returns the process exit status.
namespace Commands {

struct Command
{
    const char *name;
    const char16_t *summaryEn;
    const char16_t *summaryZh;
    int (*run)(const QStringList &arguments, const Locations &where);
};

int check(const QStringList &arguments, const Locations &where);
int scan(const QStringList &arguments, const Locations &where);
int clean(const QStringList &arguments, const Locations &where);
int overview(const QStringList &arguments, const Locations &where);
int trash(const QStringList &arguments, const Locations &where);
int updates(const QStringList &arguments, const Locations &where);
int upgrade(const QStringList &arguments, const Locations &where);

} // namespace Commands
