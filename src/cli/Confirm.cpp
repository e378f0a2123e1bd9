#include "Confirm.h"

#include "Output.h"

#include "core/text/L10n.h"

#include <QByteArray>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Confirm {
namespace {

// Byte by byte up to the newline, so nothing after the answer is swallowed by a buffer.
QString readLine()
{
    QByteArray line;
    char c = 0;
    while (::read(STDIN_FILENO, &c, 1) == 1 && c != '\n')
        line.append(c);
    return QString::fromUtf8(line).trimmed();
}

} // namespace

bool possible(bool assumeYes)
{
    return assumeYes || isatty(STDIN_FILENO) == 1;
}

Answer ask(const QString &question, bool assumeYes)
{
    if (assumeYes)
        return Answer::yes;
    if (!possible(false))
        return Answer::noTerminal;
    Output::err(question + u" [y/N] "_s);
    const QString answer = readLine().toLower();
    return answer == u"y" || answer == u"yes" || answer == u"是" ? Answer::yes : Answer::no;
}

QString refusal()
{
    return L10n::pick(u"Standard input is not a terminal, so there is no one to confirm. "
                      u"Nothing was changed; pass --yes to confirm in advance."_s,
                      u"标准输入不是终端，无法确认。未做任何更改；如已确认，请加上 --yes。"_s);
}

} // namespace Confirm
