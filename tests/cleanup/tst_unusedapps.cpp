#include "cleanup/BundleFixtures.h"
#include "cleanup/ScanFixtures.h"
#include "common/TestHome.h"
#include "support/FakeSystem.h"

#include "core/AppIdentity.h"
#include "core/cleanup/CleanScanners.h"
#include "core/text/L10n.h"
#include "platform/DateText.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace ScanFixtures;

namespace {

const QDateTime kNow(QDate(2025, 6, 1), QTime(12, 0, 0), Qt::UTC);
const QDateTime kAncient(QDate(2001, 1, 1), QTime(0, 0, 0), Qt::UTC);

QDateTime daysAgo(qint64 days, qint64 extraSeconds = 0)
{
    return kNow.addSecs(-days * 86400 - extraSeconds);
}

QString spotlightText(const QDateTime &when)
{
    return when.toUTC().toString(u"yyyy-MM-dd HH:mm:ss"_s) + u" +0000"_s;
}

bool setAccessDate(const QString &path, const QDateTime &when)
{
    const timespec times[2] = {{time_t(when.toSecsSinceEpoch()), 0}, {0, UTIME_OMIT}};
    return utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

QDateTime accessDate(const QString &path)
{
    struct stat st;
    if (stat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    return QDateTime::fromSecsSinceEpoch(st.st_atim.tv_sec, Qt::UTC);
}

} // namespace

class UnusedAppsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void lastUsed_data();
    void lastUsed();
    void withoutSpotlight();
    void cutoff_data();
    void cutoff();
    void candidates();

private:
    // A bundle whose executable was last read at `accessed` (none: no executable file) and
    // for which the fake mdls prints `spotlight` (none: nothing). Returns its allocated size.
    qint64 makeApp(const QString &bundle, const QString &id, const QDateTime &accessed,
                   const QString &spotlight = u"(null)"_s, qint64 payload = 0);
    void setSpotlight(const QString &bundle, const QString &text);
    FakeSystem &services();

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<FakeSystem> m_system;
};

void UnusedAppsTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    L10n::overrideForTesting(false);
}

void UnusedAppsTest::cleanup()
{
    clearHome(m_home->path());
    L10n::overrideForTesting(false);
}

FakeSystem &UnusedAppsTest::services()
{
    // Spotlight answers by the bundle's folder name, as written by setSpotlight.
    m_system = std::make_unique<FakeSystem>(m_home->where());
    m_system->clock = kNow;
    m_system->tool = [this](const QString &, const QStringList &args) -> std::optional<QString> {
        QFile answer(m_home->file(u"answers/"_s) + QFileInfo(args.value(3)).fileName());
        if (!answer.open(QIODevice::ReadOnly))
            return QString();
        return QString::fromUtf8(answer.readAll());
    };
    return *m_system;
}

void UnusedAppsTest::setSpotlight(const QString &bundle, const QString &text)
{
    QVERIFY(makeDir(m_home->file(u"answers"_s)));
    QFile answer(m_home->file(u"answers/"_s) + QFileInfo(bundle).fileName());
    QVERIFY(answer.open(QIODevice::WriteOnly));
    answer.write(text.toUtf8());
}

