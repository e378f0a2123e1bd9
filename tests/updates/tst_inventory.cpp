#include "common/TestHome.h"

#include "core/updates/Inventory.h"

#include <QtTest>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(AppInfo)

char *toString(const AppInfo &app)
{
    const QString text = u"{%1 | %2 | %3 | %4 | %5 | %6 | mas=%7}"_s.arg(
        app.path, app.name, app.bundleID, app.shortVersion, app.build,
        app.feed.value_or(u"<none>"_s), app.mas ? u"1"_s : u"0"_s);
    return qstrdup(text.toUtf8().constData());
}

namespace {

enum class Receipt { none, emptyFile, folder, danglingLink, folderOnly };
enum class Layout { plist, noContents, plistIsFolder, plainFile, linkToBundle };

plist_t toNode(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::LongLong:
        return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QByteArray:
        return plist_new_data(value.toByteArray().constData(),
                              uint64_t(value.toByteArray().size()));
    case QMetaType::QVariantList: {
        plist_t array = plist_new_array();
        for (const QVariant &item : value.toList())
            plist_array_append_item(array, toNode(item));
        return array;
    }
    default:
        return plist_new_string(value.toString().toUtf8().constData());
    }
}

// The bytes of a property list in either of the forms bundles ship.
QByteArray plistBytes(const QVariant &root, bool binary)
{
    plist_t node = root.typeId() == QMetaType::QVariantMap ? plist_new_dict() : toNode(root);
    const QVariantMap map = root.toMap();
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        plist_dict_set_item(node, it.key().toUtf8().constData(), toNode(it.value()));
    char *data = nullptr;
    uint32_t length = 0;
    if (binary)
        plist_to_bin(node, &data, &length);
    else
        plist_to_xml(node, &data, &length);
    plist_free(node);
    const QByteArray bytes(data, qsizetype(length));
    std::free(data);
    return bytes;
}

QByteArray xml(const QVariantMap &map)
{
    return plistBytes(map, false);
}
QByteArray bin(const QVariantMap &map)
{
    return plistBytes(map, true);
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

bool writeBundle(const QString &bundle, const QString &identifier)
{
    return writeFile(bundle + u"/Contents/Info.plist"_s,
                     xml({{u"CFBundleIdentifier"_s, identifier}}));
}

AppInfo app(const QString &entry, const QString &id, const QString &name,
            const QString &version = {}, const QString &build = {},
            std::optional<QString> feed = std::nullopt, bool mas = false)
{
    return AppInfo{entry, name, id, version, build, std::move(feed), mas};
}

QStringList pathsOf(const QList<AppInfo> &apps)
{
    QStringList paths;
    for (const AppInfo &a : apps)
        paths << a.path;
    return paths;
}

} // namespace

class InventoryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void bundle_data();
    void bundle();
    void folders_data();
    void folders();
    void listingOrder();
    void defaults();

private:
    std::unique_ptr<TestHome> m_home;
    QString m_tree; // fixed folders for the multi-folder rows
};

void InventoryTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    m_tree = m_home->file(u"tree"_s);
    QVERIFY(writeBundle(m_tree + u"/Apps1/Beta.app"_s, u"com.b"_s));
    QVERIFY(writeBundle(m_tree + u"/Apps1/Sub/Inner.app"_s, u"com.inner"_s));
    QVERIFY(writeBundle(m_tree + u"/Apps2/Shared.app"_s, u"com.shared"_s));
    QVERIFY(writeBundle(m_tree + u"/Apps3/Shared.app"_s, u"com.shared"_s));
    QVERIFY(writeFile(m_tree + u"/file"_s, "not a folder"));
}

