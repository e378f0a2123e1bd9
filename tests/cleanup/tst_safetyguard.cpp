#include "common/TestHome.h"

#include "core/cleanup/SafetyGuard.h"
#include "core/plist/PlistReader.h"
#include "core/text/L10n.h"
#include "core/words/CleanupWords.h"

#include <QtTest>
#include <plist/plist.h>

using namespace Qt::StringLiterals;

namespace {

const QString kOutside = u"outside your home folder — refused"_s;
const QString kLibrary = u"inside Library — refused"_s;
const QString kProtected = u"protected location — refused"_s;
const QString kBadType = u"protected file type — refused"_s;
const QString kNotCleanable = u"not in a cleanable area — refused"_s;
const QString kNotApp = u"not an app in Applications — refused"_s;
const QString kApple = u"Apple app — refused"_s;

// The guard's answer as people read it; empty when allowed.
QString said(const std::optional<SafetyGuard::Refusal> &refusal)
{
    return refusal ? Words::refusal(*refusal) : QString();
}

// Writes Info.plist for an app bundle under the home folder, in XML or binary form.
void writeInfoPlist(const QString &bundle, const char *identifier, bool binary)
{
    plist_t dict = plist_new_dict();
    if (identifier)
        plist_dict_set_item(dict, "CFBundleIdentifier", plist_new_string(identifier));
    plist_dict_set_item(dict, "CFBundleName", plist_new_string("Tool"));
    char *data = nullptr;
    uint32_t length = 0;
    if (binary)
        plist_to_bin(dict, &data, &length);
    else
        plist_to_xml(dict, &data, &length);
    QVERIFY(QDir().mkpath(bundle + u"/Contents"_s));
    QFile file(bundle + u"/Contents/Info.plist"_s);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(data, length);
    std::free(data);
    plist_free(dict);
}

void writeRaw(const QString &path, const QByteArray &bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

class SafetyGuardTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void concurrentFirstUse();
    void rules_data();
    void rules();
    void application_data();
    void application();
    void chineseMessages();
    void plistReader_data();
    void plistReader();

private:
    std::unique_ptr<TestHome> m_home;
};

void SafetyGuardTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    L10n::overrideForTesting(false);
    const QString apps = m_home->file(u"Applications"_s);
    writeInfoPlist(apps + u"/Xml.app"_s, "org.example.xml", false);
    writeInfoPlist(apps + u"/Binary.app"_s, "org.example.binary", true);
    writeInfoPlist(apps + u"/AppleXml.app"_s, "com.apple.Safari", false);
    writeInfoPlist(apps + u"/AppleBinary.app"_s, "com.apple.Notes", true);
    writeInfoPlist(apps + u"/NoId.app"_s, nullptr, true);
    writeInfoPlist(apps + u"/NearApple.app"_s, "com.applesauce.x", false);
    writeRaw(apps + u"/Broken.app/Contents/Info.plist"_s, "<?xml version=\"1.0\"?><plist><dic");
    writeRaw(apps + u"/Garbage.app/Contents/Info.plist"_s, QByteArray(64, '\xff'));
    writeRaw(apps + u"/NotDict.app/Contents/Info.plist"_s,
             "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>com.apple.x</string>"
             "</array></plist>");
    writeRaw(apps + u"/NumberId.app/Contents/Info.plist"_s,
             "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
             "<integer>7</integer></dict></plist>");
    QVERIFY(QDir().mkpath(apps + u"/Empty.app"_s));
    writeInfoPlist(apps + u"/Utilities/Apple.app"_s, "com.apple.x", false);
}