qint64 UnusedAppsTest::makeApp(const QString &bundle, const QString &id, const QDateTime &accessed,
                               const QString &spotlight, qint64 payload)
{
    QVariantMap info{{u"CFBundleExecutable"_s, u"Run"_s}};
    if (!id.isEmpty())
        info.insert(u"CFBundleIdentifier"_s, id);
    if (!BundleFixtures::writeInfoPlist(bundle, info, true))
        return -1;
    qint64 bytes = allocated(bundle + u"/Contents/Info.plist"_s);
    if (accessed.isValid()) {
        const QString exe = bundle + u"/Contents/MacOS/Run"_s;
        bytes += writeFile(exe, 5'000);
        if (!setAccessDate(exe, accessed))
            return -1;
    }
    if (payload > 0)
        bytes += writeFile(bundle + u"/Contents/Resources/.hidden/data"_s, payload);
    setSpotlight(bundle, spotlight);
    return bytes;
}

void UnusedAppsTest::lastUsed_data()
{
    QTest::addColumn<QString>("spotlight");
    QTest::addColumn<bool>("executableKey");
    QTest::addColumn<QDateTime>("accessed");
    QTest::addColumn<QDateTime>("expected");
    const QDateTime none;
    const QDateTime march(QDate(2024, 3, 5), QTime(14, 22, 10), Qt::UTC);

    QTest::newRow("null, read yesterday") << u"(null)"_s << true << daysAgo(1) << daysAgo(1);
    QTest::newRow("old spotlight, recent access")
        << spotlightText(daysAgo(730)) << true << daysAgo(10) << daysAgo(10);
    QTest::newRow("recent spotlight, old access")
        << spotlightText(daysAgo(5)) << true << daysAgo(300) << daysAgo(5);
    QTest::newRow("equal") << spotlightText(daysAgo(7)) << true << daysAgo(7) << daysAgo(7);
    QTest::newRow("no executable key: spotlight only")
        << spotlightText(daysAgo(400)) << false << daysAgo(1) << daysAgo(400);
    QTest::newRow("neither") << u"(null)"_s << true << none << none;
    QTest::newRow("empty output") << QString() << true << none << none;
    QTest::newRow("not a date") << u"yesterday"_s << true << none << none;
    QTest::newRow("impossible day") << u"2024-02-30 10:00:00 +0000"_s << true << none << none;
    QTest::newRow("missing zone") << u"2024-03-05 14:22:10"_s << true << none << none;
    QTest::newRow("utc") << u"2024-03-05 14:22:10 +0000"_s << true << none << march;
    QTest::newRow("ahead of utc") << u"2024-03-05 16:52:10 +0230"_s << true << none << march;
    QTest::newRow("behind utc") << u"2024-03-05 09:22:10 -0500"_s << true << none << march;
    QTest::newRow("white space around")
        << u" \n2024-03-05 14:22:10 +0000\n\n"_s << true << none << march;
}

void UnusedAppsTest::lastUsed()
{
    QFETCH(QString, spotlight);
    QFETCH(bool, executableKey);
    QFETCH(QDateTime, accessed);
    QFETCH(QDateTime, expected);
    const QString bundle = m_home->file(u"Applications/Some App.app"_s);
    QVERIFY(makeApp(bundle, u"com.example.Some"_s, accessed, spotlight) > 0);
    if (!executableKey)
        QVERIFY(
            BundleFixtures::writeInfoPlist(bundle, {{u"CFBundleIdentifier"_s, u"x.y.z"_s}}, false));

    const std::optional<QDateTime> used = Cleaner::lastUsed(bundle, services());
    QCOMPARE(used.has_value(), expected.isValid());
    if (used)
        QCOMPARE(used->toUTC(), expected);

    QCOMPARE(m_system->asked(),
             QStringList{u"/usr/bin/mdls -name kMDItemLastUsedDate -raw "_s + bundle});
}

void UnusedAppsTest::withoutSpotlight()
{
    const QString bundle = m_home->file(u"Applications/Tool.app"_s);
    QVERIFY(makeApp(bundle, u"com.example.Tool"_s, daysAgo(30), spotlightText(daysAgo(2))) > 0);
    FakeSystem &noTool = services();
    noTool.tool = nullptr; // no Spotlight on this system
    QCOMPARE(Cleaner::lastUsed(bundle, noTool), std::optional<QDateTime>(daysAgo(30)));
}

void UnusedAppsTest::cutoff_data()
{
    QTest::addColumn<QDateTime>("used");
    QTest::addColumn<bool>("fromSpotlight");
    QTest::addColumn<bool>("listed");
    for (const bool spotlight : {true, false}) {
        const char *source = spotlight ? "spotlight" : "access";
        QTest::addRow("%s 181 days", source) << daysAgo(181) << spotlight << true;
        QTest::addRow("%s 179 days", source) << daysAgo(179) << spotlight << false;
        QTest::addRow("%s exactly at cutoff", source) << daysAgo(180) << spotlight << false;
        QTest::addRow("%s one second before", source) << daysAgo(180, 1) << spotlight << true;
    }
}

void UnusedAppsTest::cutoff()
{
    QFETCH(QDateTime, used);
    QFETCH(bool, fromSpotlight);
    QFETCH(bool, listed);
    const QString folder = m_home->file(u"Applications"_s);
    QVERIFY(makeApp(folder + u"/Old.app"_s, u"com.example.Old"_s, fromSpotlight ? kAncient : used,
                    fromSpotlight ? spotlightText(used) : u"(null)"_s) > 0);
    QCOMPARE(Cleaner::unusedApps(180, {folder}, services()).size(), listed ? 1 : 0);
}

void UnusedAppsTest::candidates()
{
    const QString home = m_home->file(u"Applications"_s);
    const QString root = m_home->file(u"Root/Applications"_s);
    const QString notOpened = spotlightText(daysAgo(400));
    const qint64 oldBytes =
        makeApp(home + u"/Old.app"_s, u"com.example.Old"_s, daysAgo(300), notOpened, 20'000);
    const qint64 bigBytes =
        makeApp(root + u"/Big.app"_s, u"com.example.Big"_s, daysAgo(500), u"(null)"_s, 200'000);
    QVERIFY(oldBytes > 0 && bigBytes > 0);
    QVERIFY(makeApp(root + u"/Safari.app"_s, u"com.apple.Safari"_s, kAncient) > 0);
    QVERIFY(makeApp(root + u"/Quorvel.app"_s, QString::fromLatin1(kQuorvelBundleIdentifier),
                    kAncient) > 0);
    QVERIFY(makeApp(root + u"/Running.app"_s, u"com.example.Running"_s, kAncient) > 0);
    QVERIFY(makeApp(root + u"/Utilities/Deep.app"_s, u"com.example.Deep"_s, kAncient) > 0);
    QVERIFY(makeApp(root + u"/NoID.app"_s, QString(), kAncient) > 0);
    QVERIFY(makeApp(root + u"/Unknown.app"_s, u"com.example.Unknown"_s, QDateTime()) > 0);
    QVERIFY(makeApp(root + u"/Bundle.APP"_s, u"com.example.Upper"_s, kAncient) > 0);
    QVERIFY(makeApp(root + u"/Plain"_s, u"com.example.Plain"_s, kAncient) > 0);
    const QString exe = home + u"/Old.app/Contents/MacOS/Run"_s;

    FakeSystem &fakes = services();
    fakes.running = QList<Platform::RunningApplication>{
        {u"com.example.Running"_s, root + u"/../Applications/./Running.app/"_s}};
    QList<CleanItem> items = Cleaner::unusedApps(180, {root, home}, fakes);

    QCOMPARE(items.size(), 2);
    const CleanItem &big = items.at(0);
    QCOMPARE(big.path, root + u"/Big.app"_s);
    QCOMPARE(big.title, u"Big"_s);
    QCOMPARE(big.bytes, bigBytes);
    QCOMPARE(big.subtitle,
             u"Last opened "_s + Platform::mediumDate(daysAgo(500)) + u" · "_s + root);
    QCOMPARE(big.category, CleanCategory::unusedApps);
    QCOMPARE(big.method, CleanMethod::trash);
    const CleanItem &old = items.at(1);
    QCOMPARE(old.title, u"Old"_s);
    QCOMPARE(old.bytes, oldBytes);
    // The later of the two dates is the one shown.
    QCOMPARE(old.subtitle,
             u"Last opened "_s + Platform::mediumDate(daysAgo(300)) + u" · "_s + home);
    // Judging and measuring the app must not count as using it.
    QCOMPARE(accessDate(exe), daysAgo(300));

    L10n::overrideForTesting(true);
    items = Cleaner::unusedApps(180, {root, home}, fakes);
    QCOMPARE(items.size(), 2);
    QCOMPARE(items.at(1).subtitle,
             u"最后打开 "_s + Platform::mediumDate(daysAgo(300)) + u" · "_s + home);
}

QTEST_GUILESS_MAIN(UnusedAppsTest)
#include "tst_unusedapps.moc"
