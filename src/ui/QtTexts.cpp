#include "ui/QtTexts.h"

#include "core/text/L10n.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

using namespace Qt::StringLiterals;

bool QtTexts::follow()
{
    // One for the process; reinstalling the same translator is how a test switches back.
    static QTranslator *chinese = nullptr;
    if (chinese) {
        QCoreApplication::removeTranslator(chinese);
        delete chinese;
        chinese = nullptr;
    }
    if (!L10n::isZh())
        return true;
    auto translator = std::make_unique<QTranslator>();
    const QString folders[] = {QLibraryInfo::path(QLibraryInfo::TranslationsPath),
                               QCoreApplication::applicationDirPath() +
                                   u"/../Resources/translations"_s};
    for (const QString &folder : folders) {
        if (translator->load(u"qtbase_zh_CN"_s, folder)) {
            chinese = translator.release();
            return QCoreApplication::installTranslator(chinese);
        }
    }
    return false;
}
