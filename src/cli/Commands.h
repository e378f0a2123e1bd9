#pragma once

#include <QString>
#include <QStringList>

// One entry point per subcommand; each takes the arguments after its own name and
// returns the process exit status.
namespace Commands {

struct Command
{
    const char *name;
    const char *summary;
    int (*run)(const QStringList &arguments);
};

int check(const QStringList &arguments);

} // namespace Commands