void InventoryTest::bundle_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<int>("layout");
    QTest::addColumn<QByteArray>("plist");
    QTest::addColumn<int>("receipt");
    QTest::addColumn<QList<AppInfo>>("expected"); // paths relative to the folder

    const auto row = [](const char *tag, const QString &entry, const QByteArray &plist,
                        const QList<AppInfo> &expected, Receipt receipt = Receipt::none,
                        Layout layout = Layout::plist) {
        QTest::newRow(tag) << entry << int(layout) << plist << int(receipt) << expected;
    };
    const QString id = u"CFBundleIdentifier"_s;
    const QString shortV = u"CFBundleShortVersionString"_s;
    const QString build = u"CFBundleVersion"_s;
    const QString feed = u"SUFeedURL"_s;
    const QString display = u"CFBundleDisplayName"_s;
    const QString bundleName = u"CFBundleName"_s;
    const QVariantMap full{{id, u"com.example.full"_s},
                           {shortV, u"1.2.3"_s},
                           {build, u"456"_s},
                           {feed, u"https://example.com/appcast.xml"_s},
                           {display, u"Full Display"_s},
                           {bundleName, u"FullName"_s}};
    const QList<AppInfo> fullApp{app(u"Full.app"_s, u"com.example.full"_s, u"Full Display"_s,
                                     u"1.2.3"_s, u"456"_s, u"https://example.com/appcast.xml"_s)};
    const QVariantMap bare{{id, u"com.bare"_s}};
    const QList<AppInfo> bareApp{app(u"Bare.app"_s, u"com.bare"_s, u"Bare"_s)};

    // Plist forms and damage
    row("xml", u"Full.app"_s, xml(full), fullApp);
    row("binary", u"Full.app"_s, bin(full), fullApp);
    row("truncated xml", u"Full.app"_s, xml(full).first(xml(full).size() / 2), {});
    row("truncated binary", u"Full.app"_s, bin(full).first(bin(full).size() - 20), {});
    row("garbage", u"Full.app"_s, "\x01\x02not a plist at all", {});
    row("empty file", u"Full.app"_s, QByteArray(""), {});
    row("top level array", u"Full.app"_s, plistBytes(QVariantList{u"com.x"_s}, false), {});
    row("no Contents", u"Full.app"_s, xml(full), {}, Receipt::none, Layout::noContents);
    row("Info.plist is a folder", u"Full.app"_s, xml(full), {}, Receipt::none,
        Layout::plistIsFolder);
    row("bundle is a plain file", u"Full.app"_s, xml(full), {}, Receipt::none, Layout::plainFile);
    row("bundle is a link", u"Full.app"_s, bin(full), fullApp, Receipt::none, Layout::linkToBundle);

    // Identifier
    row("no identifier", u"Full.app"_s, xml({{shortV, u"1.0"_s}}), {});
    row("identifier is a number", u"Full.app"_s, bin({{id, 42}}), {});
    row("identifier is data", u"Full.app"_s, xml({{id, QByteArray("com.x")}}), {});
    row("minimal", u"Bare.app"_s, xml(bare), bareApp);

    // Versions and feed
    row("versions not text", u"Bare.app"_s, bin({{id, u"com.bare"_s}, {shortV, 12}, {build, true}}),
        bareApp);
    row("feed not a url kept", u"Bare.app"_s, xml({{id, u"com.bare"_s}, {feed, u"not a url"_s}}),
        {app(u"Bare.app"_s, u"com.bare"_s, u"Bare"_s, {}, {}, u"not a url"_s)});
    row("feed is a number", u"Bare.app"_s, bin({{id, u"com.bare"_s}, {feed, 7}}), bareApp);

    // Name chain
    row("bundle name", u"Bare.app"_s, xml({{id, u"com.bare"_s}, {bundleName, u"Short"_s}}),
        {app(u"Bare.app"_s, u"com.bare"_s, u"Short"_s)});
    row("display name not text", u"Bare.app"_s,
        bin({{id, u"com.bare"_s}, {display, 3}, {bundleName, u"Short"_s}}),
        {app(u"Bare.app"_s, u"com.bare"_s, u"Short"_s)});
    row("both names not text", u"Bare.app"_s,
        xml({{id, u"com.bare"_s}, {display, false}, {bundleName, 1.5}}), bareApp);
    row("empty display name wins", u"Bare.app"_s,
        xml({{id, u"com.bare"_s}, {display, u""_s}, {bundleName, u"Short"_s}}),
        {app(u"Bare.app"_s, u"com.bare"_s, QString())});
    row("non-ascii entry", u"\u5FAE\u4FE1 Beta.app"_s, xml({{id, u"com.wx"_s}}),
        {app(u"\u5FAE\u4FE1 Beta.app"_s, u"com.wx"_s, u"\u5FAE\u4FE1 Beta"_s)});

    // Entry names
    row("hidden entry", u".Hidden.app"_s, xml(bare),
        {app(u".Hidden.app"_s, u"com.bare"_s, u".Hidden"_s)});
    row("bare .app", u".app"_s, xml(bare), {app(u".app"_s, u"com.bare"_s, QString())});
    row("upper case APP", u"Bare.APP"_s, xml(bare), {});
    row("mixed case App", u"Bare.App"_s, xml(bare), {});
    row("app inside name", u"Bare.app.zip"_s, xml(bare), {});

    // Receipts
    const QList<AppInfo> masApp{app(u"Bare.app"_s, u"com.bare"_s, u"Bare"_s, {}, {}, {}, true)};
    row("empty receipt", u"Bare.app"_s, xml(bare), masApp, Receipt::emptyFile);
    row("receipt is a folder", u"Bare.app"_s, xml(bare), masApp, Receipt::folder);
    row("dangling receipt link", u"Bare.app"_s, xml(bare), bareApp, Receipt::danglingLink);
    row("receipt folder only", u"Bare.app"_s, xml(bare), bareApp, Receipt::folderOnly);
}

