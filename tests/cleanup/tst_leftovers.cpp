#include "cleanup/BundleFixtures.h"
#include "cleanup/ScanFixtures.h"
#include "common/TestHome.h"
#include "core/system/RealSystem.h"
#include "support/FakeSystem.h"

#include "core/cleanup/CleanScanners.h"
#include "core/cleanup/LeftoverRules.h"
#include "core/text/L10n.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace ScanFixtures;
using BundleFixtures::writeApp;

class LeftoversTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void vendorPrefix_data();
    void vendorPrefix();
    void owned_data();
    void owned();
    void installedBundleIDs();
    void spotlightToolNotExecutable();
    void leftovers();
    void installedAppsOwnTheirFolders();

private:
    // No running applications and no Spotlight until a test says otherwise.
    FakeSystem &noServices()
    {
        m_system = std::make_unique<FakeSystem>(m_home->where());
        return *m_system;
    }
    // Spotlight's query answers `found`.
    static void spotlightFinds(FakeSystem &system, const QString &found)
    {
        system.tool = [found](const QString &, const QStringList &) {
            return std::optional<QString>(found);
        };
    }
    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<FakeSystem> m_system;
};

void LeftoversTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    L10n::overrideForTesting(false);
}

void LeftoversTest::cleanup()
{
    clearHome(m_home->path());
    L10n::overrideForTesting(false);
}

void LeftoversTest::vendorPrefix_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("vendor");
    QTest::newRow("three parts") << u"com.example.Editor"_s << u"com.example"_s;
    QTest::newRow("upper case") << u"COM.Example"_s << u"com.example"_s;
    QTest::newRow("one part") << u"Single"_s << u"single"_s;
    QTest::newRow("empty parts dropped") << u"..com..example.x"_s << u"com.example"_s;
    QTest::newRow("one part with dots kept whole") << u".Solo."_s << u".solo."_s;
    QTest::newRow("empty") << QString() << QString();
}

void LeftoversTest::vendorPrefix()
{
    QFETCH(QString, id);
    QFETCH(QString, vendor);
    QCOMPARE(Cleaner::vendorPrefix(id), vendor);
}

