#include "cleanup/ScanFixtures.h"
#include "common/TestHome.h"
#include "support/FakeSystem.h"

#include "core/cleanup/CleanScanners.h"
#include "core/text/L10n.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace ScanFixtures;

namespace {

QStringList titles(const QList<CleanItem> &items)
{
    QStringList result;
    for (const CleanItem &item : items)
        result.append(item.title);
    return result;
}

} // namespace

class CacheScannersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void cacheNames_data();
    void cacheNames();
    void cacheItemFields();
    void excluding();
    void linkMeasuredAsItself();
    void equalSizesKeepListingOrder();
    void nameNotUtf8IsSkipped();
    void logs();
    void fixedLocations_data();
    void fixedLocations();
    void fixedLocationsAbsent();
    void bothPipFolders();
    void emptyArchivesNotListed();
    void homebrewListedOnceAsDeveloper();
    void linkedRootsListNothing_data();
    void linkedRootsListNothing();

private:
    QString caches() const { return m_home->file(u"Library/Caches"_s); }
    std::unique_ptr<TestHome> m_home;
};

void CacheScannersTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    L10n::overrideForTesting(false);
}

void CacheScannersTest::cleanup()
{
    clearHome(m_home->path());
}

void CacheScannersTest::cacheNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("listed");
    QTest::newRow("apple") << u"com.apple.Safari"_s << false;
    QTest::newRow("apple prefix needs its dot") << u"com.applesauce"_s << true;
    QTest::newRow("bare com.apple") << u"com.apple"_s << true;
    QTest::newRow("apple prefix is case-sensitive") << u"com.Apple.Thing"_s << true;
    for (const QString &name : {u"CloudKit"_s, u"FamilyCircle"_s, u"GeoServices"_s,
                                u"MediaAnalysis"_s, u"Metadata"_s, u"com.crashlytics.data"_s})
        QTest::addRow("protected %s", qPrintable(name)) << name << false;
    QTest::newRow("protected names are exact") << u"geoservices"_s << true;
    QTest::newRow("hidden") << u".hidden"_s << false;
    QTest::newRow("ordinary") << u"com.example.Editor"_s << true;
    QTest::newRow("chinese name") << u"缓存数据"_s << true;
}

