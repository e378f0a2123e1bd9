#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "core/words/DiskWords.h"
#include "platform/ByteCountFormat.h"

#include <QtTest>

using namespace Qt::StringLiterals;

class TextTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void language()
    {
        for (const QStringList &zh : {QStringList{u"zh-Hant-TW"_s, u"en"_s}, {u"ZH_hans"_s}})
            QVERIFY2(L10n::isZhFor(zh), qPrintable(zh.join(u',')));
        // Only the first preference counts; "za" (Zhuang) is not Chinese.
        for (const QStringList &other : {QStringList{}, {u"en-GB"_s, u"zh"_s}, {u"za-CN"_s}})
            QVERIFY2(!L10n::isZhFor(other), qPrintable(other.join(u',')));
        // Core's own renderer: on macOS Fmt::bytes is the system's, in the system's language.
        QCOMPARE(Fmt::fileStyleBytes(0, true), u"零 KB"_s);
        QCOMPARE(Fmt::fileStyleBytes(0, false), u"Zero KB"_s);
        for (const bool zh : {true, false}) {
            L10n::overrideForTesting(zh);
            if (!Platform::systemByteCountText(0))
                QCOMPARE(Fmt::bytes(0), Fmt::fileStyleBytes(0, zh));
        }
        QSet<QString> slices; // each of the overview's slices has a name of its own
        for (const char *id : {"documents", "applications", "desktop", "downloads", "other"})
            slices.insert(Words::diskCategory(QString::fromLatin1(id)));
        QVERIFY(slices.size() == 5 && !slices.contains(Words::diskCategory(u"free"_s)));
    }

    void bytes_data()
    {
        QTest::addColumn<qint64>("count");
        QTest::addColumn<QString>("text");
        const auto row = [](qint64 count, const char *text) {
            QTest::addRow("%lld", count) << count << QString::fromLatin1(text);
        };
        row(1, "1 KB"); // something never reads as nothing
        row(1'500, "2 KB");
        row(999'499, "999 KB");
        row(999'500, "1 MB"); // never "1,000 KB"
        row(999'950'000, "1 GB");
        row(1'005'000'000, "1.01 GB");
        row(1'200'000'000, "1.2 GB");
        row(1'500'000'000'000'000, "1,500 TB");
        row(std::numeric_limits<qint64>::max(), "9,223,372.04 TB");
        row(std::numeric_limits<qint64>::min(), "-9,223,372.04 TB");
    }
    void bytes()
    {
        QFETCH(qint64, count);
        QFETCH(QString, text);
        QCOMPARE(Fmt::fileStyleBytes(count, false), text);
    }

    void rate_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("text");
        constexpr double MiB = 1048576.0;
        // Exact ties go to even, like printf; values just off a tie go their own way.
        QTest::newRow("2.5") << 2.5 << u"2 B/s"_s;
        QTest::newRow("-3.0") << -3.0 << u"-3 B/s"_s;
        QTest::newRow("1023.6") << 1023.6 << u"1024 B/s"_s;
        QTest::newRow("1024.0") << 1024.0 << u"1 KB/s"_s;
        QTest::newRow("MiB - 1") << MiB - 1 << u"1024 KB/s"_s;
        QTest::newRow("MiB") << MiB << u"1.0 MB/s"_s;
        QTest::newRow("0.05 * MiB * 21") << 0.05 * MiB * 21 << u"1.1 MB/s"_s;
        QTest::newRow("10.04 * MiB") << 10.04 * MiB << u"10.0 MB/s"_s;
    }
    void rate()
    {
        QFETCH(double, value);
        QFETCH(QString, text);
        QCOMPARE(Fmt::rate(value), text);
    }

    // Standardized, last component, extension, parent folder.
    void paths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("parts");
        const auto row = [](const QString &path, const QStringList &parts) {
            QTest::addRow("%s", qPrintable(path)) << path << parts;
        };
        row(u"/a///x.vmdk//"_s, {u"/a/x.vmdk"_s, u"x.vmdk"_s, u"vmdk"_s, u"/a"_s});
        row(u"/a/b.tar.gz"_s, {u"/a/b.tar.gz"_s, u"b.tar.gz"_s, u"gz"_s, u"/a"_s});
        row(u"/a/./README/."_s, {u"/a/README"_s, u"."_s, u""_s, u"/a/./README"_s});
        row(u"/Apps/Sub/../X.app"_s, {u"/Apps/X.app"_s, u"X.app"_s, u"app"_s, u"/Apps/Sub/.."_s});
        row(u"/a/../../../b/.."_s, {u"/"_s, u".."_s, u""_s, u"/a/../../../b"_s});
        row(u"/Tool.app"_s, {u"/Tool.app"_s, u"Tool.app"_s, u"app"_s, u"/"_s});
        row(u"/"_s, {u"/"_s, u""_s, u""_s, u"/"_s});
        row(u"rel.txt"_s, {QDir::currentPath() + u"/rel.txt"_s, u"rel.txt"_s, u"txt"_s, u"."_s});
    }
    void paths()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, parts);
        QCOMPARE((QStringList{PathText::standardized(path), PathText::lastComponent(path),
                              PathText::extension(path), PathText::parentFolder(path)}),
                 parts);
    }

    void escaped()
    {
        QCOMPARE(PathText::escaped(u"plain ~ name"_s), u"plain ~ name"_s);
        QCOMPARE(PathText::escaped(u"a\nb\tc\\d"_s), u"a\\nb\\tc\\\\d"_s);
        QCOMPARE(PathText::escaped(QChar(0) + u"\x07\x1f\x7f"_s), u"\\x00\\x07\\x1F\\x7F"_s);
    }
};

QTEST_GUILESS_MAIN(TextTest)
#include "tst_text.moc"
