#include "core/text/L10n.h"
#include "core/types/CleanItem.h"
#include "core/words/CategoryWords.h"

#include <QSet>
#include <QtTest>

using namespace Qt::StringLiterals;

class CleanItemTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identityIsThePath();
    void rawValues_data();
    void rawValues();
    void textsInBothLanguages();
};

void CleanItemTest::identityIsThePath()
{
    const CleanItem cache{u"/h/Library/Caches/x"_s, u"x"_s,
                          u"~/Library/Caches"_s,    10,
                          CleanCategory::userCache, CleanMethod::delete_};
    const CleanItem ai{u"/h/Library/Caches/x"_s, u"other"_s,        QString(), 99,
                       CleanCategory::ai,        CleanMethod::trash};
    const CleanItem slash{
        u"/h/Library/Caches/x/"_s, u"x"_s, QString(), 10, CleanCategory::userCache,
        CleanMethod::delete_};
    const CleanItem sibling{u"/h/Library/Caches/y"_s, u"x"_s,
                            u"~/Library/Caches"_s,    10,
                            CleanCategory::userCache, CleanMethod::delete_};
    QCOMPARE(cache, ai);
    QCOMPARE(qHash(cache), qHash(ai));
    QCOMPARE(cache.id(), u"/h/Library/Caches/x"_s);
    QCOMPARE(slash.id(), cache.id());
    QCOMPARE(slash, cache);
    QVERIFY(!(cache == sibling));
    const QSet<CleanItem> set{cache, ai, slash, sibling};
    QCOMPARE(set.size(), 2);
    // The path is kept as written: the log shows what the scanner found.
    QCOMPARE(slash.path, u"/h/Library/Caches/x/"_s);
}

void CleanItemTest::rawValues_data()
{
    QTest::addColumn<QString>("raw");
    QTest::addColumn<int>("ordinal"); // -1: no category
    const char *names[] = {"userCache", "logs",       "ai",        "developer",
                           "leftovers", "largeFiles", "unusedApps"};
    for (int i = 0; i < 7; ++i)
        QTest::newRow(names[i]) << QString::fromLatin1(names[i]) << i;
    QTest::newRow("capital L") << u"LargeFiles"_s << -1;
    QTest::newRow("upper case") << u"LOGS"_s << -1;
    QTest::newRow("padded") << u" logs"_s << -1;
    QTest::newRow("empty") << QString() << -1;
    QTest::newRow("page name") << u"cleanup"_s << -1;
}

void CleanItemTest::rawValues()
{
    QFETCH(QString, raw);
    QFETCH(int, ordinal);
    const auto category = cleanCategoryFromRaw(raw);
    if (ordinal < 0) {
        QVERIFY(!category.has_value());
        return;
    }
    QVERIFY(category.has_value());
    QCOMPARE(int(*category), ordinal);
    QCOMPARE(kAllCleanCategories[size_t(ordinal)], *category);
    QCOMPARE(rawValue(*category), raw);
}

void CleanItemTest::textsInBothLanguages()
{
    L10n::overrideForTesting(false);
    QCOMPARE(title(CleanCategory::logs), u"Logs & crash reports"_s);
    QCOMPARE(title(CleanCategory::unusedApps), u"Apps not opened for 6 months"_s);
    QVERIFY(note(CleanCategory::largeFiles).startsWith(u"Files over 500 MB"_s));
    L10n::overrideForTesting(true);
    QCOMPARE(title(CleanCategory::ai), u"AI 工具缓存 / 模型"_s);
    QCOMPARE(note(CleanCategory::developer), u"Xcode 编译产物和模拟器缓存。移到废纸篓。"_s);
    // Every category has its own title and note in each language.
    for (bool zh : {false, true}) {
        L10n::overrideForTesting(zh);
        QSet<QString> titles, notes;
        for (CleanCategory c : kAllCleanCategories) {
            titles.insert(title(c));
            notes.insert(note(c));
        }
        QCOMPARE(titles.size(), 7);
        QCOMPARE(notes.size(), 7);
    }
}

QTEST_GUILESS_MAIN(CleanItemTest)
#include "tst_cleanitem.moc"