void LeftoversTest::owned_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("installed");
    QTest::addColumn<bool>("owned");
    const QStringList editor{u"com.example.Editor"_s};

    QTest::newRow("unknown") << u"com.example.Editor"_s << QStringList{} << false;
    QTest::newRow("installed") << u"com.example.Editor"_s << editor << true;
    QTest::newRow("same vendor") << u"com.example.Editor"_s << QStringList{u"com.example.Other"_s}
                                 << true;
    QTest::newRow("other vendor") << u"com.example.Editor"_s << QStringList{u"org.example.Editor"_s}
                                  << false;
    QTest::newRow("ids compared lower-cased")
        << u"com.example.editor"_s << QStringList{u"com.Example.Editor"_s} << true;
    QTest::newRow("vendor compared lower-cased")
        << u"COM.EXAMPLE.Viewer"_s << QStringList{u"com.Example.Editor"_s} << true;
    // A one-part id has itself as vendor, so only the companion rule can claim these.
    QTest::newRow("companion of an id")
        << u"editor.plugin.extra"_s << QStringList{u"Editor"_s} << true;
    QTest::newRow("companion needs the dot")
        << u"editorx.plugin.extra"_s << QStringList{u"Editor"_s} << false;

    QTest::newRow("team prefix") << u"ABCDE12345.com.example.Editor"_s << editor << true;
    QTest::newRow("team prefix unknown app") << u"ABCDE12345.com.gone.App"_s << editor << false;
    QTest::newRow("team prefix is upper case")
        << u"abcde12345.com.example.Editor"_s << editor << false;
    QTest::newRow("team prefix has ten characters")
        << u"ABCDE1234.com.example.Editor"_s << editor << false;
    QTest::newRow("group companion") << u"group.com.example.Editor.shared"_s << editor << true;
    QTest::newRow("groups") << u"groups.com.example.Editor"_s << editor << true;
    QTest::newRow("systemgroup") << u"systemgroup.com.example.Editor"_s << editor << true;
    QTest::newRow("team then group") << u"ABCDE12345.group.com.example.Editor"_s << editor << true;
    QTest::newRow("group then team needs a second pass")
        << u"group.ABCDE12345.com.example.Editor"_s << editor << true;
    QTest::newRow("group prefix is case-sensitive")
        << u"Group.com.example.Editor"_s << editor << false;

    QTest::newRow("one part") << u"Homebrew"_s << QStringList{} << true;
    QTest::newRow("two parts") << u"com.example"_s << QStringList{} << true;
    QTest::newRow("empty parts do not count") << u"com..example."_s << QStringList{} << true;
    QTest::newRow("team prefix then two parts")
        << u"ABCDE12345.com.example"_s << QStringList{} << true;

    QTest::newRow("apple") << u"com.apple.Safari"_s << QStringList{} << true;
    QTest::newRow("apple short form") << u"apple.photos.cache"_s << QStringList{} << true;
    QTest::newRow("apple is case-sensitive") << u"Com.Apple.Safari"_s << QStringList{} << false;
    QTest::newRow("apple in a group") << u"group.com.apple.notes"_s << QStringList{} << true;
    QTest::newRow("applesauce") << u"com.applesauce.Jar"_s << QStringList{} << false;

    const QStringList always{u"org.swift.swiftpm"_s,
                             u"org.cups.PrintingPrefs"_s,
                             u"is.workflow.my.shortcuts"_s,
                             u"io.macfuse.fs.x"_s,
                             u"io.macfusebox.a.b"_s,
                             u"com.amazon.dcv.viewer"_s,
                             u"org.mozilla.firefox"_s,
                             u"com.google.Keystone.Agent"_s,
                             u"com.Microsoft.AutoUpdate.fba"_s,
                             u"ABCDE12345.org.Mozilla.x"_s};
    for (const QString &name : always)
        QTest::addRow("always %s", qPrintable(name)) << name << QStringList{} << true;
    QTest::newRow("always-owned needs the whole prefix")
        << u"org.swiftx.tool.cache"_s << QStringList{} << false;
}

void LeftoversTest::owned()
{
    QFETCH(QString, name);
    QFETCH(QStringList, installed);
    QFETCH(bool, owned);
    const Cleaner::KnownApps known =
        Cleaner::KnownApps::from(QSet<QString>(installed.cbegin(), installed.cend()));
    QCOMPARE(Cleaner::owned(name, known), owned);
}

void LeftoversTest::installedBundleIDs()
{
    const QString apps = m_home->file(u"Apps"_s);
    QVERIFY(writeApp(apps + u"/Xml.app"_s, u"org.one.Xml"_s));
    QVERIFY(writeApp(apps + u"/Binary.app"_s, u"org.two.Binary"_s, true));
    QVERIFY(writeApp(apps + u"/Suite/Inner.app"_s, u"org.three.Inner"_s));
    QVERIFY(writeApp(apps + u"/Suite/Deeper/Deep.app"_s, u"org.four.Deep"_s));
    QVERIFY(writeApp(apps + u"/NotAnApp/Contents/x.app"_s, u"org.five.Nested"_s));
    QVERIFY(BundleFixtures::writeInfoPlist(apps + u"/Number.app"_s, {{u"CFBundleIdentifier"_s, 42}},
                                           true));
    QVERIFY(makeDir(apps + u"/Broken.app"_s));
    QVERIFY(writeFile(apps + u"/notes.txt"_s, 100) > 0);
    const QString utilities = m_home->file(u"Utilities"_s);
    QVERIFY(writeApp(utilities + u"/Tool.app"_s, u"Org.Six.Tool"_s));
    QVERIFY(writeApp(m_home->file(u"Elsewhere/Found.app"_s), u"org.seven.Found"_s, true));

    FakeSystem &services = noServices();
    spotlightFinds(services,
                   m_home->file(u"Elsewhere/Found.app"_s) + u"\n\n"_s + apps + u"/Xml.app"_s);
    services.running = QList<Platform::RunningApplication>{
        {u"org.eight.Running"_s, u"/nowhere/Running.app"_s}, {QString(), u"/x/NoID.app"_s}};
    const QSet<QString> ids =
        Cleaner::installedBundleIDs({apps, m_home->file(u"missing"_s), utilities}, services);
    QCOMPARE(ids, (QSet<QString>{u"org.one.Xml"_s, u"org.two.Binary"_s, u"org.three.Inner"_s,
                                 u"Org.Six.Tool"_s, u"org.seven.Found"_s, u"org.eight.Running"_s}));

    QCOMPARE(
        services.asked(),
        QStringList{u"/usr/bin/mdfind kMDItemContentType == 'com.apple.application-bundle'"_s});
}