void SafetyGuardTest::rules_data()
{
    QTest::addColumn<QString>("relative"); // to home; "/..." means absolute
    QTest::addColumn<QString>("category");
    QTest::addColumn<QString>("refusal"); // empty: allowed

    const auto row = [](const char *name, const QString &rel, const char *cat, const QString &r) {
        QTest::newRow(name) << rel << QString::fromLatin1(cat) << r;
    };
    row("caches folder itself", u"Library/Caches"_s, "userCache", kNotCleanable);
    row("caches folder with slash", u"Library/Caches/"_s, "userCache", kNotCleanable);
    row("an app cache", u"Library/Caches/com.example.app"_s, "userCache", QString());
    row("deep cache file", u"Library/Caches/a/b/c.db"_s, "userCache", QString());
    row("derived data itself", u"Library/Developer/Xcode/DerivedData"_s, "developer", QString());
    row("derived data sibling", u"Library/Developer/Xcode/DerivedDataX"_s, "developer", QString());
    row("archives", u"Library/Developer/Xcode/Archives/2026"_s, "developer", QString());
    row("xcode user data", u"Library/Developer/Xcode/UserData/x"_s, "developer", kProtected);
    row("simulator devices", u"Library/Developer/CoreSimulator/Devices"_s, "developer", kProtected);
    row("dotdot into mail", u"Library/Caches/../Mail/x"_s, "userCache", kProtected);
    row("dotdot out of home", u"../other/Library/Caches/x"_s, "userCache", kOutside);
    row("dot segments", u"Library/./Caches/./x"_s, "userCache", QString());
    row("doubled slashes", u"Library//Caches//x"_s, "userCache", QString());
    row("other user", u"/home/someone/Library/Caches/x"_s, "userCache", kOutside);
    row("system library", u"/Library/Caches/x"_s, "userCache", kOutside);
    row("root", u"/"_s, "largeFiles", kOutside);
    row("home itself", QString(), "largeFiles", kOutside);
    row("home with dot", u"."_s, "largeFiles", kOutside);
    row("library itself", u"Library"_s, "userCache", kLibrary);
    row("library itself slash", u"Library/"_s, "leftovers", kLibrary);
    row("large file in library", u"Library/Caches/x"_s, "largeFiles", kLibrary);
    row("large file in protected library", u"Library/Mail/x.vmdk"_s, "largeFiles", kLibrary);
    row("keychain", u"Library/Keychains/login.keychain-db"_s, "leftovers", kProtected);
    row("vmdk upper case", u"Documents/Disk.VMDK"_s, "largeFiles", kBadType);
    row("vmdk folder slash", u"Documents/x.vmdk/"_s, "largeFiles", kBadType);
    row("sparsebundle", u"Downloads/b.sparsebundle"_s, "largeFiles", kBadType);
    row("keychain-db type", u"Documents/k.keychain-db"_s, "largeFiles", kBadType);
    row("photos library", u"Pictures/Photos Library.photoslibrary/x"_s, "largeFiles", kProtected);
    row("extension of dotdot path", u"Documents/x.vmdk/.."_s, "largeFiles", QString());
    row("trash", u".Trash/x"_s, "largeFiles", kProtected);
    row("trash-like name", u".Trashcan"_s, "largeFiles", kProtected);
    row("backups anywhere", u"Documents/Backups.backupdb/x"_s, "largeFiles", kProtected);
    row("group apple", u"Library/Group Containers/group.com.apple/x"_s, "leftovers", kProtected);
    row("group apple notes", u"Library/Group Containers/group.com.apple.notes"_s, "leftovers",
        QString());
    row("application support", u"Library/Application Support/SomeApp"_s, "leftovers", kProtected);
    row("mail prefix not component", u"Library/Mailbox/x"_s, "leftovers", kNotCleanable);
    row("case matters", u"library/caches/x"_s, "userCache", kNotCleanable);
    row("logs", u"Library/Logs/DiagnosticReports/a.ips"_s, "logs", QString());
    row("logs in caches category", u"Library/Logs/x"_s, "userCache", kNotCleanable);
    row("ai ollama", u".ollama/models/blob"_s, "ai", QString());
    row("ai cache folder itself", u".cache"_s, "ai", kNotCleanable);
    row("ai library caches", u"Library/Caches/com.openai"_s, "ai", QString());
    row("leftover preferences", u"Library/Preferences/com.gone.plist"_s, "leftovers", QString());
    row("leftovers logs", u"Library/Logs/Gone"_s, "leftovers", QString());
    row("large file anywhere", u"Movies/film.mov"_s, "largeFiles", QString());
    row("large hidden file", u".local/big.bin"_s, "largeFiles", QString());
}

void SafetyGuardTest::rules()
{
    QFETCH(QString, relative);
    QFETCH(QString, category);
    QFETCH(QString, refusal);
    const QString path =
        relative.startsWith(u'/') && relative != u"/" ? relative : m_home->path() + u'/' + relative;
    const auto got = SafetyGuard::refusal(relative == u"/" ? u"/"_s : path,
                                          cleanCategoryFromRaw(category).value(), m_home->where());
    QCOMPARE(said(got), refusal);
}

