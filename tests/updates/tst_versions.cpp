#include "core/updates/Versions.h"

#include <QtTest>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

enum Relation { before = -1, same = 0, after = 1 };

struct OrderCase
{
    const char *tag;
    QString a;
    QString b;
    Relation relation;
};

// Each row is checked both ways round; the strings also feed the order-law checks.
const std::vector<OrderCase> &orderCases()
{
    static const std::vector<OrderCase> cases{
        {"1.9 < 1.10", u"1.9"_s, u"1.10"_s, before},
        {"trailing zero", u"1.2"_s, u"1.2.0"_s, same},
        {"many trailing zeros", u"1.2.0.0.0"_s, u"1.2"_s, same},
        {"leading zero", u"1.02"_s, u"1.2"_s, same},
        {"empty vs 0", QString(), u"0"_s, same},
        {"empty vs 0.0", QString(), u"0.0"_s, same},
        {"empty < 0.1", QString(), u"0.1"_s, before},
        {"letters separate", u"2.0"_s, u"2.0b3"_s, before},
        {"b3 < b10", u"2.0b3"_s, u"2.0b10"_s, before},
        {"suffix ignored", u"1.2.3-beta"_s, u"1.2.3"_s, same},
        {"leading letter", u"v1.2"_s, u"1.2"_s, same},
        {"build in parentheses", u"5.4 (1234)"_s, u"5.4 (1235)"_s, before},
        {"letters only < 1", u"abc"_s, u"1"_s, before},
        {"sign separates", u"1.-2"_s, u"1.2"_s, same},
        {"space separates", u"1 2"_s, u"1.2"_s, same},
        {"dated", u"2024.03.1"_s, u"2024.10"_s, before},
        {"deep tail", u"1.0.0.0.1"_s, u"1"_s, after},
        {"first piece rules", u"10"_s, u"9.99.99"_s, after},
        {"overflow is 0", u"99999999999999999999"_s, u"1"_s, before},
        {"overflow equals 0", u"99999999999999999999"_s, u"0"_s, same},
        {"just past max", u"9223372036854775808"_s, QString(), same},
        {"max", u"9223372036854775807"_s, u"9223372036854775806"_s, after},
        {"max beats short", u"9223372036854775807"_s, u"1.2"_s, after},
        {"fullwidth vs arabic-indic", u"\uFF11.\uFF12"_s, u"\u0663.\u0661"_s, same},
        {"fullwidth is zero", u"\uFF11.\uFF12"_s, u"0"_s, same},
        {"arabic-indic < 0.1", u"\u0663.\u0661"_s, u"0.1"_s, before},
        {"cjk one is 0", u"\u4E00"_s, u"0"_s, same},
        {"cjk one < 1", u"\u4E00"_s, u"1"_s, before},
        {"cjk one vs two", u"\u4E00"_s, u"\u4E8C"_s, same},
        {"cjk holds a place", u"1.\u4E00.2"_s, u"1.1"_s, before},
        {"combining mark", u"1\u0301"_s, u"1"_s, before},
        {"combining mark is 0", u"1\u0301"_s, u"0"_s, same},
        {"zwj joins digits", u"1\u200D2"_s, u"1.2"_s, before},
        {"astral digit holds a place", u"1.\U0001D7D9"_s, u"1.0"_s, same},
        {"superscript holds a place", u"1.\u00B2.5"_s, u"1.0.5"_s, same},
        {"superscript < digit", u"1.\u00B2"_s, u"1.2"_s, before},
    };
    return cases;
}

} // namespace

class VersionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parts_data();
    void parts();
    void order_data();
    void order();
    void orderLaws();
};

