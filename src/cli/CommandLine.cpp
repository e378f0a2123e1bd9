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
    const QString listPrefix = grammar.listOption + u'=';
    for (const QString &arg : arguments) {
        const bool option = !optionsEnded && arg.startsWith(u'-') && arg != u"-";
        if (!option) {
            (inList ? parsed.listValues : parsed.positional).append(arg);
            continue;
        }
        inList = false;
        if (arg == u"--") {
            optionsEnded = true;
        } else if (arg == u"--help" || arg == u"-h") {
            parsed.help = true;
        } else if (grammar.switches.contains(arg)) {
            parsed.switches.insert(arg);
        } else if (!grammar.listOption.isEmpty() && arg == grammar.listOption) {
            inList = listSeen = true;
        } else if (!grammar.listOption.isEmpty() && arg.startsWith(listPrefix)) {
            listSeen = true;
            parsed.listValues.append(arg.mid(listPrefix.size()));
        } else if (!parsed.problem) {
            parsed.problem = L10n::pick(u"unknown option "_s, u"未知选项 "_s) + arg;
        }
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

} // namespace CommandLine
