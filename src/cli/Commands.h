#pragma once

#include <QString>
#include <QStringList>

// One entry point per subcommand; each takes the arguments after its own name and
// returns the process exit status.
namespace Commands {

struct Command
{
    const char *name;
    const char16_t *summaryEn;
    const char16_t *summaryZh;
    int (*run)(const QStringList &arguments);
};

int check(const QStringList &arguments);
int scan(const QStringList &arguments);
int clean(const QStringList &arguments);
int overview(const QStringList &arguments);
int trash(const QStringList &arguments);
int updates(const QStringList &arguments);
int upgrade(const QStringList &arguments);

} // namespace Commands