void VersionsTest::parts_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QList<qint64>>("expected");

    // Splitting
    QTest::newRow("empty") << QString() << QList<qint64>{};
    QTest::newRow("separators only") << u"..-_ ()"_s << QList<qint64>{};
    QTest::newRow("letters only") << u"abc"_s << QList<qint64>{};
    QTest::newRow("plain") << u"1.2.3"_s << QList<qint64>{1, 2, 3};
    QTest::newRow("doubled separator") << u"1..2"_s << QList<qint64>{1, 2};
    QTest::newRow("leading and trailing") << u".1.2."_s << QList<qint64>{1, 2};
    QTest::newRow("signs") << u"+1.-2"_s << QList<qint64>{1, 2};
    QTest::newRow("letters split") << u"2.0b3"_s << QList<qint64>{2, 0, 3};
    QTest::newRow("build number") << u"5.4 (1234)"_s << QList<qint64>{5, 4, 1234};
    QTest::newRow("whitespace") << u" 1\t2\r\n3 "_s << QList<qint64>{1, 2, 3};
    QTest::newRow("underscore") << u"1_2"_s << QList<qint64>{1, 2};
    QTest::newRow("cjk text separates") << u"\u7248\u672C3"_s << QList<qint64>{3};

    // Values
    QTest::newRow("leading zeros") << u"0009"_s << QList<qint64>{9};
    QTest::newRow("long leading zeros") << u"000000000000000000000000000042"_s << QList<qint64>{42};
    QTest::newRow("max") << u"9223372036854775807"_s << QList<qint64>{9223372036854775807};
    QTest::newRow("max + 1") << u"9223372036854775808"_s << QList<qint64>{0};
    QTest::newRow("twenty nines") << u"99999999999999999999"_s << QList<qint64>{0};
    QTest::newRow("overflow stays in place")
        << u"1.18446744073709551617.3"_s << QList<qint64>{1, 0, 3};

    // Numerals that are not ASCII digits hold a place as 0
    QTest::newRow("fullwidth") << u"\uFF11.\uFF12"_s << QList<qint64>{0, 0};
    QTest::newRow("fullwidth run") << u"\uFF11\uFF12"_s << QList<qint64>{0};
    QTest::newRow("arabic-indic") << u"\u0663.\u0661"_s << QList<qint64>{0, 0};
    QTest::newRow("cjk one") << u"\u4E00"_s << QList<qint64>{0};
    QTest::newRow("cjk two then digit") << u"\u4E8C.3"_s << QList<qint64>{0, 3};
    QTest::newRow("digit then cjk") << u"1\u4E00"_s << QList<qint64>{0};
    QTest::newRow("cjk between") << u"1.\u4E00.2"_s << QList<qint64>{1, 0, 2};
    QTest::newRow("superscript") << u"1.\u00B2"_s << QList<qint64>{1, 0};
    QTest::newRow("fraction") << u"\u00BD"_s << QList<qint64>{0};
    QTest::newRow("roman numeral") << u"\u216B.1"_s << QList<qint64>{0, 1};
    QTest::newRow("circled") << u"\u2460"_s << QList<qint64>{0};
    QTest::newRow("astral digit") << u"1.\U0001D7D9"_s << QList<qint64>{1, 0};
    QTest::newRow("mixed with ascii") << u"1\u0661"_s << QList<qint64>{0};

    // Grapheme clusters: the first code point decides, the whole cluster joins the piece
    QTest::newRow("digit + combining mark") << u"1\u0301.2"_s << QList<qint64>{0, 2};
    QTest::newRow("trailing combining mark") << u"1.2\u0301"_s << QList<qint64>{1, 0};
    QTest::newRow("keycap") << u"1\uFE0F\u20E3.5"_s << QList<qint64>{0, 5};
    QTest::newRow("zwj inside a run") << u"1\u200D2"_s << QList<qint64>{0};
    QTest::newRow("mark on a letter") << u"a\u03011"_s << QList<qint64>{1};
    QTest::newRow("lone mark") << u"\u0301"_s << QList<qint64>{};
    QTest::newRow("prepend swallows a digit") << u"1.\u06002"_s << QList<qint64>{1};
}

void VersionsTest::parts()
{
    QFETCH(QString, version);
    QFETCH(QList<qint64>, expected);
    QCOMPARE(Versions::versionParts(version), expected);
}

void VersionsTest::order_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("relation");
    for (const OrderCase &c : orderCases())
        QTest::newRow(c.tag) << c.a << c.b << int(c.relation);
}

void VersionsTest::order()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, relation);
    QCOMPARE(Versions::versionLess(a, b), relation == before);
    QCOMPARE(Versions::versionLess(b, a), relation == after);
}

// A sort over these strings relies on a strict weak order; check it on every pair and
// triple of the table rather than trusting the row-by-row expectations alone.
void VersionsTest::orderLaws()
{
    QStringList versions;
    for (const OrderCase &c : orderCases())
        versions << c.a << c.b;
    versions.removeDuplicates();
    const auto less = [](const QString &x, const QString &y) {
        return Versions::versionLess(x, y);
    };
    const auto equivalent = [&](const QString &x, const QString &y) {
        return !less(x, y) && !less(y, x);
    };
    for (const QString &x : std::as_const(versions)) {
        QVERIFY2(!less(x, x), qPrintable(x));
        for (const QString &y : std::as_const(versions)) {
            QVERIFY2(!(less(x, y) && less(y, x)), qPrintable(x + u" / "_s + y));
            for (const QString &z : std::as_const(versions)) {
                if (less(x, y) && less(y, z))
                    QVERIFY2(less(x, z), qPrintable(x + u" < "_s + y + u" < "_s + z));
                if (equivalent(x, y) && equivalent(y, z))
                    QVERIFY2(equivalent(x, z), qPrintable(x + u" ~ "_s + y + u" ~ "_s + z));
            }
        }
    }
}

QTEST_GUILESS_MAIN(VersionsTest)
#include "tst_versions.moc"
