#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>
#include <variant>

// The argument grammar the subcommands share: switches, positional words, options with one
// value ("--category X", "--category=X") and at most one option that takes one or more
// values ("--only A B", "--only=A").
namespace CommandLine {

enum class Arity { none, one, any };

// Every member has a default so a command names only what it uses.
struct Grammar
{
    QStringList switches{};         // e.g. "--json"; "--help"/"-h" are always understood
    QString listOption{};           // empty when the command has none
    QStringList valueOptions{};     // each takes the next argument, whatever it looks like
    Arity positional = Arity::none; // with `any`, the command judges the words itself
    QString positionalName{};       // the one word as the usage names it, e.g. "PAGE"
};

struct Parsed
{
    bool help = false;
    QSet<QString> switches;
    QStringList positional;
    QStringList listValues;
    QHash<QString, QString> values; // the last value given to each value option
    std::optional<QString> problem; // set when the arguments are not usable

    std::optional<QString> value(const QString &option) const
    {
        const auto found = values.constFind(option);
        return found == values.cend() ? std::nullopt : std::optional(*found);
    }
};

// "--" ends the options; after it every argument is positional. A list option takes the
// arguments that follow it up to the next one starting with "-".
Parsed parse(const QStringList &arguments, const Grammar &grammar);

// Writes "quorvel-cli COMMAND: PROBLEM" and the usage to standard error; returns the
// usage exit status.
int usageError(const char *command, const QString &problem, const QString &usage);

// What every command does first: the parsed arguments when it has work to do, otherwise the
// status to exit with, after printing the usage for --help or the complaint for arguments
// that are unusable or have the wrong number of positional words.
std::variant<Parsed, int> read(const char *command, const QStringList &arguments,
                               const Grammar &grammar, QString (*usage)());

} // namespace CommandLine
