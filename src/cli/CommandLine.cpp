#include "CommandLine.h"

#include "Output.h"

#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

namespace CommandLine {

Parsed parse(const QStringList &arguments, const Grammar &grammar)
{
    Parsed parsed;
    bool optionsEnded = false;
    bool inList = false;
    bool listSeen = false;
    QString awaiting; // the value option whose value comes next
    for (const QString &arg : arguments) {
        if (!awaiting.isEmpty()) {
            parsed.values.insert(awaiting, arg);
            awaiting.clear();
            continue;
        }
        const bool option = !optionsEnded && arg.startsWith(u'-') && arg != u"-";
        if (!option) {
            (inList ? parsed.listValues : parsed.positional).append(arg);
            continue;
        }
        inList = false;
        const qsizetype equals = arg.indexOf(u'=');
        const QString name = equals < 0 ? arg : arg.left(equals);
        const QString attached = equals < 0 ? QString() : arg.mid(equals + 1);
        if (arg == u"--") {
            optionsEnded = true;
        } else if (arg == u"--help" || arg == u"-h") {
            parsed.help = true;
        } else if (grammar.switches.contains(arg)) {
            parsed.switches.insert(arg);
        } else if (!grammar.listOption.isEmpty() && name == grammar.listOption) {
            listSeen = true;
            if (equals < 0)
                inList = true;
            else
                parsed.listValues.append(attached);
        } else if (grammar.valueOptions.contains(name)) {
            if (equals < 0)
                awaiting = name;
            else
                parsed.values.insert(name, attached);
        } else if (!parsed.problem) {
            parsed.problem = L10n::pick(u"unknown option "_s, u"未知选项 "_s) + arg;
        }
    }
    if (!parsed.problem && !awaiting.isEmpty()) {
        parsed.problem = L10n::pick(awaiting + u" needs a value"_s, awaiting + u" 需要一个值"_s);
    }
    if (!parsed.problem && listSeen && parsed.listValues.isEmpty()) {
        parsed.problem = L10n::pick(grammar.listOption + u" needs at least one value"_s,
                                    grammar.listOption + u" 至少需要一个值"_s);
    }
    return parsed;
}

int usageError(const char *command, const QString &problem, const QString &usage)
{
    Output::err(u"quorvel-cli "_s + QString::fromLatin1(command) + u": "_s + problem + u'\n' +
                usage);
    return Output::kUsage;
}

std::variant<Parsed, int> read(const char *command, const QStringList &arguments,
                               const Grammar &grammar, QString (*usage)())
{
    Parsed parsed = parse(arguments, grammar);
    if (parsed.help) {
        Output::out(usage());
        return Output::kOk;
    }
    if (parsed.problem)
        return usageError(command, *parsed.problem, usage());
    if (grammar.positional == Arity::none && !parsed.positional.isEmpty()) {
        return usageError(command,
                          L10n::pick(u"unexpected argument "_s, u"多余的参数 "_s) +
                              parsed.positional.first(),
                          usage());
    }
    if (grammar.positional == Arity::one && parsed.positional.size() != 1) {
        return usageError(command,
                          L10n::pick(u"expected exactly one "_s, u"需要且只需要一个 "_s) +
                              grammar.positionalName,
                          usage());
    }
    return parsed;
}

} // namespace CommandLine
