#pragma once

#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>

// The argument grammar the subcommands share: switches, positional words, and at most one
// option that takes one or more values ("--only A B", "--only=A").
namespace CommandLine {

struct Grammar
{
    QStringList switches; // e.g. "--json"; "--help"/"-h" are always understood
    QString listOption;   // empty when the command has none
};

struct Parsed
{
    bool help = false;
    QSet<QString> switches;
    QStringList positional;
    QStringList listValues;
    std::optional<QString> problem; // set when the arguments are not usable
};

// "--" ends the options; after it every argument is positional. A list option takes the
// arguments that follow it up to the next one starting with "-".
Parsed parse(const QStringList &arguments, const Grammar &grammar);

// Writes "quorvel-cli COMMAND: PROBLEM" and the usage to standard error; returns the
// usage exit status.
int usageError(const char *command, const QString &problem, const QString &usage);

} // namespace CommandLine
