#pragma once

#include <QString>
#include <QStringView>

// The words the clean-up scans put into their items' subtitles.
namespace Words {

// The label of a ~/Library folder where applications keep their data ("Caches" is
// "Cache"); the folder's own name when it has none.
QString libraryPlace(QStringView folder);
QString lastOpened();

} // namespace Words