void LeftoversTest::spotlightToolNotExecutable()
{
    const QString args = m_home->file(u"mdfind-args"_s);
    QVERIFY(writeApp(m_home->file(u"Elsewhere/Found.app"_s), u"org.seven.Found"_s));
    QVERIFY(BundleFixtures::writeTool(m_home->file(u"mdfind"_s),
                                      m_home->file(u"Elsewhere/Found.app"_s), args));
    QVERIFY(QFile::setPermissions(m_home->file(u"mdfind"_s),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    // The real system runs only what it may execute.
    const RealSystem real(m_home->where());
    QVERIFY(!real.runTool(m_home->file(u"mdfind"_s), {u"x"_s}, 5.0).has_value());
    QVERIFY(!QFile::exists(args));
    QVERIFY(QFile::setPermissions(m_home->file(u"mdfind"_s),
                                  QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    QVERIFY(real.runTool(m_home->file(u"mdfind"_s), {u"x"_s}, 5.0).has_value());
    QVERIFY(QFile::exists(args));
}

void LeftoversTest::leftovers()
{
    const QString lib = m_home->file(u"Library/"_s);
    const QString apps = m_home->file(u"Apps"_s);
    QVERIFY(writeApp(apps + u"/Editor.app"_s, u"com.example.Editor"_s, true));

    struct Entry
    {
        QString path;
        qint64 size; // 0: an empty folder
    };
    const QList<Entry> entries{
        {u"Containers/com.example.Editor/d"_s, 9'000},
        {u"Containers/com.gone.App/d"_s, 10'000},
        {u"Containers/com.gone.Empty"_s, 0},
        {u"Containers/.com.gone.Hidden/d"_s, 9'000},
        {u"Group Containers/ABCDE12345.com.gone.App/d"_s, 9'000},
        {u"Group Containers/group.com.example.Editor.shared/d"_s, 9'000},
        {u"Preferences/com.gone.App.plist"_s, 2'000},
        {u"Preferences/com.gone.Other.PLIST"_s, 2'000},
        {u"Preferences/com.gone.noending"_s, 2'000},
        {u"Preferences/loginwindow"_s, 2'000},
        {u"Caches/com.apple.Safari/d"_s, 9'000},
        {u"Caches/Homebrew/d"_s, 9'000},
        {u"Caches/org.mozilla.firefox/d"_s, 9'000},
        {u"Caches/com.google.Keystone.Agent/d"_s, 9'000},
        {u"Caches/com.gone.App/d"_s, 50'000},
        {u"Caches/alpha.one.two/d"_s, 3'000},
        {u"Caches/Zed.one.two/d"_s, 3'000},
        {u"Saved Application State/com.gone.App.savedState/d"_s, 3'000},
        {u"Saved Application State/com.gone.Thing.SavedState/d"_s, 3'000},
        {u"HTTPStorages/com.gone.App"_s, 30'000},
        {u"WebKit/com.gone.App/d"_s, 30'000},
        {u"Application Scripts/com.gone.App/d"_s, 5'000},
        {u"Logs/com.gone.App/d"_s, 30'000},
    };
    QHash<QString, qint64> sizes;
    for (const Entry &entry : entries) {
        const QString path = lib + entry.path;
        if (entry.size == 0)
            QVERIFY(makeDir(path));
        else
            QVERIFY(writeFile(path, entry.size) > 0);
        sizes[entry.path.section(u'/', 0, 1)] += entry.size ? allocated(path) : 0;
    }

    QList<CleanItem> items = Cleaner::leftovers({apps}, noServices());
    QStringList shown;
    for (const CleanItem &item : std::as_const(items)) {
        shown.append(item.title + u" | "_s + item.subtitle);
        const QString relative = item.path.mid(lib.size());
        QCOMPARE(item.path, lib + relative);
        QCOMPARE(item.bytes, sizes.value(relative));
        QCOMPARE(item.category, CleanCategory::leftovers);
        QCOMPARE(item.method, CleanMethod::trash);
    }
    // Code-point order puts upper case first; equal titles go largest first, and equal
    // sizes keep the folders' order.
    const QStringList expected{
        u"ABCDE12345.com.gone.App | Group container · ~/Library/Group Containers"_s,
        u"Zed.one.two | Cache · ~/Library/Caches"_s,
        u"alpha.one.two | Cache · ~/Library/Caches"_s,
        u"com.gone.App | Cache · ~/Library/Caches"_s,
        u"com.gone.App | HTTP storage · ~/Library/HTTPStorages"_s,
        u"com.gone.App | WebKit data · ~/Library/WebKit"_s,
        u"com.gone.App | Logs · ~/Library/Logs"_s,
        u"com.gone.App | Container · ~/Library/Containers"_s,
        u"com.gone.App | Scripts · ~/Library/Application Scripts"_s,
        u"com.gone.App.plist | Preferences · ~/Library/Preferences"_s,
        u"com.gone.App.savedState | Saved state · ~/Library/Saved Application State"_s,
    };
    QCOMPARE(shown, expected);
    QVERIFY(items.at(4).bytes == items.at(5).bytes && items.at(5).bytes == items.at(6).bytes);

    L10n::overrideForTesting(true);
    items = Cleaner::leftovers({apps}, noServices());
    QStringList chinese;
    for (const CleanItem &item : std::as_const(items)) {
        if (!chinese.contains(item.subtitle))
            chinese.append(item.subtitle);
    }
    QCOMPARE(chinese,
             (QStringList{
                 u"共享容器 · ~/Library/Group Containers"_s, u"缓存 · ~/Library/Caches"_s,
                 u"网络存储 · ~/Library/HTTPStorages"_s, u"WebKit 数据 · ~/Library/WebKit"_s,
                 u"日志 · ~/Library/Logs"_s, u"容器 · ~/Library/Containers"_s,
                 u"脚本 · ~/Library/Application Scripts"_s, u"偏好设置 · ~/Library/Preferences"_s,
                 u"窗口状态 · ~/Library/Saved Application State"_s}));
}

void LeftoversTest::installedAppsOwnTheirFolders()
{
    const QString lib = m_home->file(u"Library/"_s);
    for (const QString &name : {u"com.example.Editor"_s, u"com.vendor.Tool"_s, u"net.run.App"_s})
        QVERIFY(writeFile(lib + u"Containers/"_s + name + u"/d"_s, 4'000) > 0);
    const QString apps = m_home->file(u"Apps"_s);
    QVERIFY(writeApp(apps + u"/Editor.app"_s, u"com.example.Other"_s));
    QVERIFY(writeApp(m_home->file(u"Found/Tool.app"_s), u"com.vendor.Tool"_s));
    FakeSystem &services = noServices();
    QList<CleanItem> items = Cleaner::leftovers({apps}, services);
    QCOMPARE(items.size(), 2); // the vendor of the installed app keeps its folder

    spotlightFinds(services, m_home->file(u"Found/Tool.app"_s));
    services.running = QList<Platform::RunningApplication>{{u"NET.RUN.APP"_s, QString()}};
    QVERIFY(Cleaner::leftovers({apps}, services).isEmpty());
}

QTEST_GUILESS_MAIN(LeftoversTest)
#include "tst_leftovers.moc"