void CacheScannersTest::cacheNames()
{
    QFETCH(QString, name);
    QFETCH(bool, listed);
    const qint64 bytes = writeFile(caches() + u'/' + name + u"/blob"_s, 20'000);
    QVERIFY(bytes > 0);
    const QList<CleanItem> items = Cleaner::userCaches(m_home->where());
    QCOMPARE(titles(items), listed ? QStringList{name} : QStringList{});
    if (listed)
        QCOMPARE(items.first().bytes, bytes);
}

void CacheScannersTest::cacheItemFields()
{
    const QString folder = caches() + u"/com.example.Big"_s;
    const qint64 visible = writeFile(folder + u"/a.db"_s, 50'000);
    const qint64 hidden = writeFile(folder + u"/.hidden/deep/b.db"_s, 30'000);
    const qint64 file = writeFile(caches() + u"/loose.cache"_s, 10'000);
    QVERIFY(makeDir(caches() + u"/empty"_s));
    QVERIFY(visible > 0 && hidden > 0 && file > 0);

    const QList<CleanItem> items = Cleaner::userCaches(m_home->where());
    QCOMPARE(titles(items), (QStringList{u"com.example.Big"_s, u"loose.cache"_s}));
    const CleanItem &big = items.at(0);
    QCOMPARE(big.path, folder);
    QCOMPARE(big.subtitle, u"~/Library/Caches"_s);
    QCOMPARE(big.bytes, visible + hidden);
    QCOMPARE(big.category, CleanCategory::userCache);
    QCOMPARE(big.method, CleanMethod::delete_);
    QCOMPARE(items.at(1).bytes, file);
}

void CacheScannersTest::excluding()
{
    writeFile(caches() + u"/pip/wheel"_s, 200'000);
    writeFile(caches() + u"/Homebrew/bottle"_s, 300'000);
    const qint64 kept = writeFile(caches() + u"/org.example.kept/x"_s, 10'000);
    const QSet<QString> claimed{caches() + u"/pip"_s, caches() + u"/Homebrew/"_s};
    const QList<CleanItem> items = Cleaner::userCaches(m_home->where(), claimed);
    QCOMPARE(titles(items), QStringList{u"org.example.kept"_s});
    QCOMPARE(items.first().bytes, kept);
}

void CacheScannersTest::linkMeasuredAsItself()
{
    // A long target makes the link occupy a block of its own on most file systems.
    const QString target = m_home->file(u"target-"_s + QString(120, u'x'));
    QVERIFY(writeFile(target + u"/huge"_s, 500'000) > 0);
    const QString link = caches() + u"/linked"_s;
    QVERIFY(makeLink(target, link));
    const qint64 own = allocated(link);

    const QList<CleanItem> items = Cleaner::userCaches(m_home->where());
    if (own <= 0) {
        QVERIFY(items.isEmpty());
        return;
    }
    QCOMPARE(titles(items), QStringList{u"linked"_s});
    QCOMPARE(items.first().bytes, own);
}

void CacheScannersTest::equalSizesKeepListingOrder()
{
    const QStringList names{u"delta"_s,   u"alpha"_s, u"echo"_s,
                            u"charlie"_s, u"bravo"_s, u"foxtrot"_s};
    for (const QString &name : names) {
        QVERIFY(writeFile(caches() + u'/' + name + u"/f"_s, 8'000) > 0);
        QVERIFY(writeFile(m_home->file(u"Library/Logs/"_s) + name + u"/f"_s, 8'000) > 0);
    }
    writeFile(caches() + u"/zulu/f"_s, 90'000);
    writeFile(m_home->file(u"Library/Logs/zulu/f"_s), 90'000);

    QCOMPARE(
        titles(Cleaner::userCaches(m_home->where())), QStringList{u"zulu"_s} + [&] {
            QStringList order = listingOrder(caches());
            order.removeAll(u"zulu"_s);
            return order;
        }());
    QStringList logOrder = listingOrder(m_home->file(u"Library/Logs"_s));
    logOrder.removeAll(u"zulu"_s);
    QCOMPARE(titles(Cleaner::logs(m_home->where())), QStringList{u"zulu"_s} + logOrder);
}

void CacheScannersTest::nameNotUtf8IsSkipped()
{
    QVERIFY(makeDir(caches() + u"/outer"_s));
    const QByteArray root = QFile::encodeName(caches());
    QCOMPARE(::mkdir((root + "/bad\xff\xfe").constData(), 0755), 0);
    QVERIFY(writeFileAt(root + "/bad\xff\xfe/f", 40'000) > 0);
    const qint64 inner = writeFileAt(root + "/outer/bad\xff", 40'000);
    const qint64 plain = writeFile(caches() + u"/outer/plain"_s, 10'000);
    QVERIFY(inner > 0 && plain > 0);

    const QList<CleanItem> items = Cleaner::userCaches(m_home->where());
    QCOMPARE(titles(items), QStringList{u"outer"_s});
    // Unlisted as an entry, it still takes up space inside its folder.
    QCOMPARE(items.first().bytes, inner + plain);
}

void CacheScannersTest::logs()
{
    QVERIFY(Cleaner::logs(m_home->where()).isEmpty()); // no ~/Library/Logs at all

    const QString root = m_home->file(u"Library/Logs"_s);
    const qint64 own = writeFile(root + u"/Quorvel/removals.log"_s, 3'000);
    const qint64 apple = writeFile(root + u"/com.apple.something/x.log"_s, 70'000);
    const qint64 single = writeFile(root + u"/install.log"_s, 20'000);
    writeFile(root + u"/.hidden.log"_s, 90'000);
    QVERIFY(makeDir(root + u"/EmptyApp"_s));

    const QList<CleanItem> items = Cleaner::logs(m_home->where());
    QCOMPARE(titles(items),
             (QStringList{u"com.apple.something"_s, u"install.log"_s, u"Quorvel"_s}));
    QCOMPARE(items.at(0).bytes, apple);
    QCOMPARE(items.at(1).bytes, single);
    QCOMPARE(items.at(2).bytes, own);
    for (const CleanItem &item : items) {
        QCOMPARE(item.subtitle, u"~/Library/Logs"_s);
        QCOMPARE(item.category, CleanCategory::logs);
        QCOMPARE(item.method, CleanMethod::delete_);
    }
}

void CacheScannersTest::fixedLocations_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<bool>("ai");
    const QStringList ai{
        u"~/.cache/huggingface"_s,
        u"~/.ollama/models"_s,
        u"~/.cache/torch"_s,
        u"~/.cache/whisper"_s,
        u"~/.lmstudio/models"_s,
        u"~/.cache/lm-studio"_s,
        u"~/.cache/pip"_s,
        u"~/Library/Caches/pip"_s,
        u"~/.npm/_cacache"_s,
        u"~/.cache/ms-playwright"_s,
        u"~/Library/Caches/ms-playwright"_s,
        u"~/Library/Caches/com.anthropic.claudefordesktop"_s,
        u"~/Library/Caches/claude-cli-nodejs"_s,
        u"~/.cache/uv"_s,
        u"~/Library/Caches/uv"_s,
        u"~/.cache/pypoetry"_s,
        u"~/.cursor/extensions"_s,
    };
    const QStringList developer{
        u"~/Library/Developer/Xcode/DerivedData"_s,
        u"~/Library/Developer/Xcode/iOS DeviceSupport"_s,
        u"~/Library/Developer/CoreSimulator/Caches"_s,
        u"~/Library/Developer/Xcode/Archives"_s,
        u"~/Library/Caches/org.swift.swiftpm"_s,
        u"~/Library/Caches/Homebrew"_s,
    };
    for (const QString &location : ai)
        QTest::addRow("%s", qPrintable(location)) << location << true;
    for (const QString &location : developer)
        QTest::addRow("%s", qPrintable(location)) << location << false;
}

void CacheScannersTest::fixedLocations()
{
    QFETCH(QString, location);
    QFETCH(bool, ai);
    const QString path = m_home->path() + location.mid(1);
    const qint64 bytes = writeFile(path + u"/data/blob"_s, 12'000);
    QVERIFY(bytes > 0);

    const QList<CleanItem> found =
        ai ? Cleaner::aiClutter(m_home->where()) : Cleaner::developerJunk(m_home->where());
    const QList<CleanItem> other =
        ai ? Cleaner::developerJunk(m_home->where()) : Cleaner::aiClutter(m_home->where());
    QVERIFY(other.isEmpty());
    QCOMPARE(found.size(), 1);
    const CleanItem &item = found.first();
    QCOMPARE(item.path, path);
    QCOMPARE(item.title, QFileInfo(path).fileName());
    QCOMPARE(item.subtitle, location.left(location.lastIndexOf(u'/')));
    QCOMPARE(item.bytes, bytes);
    QCOMPARE(item.category, ai ? CleanCategory::ai : CleanCategory::developer);
    QCOMPARE(item.method, CleanMethod::delete_);
}

void CacheScannersTest::fixedLocationsAbsent()
{
    // Near misses of the fixed places do not count.
    writeFile(m_home->file(u".cache/huggingface-old/x"_s), 10'000);
    writeFile(m_home->file(u"Library/Developer/Xcode/DerivedDataX/x"_s), 10'000);
    QVERIFY(Cleaner::aiClutter(m_home->where()).isEmpty());
    QVERIFY(Cleaner::developerJunk(m_home->where()).isEmpty());
}

void CacheScannersTest::bothPipFolders()
{
    const qint64 dotCache = writeFile(m_home->file(u".cache/pip/http/a"_s), 10'000);
    const qint64 library = writeFile(m_home->file(u"Library/Caches/pip/http/a"_s), 60'000);
    const qint64 models = writeFile(m_home->file(u".ollama/models/m"_s), 30'000);
    const QList<CleanItem> items = Cleaner::aiClutter(m_home->where());
    QCOMPARE(titles(items), (QStringList{u"pip"_s, u"models"_s, u"pip"_s}));
    QCOMPARE(items.at(0).subtitle, u"~/Library/Caches"_s);
    QCOMPARE(items.at(0).bytes, library);
    QCOMPARE(items.at(1).subtitle, u"~/.ollama"_s);
    QCOMPARE(items.at(1).bytes, models);
    QCOMPARE(items.at(2).subtitle, u"~/.cache"_s);
    QCOMPARE(items.at(2).bytes, dotCache);
}

void CacheScannersTest::emptyArchivesNotListed()
{
    QVERIFY(makeDir(m_home->file(u"Library/Developer/Xcode/Archives/2024-01-01"_s)));
    const qint64 derived = writeFile(m_home->file(u"Library/Developer/Xcode/DerivedData/x"_s), 5);
    const QList<CleanItem> items = Cleaner::developerJunk(m_home->where());
    QCOMPARE(titles(items), QStringList{u"DerivedData"_s});
    QCOMPARE(items.first().subtitle, u"~/Library/Developer/Xcode"_s);
    QCOMPARE(items.first().bytes, derived);
}

void CacheScannersTest::homebrewListedOnceAsDeveloper()
{
    writeFile(caches() + u"/Homebrew/downloads/x.tar.gz"_s, 40'000);
    writeFile(caches() + u"/pip/x"_s, 40'000);
    writeFile(caches() + u"/org.example.App/x"_s, 40'000);

    // The page's order: the fixed places first, then the caches they did not claim.
    QSet<QString> claimed;
    QList<CleanItem> all =
        Cleaner::aiClutter(m_home->where()) + Cleaner::developerJunk(m_home->where());
    for (const CleanItem &item : std::as_const(all))
        claimed.insert(item.path);
    all += Cleaner::userCaches(m_home->where(), claimed);

    QStringList found;
    for (const CleanItem &item : std::as_const(all))
        found.append(item.title + u' ' + rawValue(item.category));
    found.sort();
    QCOMPARE(found,
             (QStringList{u"Homebrew developer"_s, u"org.example.App userCache"_s, u"pip ai"_s}));
}

// A scan root that is a link, or lies behind one, lists nothing: what it points at is not
// the place the rules name. The same tree at the real place is found, so the scan can see it.
void CacheScannersTest::linkedRootsListNothing_data()
{
    QTest::addColumn<QString>("root"); // below home, made a link to ~/elsewhere
    QTest::addColumn<QString>("scanner");
    QTest::addColumn<QString>("inside"); // a file below the link target
    QTest::newRow("caches") << u"Library/Caches"_s << u"userCache"_s << u"com.x/data"_s;
    QTest::newRow("library") << u"Library"_s << u"userCache"_s << u"Caches/com.x/data"_s;
    QTest::newRow("logs") << u"Library/Logs"_s << u"logs"_s << u"app.log"_s;
    QTest::newRow("cache folder") << u".cache"_s << u"ai"_s << u"huggingface/model"_s;
    QTest::newRow("leftover folder")
        << u"Library/Containers"_s << u"leftovers"_s << u"com.gone.app/data"_s;
}

void CacheScannersTest::linkedRootsListNothing()
{
    QFETCH(QString, root);
    QFETCH(QString, scanner);
    QFETCH(QString, inside);
    const QString elsewhere = m_home->file(u"elsewhere"_s);
    QVERIFY(writeFile(elsewhere + u'/' + inside, 20'000) > 0);
    QVERIFY(QDir().mkpath(QFileInfo(m_home->file(root)).path()));
    QVERIFY(makeLink(elsewhere, m_home->file(root)));
    const auto scan = [&] {
        if (scanner == u"userCache")
            return Cleaner::userCaches(m_home->where());
        if (scanner == u"logs")
            return Cleaner::logs(m_home->where());
        if (scanner == u"ai")
            return Cleaner::aiClutter(m_home->where());
        return Cleaner::leftovers({}, FakeSystem(m_home->where()));
    };
    QCOMPARE(titles(scan()), QStringList());
    QVERIFY(QFile::remove(m_home->file(root)));
    QVERIFY(QFile::rename(elsewhere, m_home->file(root)));
    QVERIFY(!scan().isEmpty());
}

QTEST_GUILESS_MAIN(CacheScannersTest)
#include "tst_cachescanners.moc"
