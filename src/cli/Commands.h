#pragma once

#include "core/system/System.h"

#include <memory>

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
    int (*run)(const QStringList &arguments, const std::shared_ptr<const System> &system);
};

int check(const QStringList &arguments, const std::shared_ptr<const System> &system);
int scan(const QStringList &arguments, const std::shared_ptr<const System> &system);
int clean(const QStringList &arguments, const std::shared_ptr<const System> &system);
int overview(const QStringList &arguments, const std::shared_ptr<const System> &system);
int restore(const QStringList &arguments, const std::shared_ptr<const System> &system);
int trash(const QStringList &arguments, const std::shared_ptr<const System> &system);
int updates(const QStringList &arguments, const std::shared_ptr<const System> &system);
int upgrade(const QStringList &arguments, const std::shared_ptr<const System> &system);

} // namespace Commands
