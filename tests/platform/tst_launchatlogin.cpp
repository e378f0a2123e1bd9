#include "common/TestHome.h"
#include "platform/LaunchAtLogin.h"

#include <QProcess>
#include <QStandardPaths>
#include <memory>

using namespace Qt::StringLiterals;
namespace Login = Platform::LaunchAtLogin;

namespace {

// Set in a copy of this program started by the test: it writes the entry and quits, so
// that the entry names the copy's path.
constexpr const char *kWriteEntry = "QUORVEL_TEST_WRITE_ENTRY";
// What a successful change reads as in a comparison, so that a failure shows its reason.
const QString kDone = u"(done)"_s;

void writeText(const QString &path, const QByteArray &text)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) >= 0);
}

// The program an entry's Exec line names, read the way a launcher reads it: the value's
// string escapes first, then the quoting, then "%".
QString execProgram(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QString value;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("Exec="))
            value = QString::fromUtf8(line.mid(5));
    }
    QString plain, program;
    for (qsizetype i = 0; i < value.size(); ++i) {
        QChar c = value[i];
        if (c == u'\\' && i + 1 < value.size()) {
            c = value[++i];
            c = c == u's' ? u' ' : c == u't' ? u'\t' : c;
        }
        plain += c;
    }
    bool quoted = false;
    for (qsizetype i = 0; i < plain.size() && (quoted || plain[i] != u' '); ++i) {
        if (plain[i] == u'"')
            quoted = !quoted;
        else
            program += quoted && plain[i] == u'\\' && i + 1 < plain.size() ? plain[++i] : plain[i];
    }
    // A lone "%" starts a field code, which launchers would replace.
    if (QString(program).remove(u"%%"_s).contains(u'%'))
        return u"(field code) "_s + program;
    return program.replace(u"%%"_s, u"%"_s);
}

// desktop-file-validate's complaints, empty when the entry passes; none without the tool.
std::optional<QByteArray> validatorErrors(const QString &path)
{
    const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
    if (validator.isEmpty())
        return std::nullopt;
    QProcess run;
    run.start(validator, {path});
    if (!run.waitForFinished(30'000))
        return QByteArray("desktop-file-validate did not finish");
    const QByteArray output = run.readAllStandardOutput() + run.readAllStandardError();
    return run.exitCode() == 0 && !output.contains("error") ? QByteArray() : output + "(failed)";
}

} // namespace

class LaunchAtLoginTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init()
    {
        qputenv("XDG_CONFIG_HOME", config().toUtf8());
        QVERIFY(QDir(m_home->path()).removeRecursively() && QDir().mkpath(m_home->path()));
    }

    void onAndOff()
    {
        QVERIFY(!Login::enabled(Locations::fromEnvironment().userFolders()));
        QCOMPARE(Login::set(Locations::fromEnvironment().userFolders(), true).value_or(kDone),
                 kDone);
        QVERIFY(Login::enabled(Locations::fromEnvironment().userFolders()));
        QCOMPARE(execProgram(entry()), QCoreApplication::applicationFilePath());
        const std::optional<QByteArray> complaints = validatorErrors(entry());
        QCOMPARE(complaints.value_or(QByteArray()), QByteArray());
        // Missing folders are made private to the user.
        QVERIFY(!(QFile::permissions(config()) & (QFile::ReadGroup | QFile::ReadOther)));
        // On again is no failure, nor is off when already off.
        QCOMPARE(Login::set(Locations::fromEnvironment().userFolders(), true).value_or(kDone),
                 kDone);
        QCOMPARE(Login::set(Locations::fromEnvironment().userFolders(), false).value_or(kDone),
                 kDone);
        QVERIFY(!QFileInfo::exists(entry()));
        QVERIFY(!Login::enabled(Locations::fromEnvironment().userFolders()));
        QCOMPARE(Login::set(Locations::fromEnvironment().userFolders(), false).value_or(kDone),
                 kDone);
        if (!complaints)
            QSKIP("desktop-file-validate is not installed: the entry went unchecked");
    }

    // The entry must start the program from wherever it lies: a copy of this test program in
    // an awkward folder writes it, and reading Exec back must give that copy's path.
    void execQuoting()
    {
        const QString copy = m_home->file(u"My Apps/a$b`c'd\"e\\f%d/quorvel"_s);
        QVERIFY(QDir().mkpath(QFileInfo(copy).path()));
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), copy));
        QVERIFY(QFile::setPermissions(copy, QFile::ReadOwner | QFile::ExeOwner));
        qputenv(kWriteEntry, "1");
        const int exitCode = QProcess::execute(copy, {});
        qunsetenv(kWriteEntry);
        QCOMPARE(exitCode, 0);
        QCOMPARE(execProgram(entry()), copy);
        QCOMPARE(validatorErrors(entry()).value_or(QByteArray()), QByteArray());
    }

    void readsEntry_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("on");
        const QByteArray minimal = "[Desktop Entry]\nType=Application\nName=Quorvel\nExec=q\n";
        QTest::newRow("minimal entry") << minimal << true;
        QTest::newRow("hidden") << minimal + "Hidden=true\n" << false;
        QTest::newRow("GNOME switch off") << minimal + "X-GNOME-Autostart-enabled=false\n" << false;
        QTest::newRow("spaces around =") << minimal + "Hidden = true\n" << false;
        QTest::newRow("CRLF line ends") << QByteArray("[Desktop Entry]\r\nExec=q\r\n") << true;
        QTest::newRow("commented out") << minimal + "#Hidden=true\n" << true;
        QTest::newRow("keys in another group")
            << minimal + "[Desktop Action quit]\nX-GNOME-Autostart-enabled=false\n"
            << true;
        QTest::newRow("no Desktop Entry group") << QByteArray("[Other]\nExec=q\n") << false;
        QTest::newRow("localized key is another key") << minimal + "Hidden[de]=true\n" << true;
    }
    void readsEntry()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, on);
        writeText(entry(), text);
        QCOMPARE(Login::enabled(Locations::fromEnvironment().userFolders()), on);
    }

    // A file where the autostart folder must go: the switch has to report it and stay off.
    void blockedFolder()
    {
        writeText(config() + u"/autostart"_s, "not a folder");
        const std::optional<QString> error =
            Login::set(Locations::fromEnvironment().userFolders(), true);
        QVERIFY(error && !error->isEmpty());
        QVERIFY(!Login::enabled(Locations::fromEnvironment().userFolders()));
    }

    // XDG ignores a relative value, and so must the working folder: it means ~/.config.
    void relativeConfigHome()
    {
        qputenv("XDG_CONFIG_HOME", "cfg");
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_home->path()));
        const std::optional<QString> error =
            Login::set(Locations::fromEnvironment().userFolders(), true);
        QVERIFY(QDir::setCurrent(previous));
        QCOMPARE(error.value_or(kDone), kDone);
        QVERIFY(QFileInfo::exists(m_home->file(u".config/autostart/quorvel.desktop"_s)));
        QVERIFY(!QFileInfo::exists(entry()));
    }

private:
    QString config() const { return m_home->file(u"cfg"_s); }
    QString entry() const { return config() + u"/autostart/quorvel.desktop"_s; }
    std::unique_ptr<TestHome> m_home;
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet(kWriteEntry))
        return Login::set(Locations::fromEnvironment().userFolders(), true) ? 1 : 0;
    LaunchAtLoginTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_launchatlogin.moc"
