#pragma once

#include <QString>
#include <QStringList>

// English or Simplified Chinese, decided once per run from the first preferred language.
namespace L10n {

// The rule itself: the first entry, lower-cased, starts with "zh". Empty list: English.
bool isZhFor(const QStringList &preferredLanguages);

// From QLocale::system().uiLanguages(), computed at first use and fixed for the run.
bool isZh();

// The text of a pair for the current run.
inline QString pick(const QString &en, const QString &zh)
{
    return isZh() ? zh : en;
}

// Lets tests exercise both languages in one process; not for production code.
void overrideForTesting(bool zh);

} // namespace L10n