void SafetyGuardTest::application_data()
{
    QTest::addColumn<QString>("path"); // "~" is the temporary home
    QTest::addColumn<QString>("refusal");
    QTest::newRow("xml plist") << u"~/Applications/Xml.app"_s << QString();
    QTest::newRow("binary plist") << u"~/Applications/Binary.app"_s << QString();
    QTest::newRow("trailing slash") << u"~/Applications/Xml.app/"_s << QString();
    QTest::newRow("apple xml") << u"~/Applications/AppleXml.app"_s << kApple;
    QTest::newRow("apple binary") << u"~/Applications/AppleBinary.app/"_s << kApple;
    QTest::newRow("no identifier") << u"~/Applications/NoId.app"_s << QString();
    QTest::newRow("com.applesauce") << u"~/Applications/NearApple.app"_s << QString();
    QTest::newRow("number identifier") << u"~/Applications/NumberId.app"_s << QString();
    QTest::newRow("broken xml") << u"~/Applications/Broken.app"_s << QString();
    QTest::newRow("garbage bytes") << u"~/Applications/Garbage.app"_s << QString();
    QTest::newRow("not a dictionary") << u"~/Applications/NotDict.app"_s << QString();
    QTest::newRow("missing plist") << u"~/Applications/Empty.app"_s << QString();
    QTest::newRow("missing bundle") << u"/Applications/Tool.app"_s << QString();
    QTest::newRow("utilities") << u"~/Applications/Utilities/Apple.app"_s << kNotApp;
    QTest::newRow("system utilities") << u"/Applications/Utilities/Tool.app"_s << kNotApp;
    QTest::newRow("upper-case extension") << u"/Applications/Tool.APP"_s << kNotApp;
    QTest::newRow("not an app") << u"~/Applications/notes.txt"_s << kNotApp;
    QTest::newRow("home folder") << u"~/Tool.app"_s << kNotApp;
    QTest::newRow("dotdot parent") << u"/Applications/x/../Tool.app"_s << kNotApp;
    QTest::newRow("library app") << u"~/Library/Tool.app"_s << kNotApp;
    QTest::newRow("double slash") << u"/Applications//Tool.app"_s << QString();
}

void SafetyGuardTest::application()
{
    QFETCH(QString, path);
    QFETCH(QString, refusal);
    if (path.startsWith(u'~'))
        path = m_home->path() + path.mid(1);
    const auto got = SafetyGuard::refusal(path, CleanCategory::unusedApps, m_home->where());
    QCOMPARE(said(got), refusal);
}

void SafetyGuardTest::chineseMessages()
{
    L10n::overrideForTesting(true);
    const auto outside =
        SafetyGuard::refusal(u"/etc/hosts"_s, CleanCategory::logs, m_home->where());
    const auto apple = SafetyGuard::refusal(m_home->file(u"Applications/AppleXml.app"_s),
                                            CleanCategory::unusedApps, m_home->where());
    const auto type =
        SafetyGuard::refusal(m_home->file(u"a.utm"_s), CleanCategory::largeFiles, m_home->where());
    L10n::overrideForTesting(false);
    L10n::overrideForTesting(true);
    QCOMPARE(said(outside), u"不在个人文件夹内，拒绝"_s);
    QCOMPARE(said(apple), u"Apple 自带应用，拒绝"_s);
    QCOMPARE(said(type), u"受保护的文件类型，拒绝"_s);
    L10n::overrideForTesting(false);
}

void SafetyGuardTest::plistReader_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<bool>("isDictionary");
    QTest::addColumn<QString>("identifier");
    QTest::newRow("xml") << QByteArray("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                       "<key>CFBundleIdentifier</key><string>a.b</string>"
                                       "<key>N</key><integer>3</integer></dict></plist>")
                         << true << u"a.b"_s;
    QTest::newRow("empty") << QByteArray() << false << QString();
    // A NUL inside a string or key aborts libplist's own accessors; ours must survive it.
    QTest::newRow("NUL in a string")
        << QByteArray("<dict><key>CFBundleIdentifier</key><string>a\0b</string></dict>", 62) << true
        << u"a"_s;
    QTest::newRow("NUL in a binary key")
        << QByteArray::fromHex("62706c6973743030d1010262000000e909080b100000000000000101000000"
                               "000000000300000000000000000000000000000011")
        << true << QString();
    QTest::newRow("truncated binary") << QByteArray("bplist00\xd1\x01\x02") << false << QString();
    QTest::newRow("string root") << QByteArray("<?xml version=\"1.0\"?><plist version=\"1.0\">"
                                               "<string>x</string></plist>")
                                 << false << QString();
    QTest::newRow("oversized") << QByteArray(PlistReader::kMaxBytes + 1, ' ') << false << QString();
}

void SafetyGuardTest::plistReader()
{
    QFETCH(QByteArray, data);
    QFETCH(bool, isDictionary);
    QFETCH(QString, identifier);
    const auto dict = PlistReader::parseDictionary(data, {u"CFBundleIdentifier"_s, u"N"_s});
    QCOMPARE(dict.has_value(), isDictionary);
    if (dict)
        QVERIFY2(dict->value(u"CFBundleIdentifier"_s).toString().startsWith(identifier),
                 qPrintable(dict->value(u"CFBundleIdentifier"_s).toString()));
}

void SafetyGuardTest::concurrentFirstUse()
{
    // The tables and the home folder are built once; many threads asking at once must all
    // get the same answers.
    const QString allowed = m_home->file(u"Library/Caches/x"_s);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                if (SafetyGuard::refusal(allowed, CleanCategory::userCache, m_home->where())
                        .has_value())
                    ++wrong;
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    QCOMPARE(wrong.load(), 0);
}

QTEST_GUILESS_MAIN(SafetyGuardTest)
#include "tst_safetyguard.moc"
