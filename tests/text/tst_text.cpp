#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"

#include <QtTest>
#include <limits>

using namespace Qt::StringLiterals;

class TextTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void languageRule_data();
    void languageRule();
    void bytes_data();
    void bytes();
    void bytesFollowsLanguage();
    void rate_data();
    void rate();
    void standardized_data();
    void standardized();
    void components_data();
    void components();
};

void TextTest::languageRule_data()
{
    QTest::addColumn<QStringList>("languages");
    QTest::addColumn<bool>("zh");
    QTest::newRow("traditional first") << QStringList{u"zh-Hant-TW"_s, u"en"_s} << true;
    QTest::newRow("english first") << QStringList{u"en-GB"_s, u"zh-Hans"_s} << false;
    QTest::newRow("empty") << QStringList{} << false;
    QTest::newRow("upper case") << QStringList{u"ZH-hans"_s} << true;
    QTest::newRow("underscore form") << QStringList{u"zh_HK"_s} << true;
    QTest::newRow("bare zh") << QStringList{u"zh"_s} << true;
    QTest::newRow("Zhuang is not zh") << QStringList{u"za-CN"_s, u"zh"_s} << false;
    QTest::newRow("empty first entry") << QStringList{QString(), u"zh"_s} << false;
}

void TextTest::languageRule()
{
    QFETCH(QStringList, languages);
    QFETCH(bool, zh);
    QCOMPARE(L10n::isZhFor(languages), zh);
}