void InventoryTest::bundle()
{
    QFETCH(QString, entry);
    QFETCH(int, layout);
    QFETCH(QByteArray, plist);
    QFETCH(int, receipt);
    QFETCH(QList<AppInfo>, expected);

    QTemporaryDir dir(m_home->file(u"row-XXXXXX"_s));
    QVERIFY(dir.isValid());
    const QString folder = dir.path();
    const QString bundle = folder + u'/' + entry;
    const QString target =
        Layout(layout) == Layout::linkToBundle ? folder + u"/elsewhere"_s : bundle;
    const QString info = target + u"/Contents/Info.plist"_s;
    if (Layout(layout) == Layout::plist || Layout(layout) == Layout::linkToBundle)
        QVERIFY(writeFile(info, plist));
    else if (Layout(layout) == Layout::noContents)
        QVERIFY(writeFile(bundle + u"/Info.plist"_s, plist));
    else if (Layout(layout) == Layout::plistIsFolder)
        QVERIFY(QDir().mkpath(info));
    else if (Layout(layout) == Layout::plainFile)
        QVERIFY(writeFile(bundle, plist));
    if (Layout(layout) == Layout::linkToBundle)
        QVERIFY(QFile::link(target, bundle));

    const QString receiptPath = target + u"/Contents/_MASReceipt/receipt"_s;
    if (Receipt(receipt) != Receipt::none)
        QVERIFY(QDir().mkpath(QFileInfo(receiptPath).path()));
    if (Receipt(receipt) == Receipt::emptyFile)
        QVERIFY(writeFile(receiptPath, {}));
    else if (Receipt(receipt) == Receipt::folder)
        QVERIFY(QDir().mkpath(receiptPath));
    else if (Receipt(receipt) == Receipt::danglingLink)
        QVERIFY(QFile::link(folder + u"/gone"_s, receiptPath));
    for (AppInfo &a : expected)
        a.path = folder + u'/' + a.path;

    QCOMPARE(Inventory::applications({folder}, m_home->where()), expected);
}