void TextTest::bytes_data()
{
    QTest::addColumn<qint64>("count");
    QTest::addColumn<QString>("en");
    QTest::addColumn<QString>("zh");
    const auto row = [](const char *name, qint64 count, const char16_t *en, const char16_t *zh) {
        QTest::newRow(name) << count << QString::fromUtf16(en) << QString::fromUtf16(zh);
    };
    row("zero", 0, u"Zero KB", u"零 KB");
    row("one byte", 1, u"1 KB", u"1 KB");
    row("999 bytes", 999, u"1 KB", u"1 KB");
    row("1000", 1000, u"1 KB", u"1 KB");
    row("1499", 1499, u"1 KB", u"1 KB");
    row("half KB rounds up", 1500, u"2 KB", u"2 KB");
    row("5500", 5500, u"6 KB", u"6 KB");
    row("999499", 999'499, u"999 KB", u"999 KB");
    row("999500 becomes MB", 999'500, u"1 MB", u"1 MB");
    row("999999", 999'999, u"1 MB", u"1 MB");
    row("1.5 MB", 1'500'000, u"1.5 MB", u"1.5 MB");
    row("2 MB", 2'000'000, u"2 MB", u"2 MB");
    row("MB half", 1'050'000, u"1.1 MB", u"1.1 MB");
    row("MB below half", 1'049'999, u"1 MB", u"1 MB");
    row("999.9 MB", 999'900'000, u"999.9 MB", u"999.9 MB");
    row("999.95 MB becomes GB", 999'950'000, u"1 GB", u"1 GB");
    row("1.23 GB", 1'234'567'890, u"1.23 GB", u"1.23 GB");
    row("GB one digit", 1'200'000'000, u"1.2 GB", u"1.2 GB");
    row("GB small fraction", 1'005'000'000, u"1.01 GB", u"1.01 GB");
    row("GB zero fraction", 5'004'999'999, u"5 GB", u"5 GB");
    row("TB", 2'345'678'901'234, u"2.35 TB", u"2.35 TB");
    row("PB stays TB", 1'500'000'000'000'000, u"1,500 TB", u"1,500 TB");
    row("max", std::numeric_limits<qint64>::max(), u"9,223,372.04 TB", u"9,223,372.04 TB");
    row("negative", -1'500'000, u"-1.5 MB", u"-1.5 MB");
    row("negative small", -10, u"-1 KB", u"-1 KB");
    row("min", std::numeric_limits<qint64>::min(), u"-9,223,372.04 TB", u"-9,223,372.04 TB");
}

void TextTest::bytes()
{
    QFETCH(qint64, count);
    QFETCH(QString, en);
    QFETCH(QString, zh);
    QCOMPARE(Fmt::fileStyleBytes(count, false), en);
    QCOMPARE(Fmt::fileStyleBytes(count, true), zh);
}

void TextTest::bytesFollowsLanguage()
{
    L10n::overrideForTesting(true);
    QCOMPARE(Fmt::bytes(0), u"零 KB"_s);
    L10n::overrideForTesting(false);
    QCOMPARE(Fmt::bytes(0), u"Zero KB"_s);
    QCOMPARE(Fmt::bytes(1'234'567'890), u"1.23 GB"_s);
}

void TextTest::rate_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << 0.0 << u"0 B/s"_s;
    QTest::newRow("just below 1024 rounds up in bytes") << 1023.6 << u"1024 B/s"_s;
    QTest::newRow("exactly 1024") << 1024.0 << u"1 KB/s"_s;
    QTest::newRow("1536") << 1536.0 << u"2 KB/s"_s;
    QTest::newRow("1048575") << 1048575.0 << u"1024 KB/s"_s;
    QTest::newRow("exactly 1 MiB") << 1048576.0 << u"1.0 MB/s"_s;
    QTest::newRow("5000000") << 5000000.0 << u"4.8 MB/s"_s;
    QTest::newRow("large") << 1073741824.0 << u"1024.0 MB/s"_s;
    // Exact ties round to even, like printf; values just off a tie go their own way.
    QTest::newRow("tie down to even") << 2.5 << u"2 B/s"_s;
    QTest::newRow("tie up to even") << 3.5 << u"4 B/s"_s;
    QTest::newRow("KB tie") << 2560.0 << u"2 KB/s"_s;
    QTest::newRow("MB tenth tie") << 1.25 * 1048576.0 << u"1.2 MB/s"_s;
    QTest::newRow("MB tenth tie odd") << 1.75 * 1048576.0 << u"1.8 MB/s"_s;
    QTest::newRow("above a tie in binary") << 0.05 * 1048576.0 * 21 << u"1.1 MB/s"_s;
    QTest::newRow("fraction below a tenth") << 1048576.0 * 10.04 << u"10.0 MB/s"_s;
    QTest::newRow("negative") << -3.0 << u"-3 B/s"_s;
}

void TextTest::rate()
{
    QFETCH(double, value);
    QFETCH(QString, text);
    QCOMPARE(Fmt::rate(value), text);
}

void TextTest::standardized_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("standard");
    QTest::newRow("plain") << u"/a/b"_s << u"/a/b"_s;
    QTest::newRow("trailing slash") << u"/a/b/"_s << u"/a/b"_s;
    QTest::newRow("many slashes") << u"//a///b//"_s << u"/a/b"_s;
    QTest::newRow("dot") << u"/a/./b/."_s << u"/a/b"_s;
    QTest::newRow("dotdot") << u"/a/Caches/../Mail/x"_s << u"/a/Mail/x"_s;
    QTest::newRow("dotdot at root") << u"/../x"_s << u"/x"_s;
    QTest::newRow("many dotdots") << u"/a/../../../b/.."_s << u"/"_s;
    QTest::newRow("root") << u"/"_s << u"/"_s;
    QTest::newRow("dots in names kept") << u"/a/..b/c.."_s << u"/a/..b/c.."_s;
}

void TextTest::standardized()
{
    QFETCH(QString, path);
    QFETCH(QString, standard);
    QCOMPARE(PathText::standardized(path), standard);
}

void TextTest::components_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("last");
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QString>("parent");
    QTest::newRow("file") << u"/a/b.txt"_s << u"b.txt"_s << u"txt"_s << u"/a"_s;
    QTest::newRow("folder slash") << u"/a/x.vmdk/"_s << u"x.vmdk"_s << u"vmdk"_s << u"/a"_s;
    QTest::newRow("double ext") << u"/a/b.tar.gz"_s << u"b.tar.gz"_s << u"gz"_s << u"/a"_s;
    QTest::newRow("no ext") << u"/a/README"_s << u"README"_s << QString() << u"/a"_s;
    QTest::newRow("upper") << u"/a/Disk.VMDK"_s << u"Disk.VMDK"_s << u"VMDK"_s << u"/a"_s;
    QTest::newRow("top level") << u"/Tool.app"_s << u"Tool.app"_s << u"app"_s << u"/"_s;
    QTest::newRow("double slash parent")
        << u"/Applications//X.app"_s << u"X.app"_s << u"app"_s << u"/Applications"_s;
    QTest::newRow("dot segments not resolved")
        << u"/Applications/Sub/../X.app"_s << u"X.app"_s << u"app"_s << u"/Applications/Sub/.."_s;
}

void TextTest::components()
{
    QFETCH(QString, path);
    QFETCH(QString, last);
    QFETCH(QString, extension);
    QFETCH(QString, parent);
    QCOMPARE(PathText::lastComponent(path), last);
    QCOMPARE(PathText::extension(path), extension);
    QCOMPARE(PathText::parentFolder(path), parent);
}

QTEST_GUILESS_MAIN(TextTest)
#include "tst_text.moc"