void InventoryTest::folders_data()
{
    QTest::addColumn<QStringList>("folders"); // relative to the fixed tree
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("none") << QStringList{} << QStringList{};
    QTest::newRow("given order") << QStringList{u"Apps2"_s, u"Apps1"_s}
                                 << QStringList{u"Apps2/Shared.app"_s, u"Apps1/Beta.app"_s};
    QTest::newRow("subfolder not entered")
        << QStringList{u"Apps1"_s} << QStringList{u"Apps1/Beta.app"_s};
    QTest::newRow("subfolder listed itself")
        << QStringList{u"Apps1/Sub"_s} << QStringList{u"Apps1/Sub/Inner.app"_s};
    QTest::newRow("missing folder")
        << QStringList{u"missing"_s, u"Apps1"_s} << QStringList{u"Apps1/Beta.app"_s};
    QTest::newRow("file as folder")
        << QStringList{u"file"_s, u"Apps2"_s} << QStringList{u"Apps2/Shared.app"_s};
    QTest::newRow("same folder twice") << QStringList{u"Apps2"_s, u"Apps2"_s}
                                       << QStringList{u"Apps2/Shared.app"_s, u"Apps2/Shared.app"_s};
    QTest::newRow("same id twice") << QStringList{u"Apps3"_s, u"Apps2"_s}
                                   << QStringList{u"Apps3/Shared.app"_s, u"Apps2/Shared.app"_s};
}

void InventoryTest::folders()
{
    QFETCH(QStringList, folders);
    QFETCH(QStringList, expected);
    for (QString &f : folders)
        f.prepend(m_tree + u'/');
    for (QString &e : expected)
        e.prepend(m_tree + u'/');
    QCOMPARE(pathsOf(Inventory::applications(folders, m_home->where())), expected);
}

// The inventory keeps the file system's order; compare against a readdir of our own.
void InventoryTest::listingOrder()
{
    QTemporaryDir dir(m_home->file(u"order-XXXXXX"_s));
    QVERIFY(dir.isValid());
    const QStringList names{u"zeta"_s, u"Alpha"_s, u"mid"_s,   u"_under"_s, u"10"_s, u"9"_s,
                            u"beta"_s, u".dot"_s,  u"Omega"_s, u"a b"_s,    u"2"_s,  u"kappa"_s};
    for (const QString &name : names) {
        QVERIFY(writeBundle(dir.filePath(name + u".app"_s), u"com."_s + name));
        QVERIFY(writeFile(dir.filePath(name + u".txt"_s), "not an app"));
    }
    QStringList expected;
    DIR *listing = opendir(QFile::encodeName(dir.path()).constData());
    QVERIFY(listing);
    while (const dirent *d = readdir(listing)) {
        const QString name = QFile::decodeName(d->d_name);
        if (name.endsWith(u".app"_s))
            expected << dir.filePath(name);
    }
    closedir(listing);
    QCOMPARE(expected.size(), names.size());
    QCOMPARE(pathsOf(Inventory::applications({dir.path()}, m_home->where())), expected);
}

void InventoryTest::defaults()
{
    const QString homeApps = m_home->file(u"Applications"_s);
    const Locations where = m_home->where();
    const QStringList updatable = where.applicationFolders(Locations::Apps::updatable);
    QCOMPARE(updatable, (QStringList{u"/Applications"_s, u"/Applications/Utilities"_s, homeApps}));
    QCOMPARE(where.applicationFolders(Locations::Apps::userFacing),
             (QStringList{u"/Applications"_s, homeApps}));
    QCOMPARE(where.applicationFolders(Locations::Apps::installed).size(), 6);

    QVERIFY(writeBundle(homeApps + u"/Mine.app"_s, u"com.mine"_s));
    const QList<AppInfo> apps = Inventory::applications(updatable, where);
    QVERIFY(pathsOf(apps).contains(homeApps + u"/Mine.app"_s));
    for (const AppInfo &a : apps)
        QVERIFY2(a.path.startsWith(u"/Applications/"_s) || a.path.startsWith(homeApps + u'/'),
                 qPrintable(a.path));
}

QTEST_GUILESS_MAIN(InventoryTest)
#include "tst_inventory.moc"
