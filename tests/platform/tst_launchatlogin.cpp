#include "common/TestHome.h"
#include "platform/LaunchAtLogin.h"

#include <QDirIterator>
#include <QProcess>
#include <QStandardPaths>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
namespace Login = Platform::LaunchAtLogin;

namespace {

// Set in a copy of this program started by the test: it writes the entry and quits, so
// that the entry names the copy's path.
constexpr const char *kWriteEntry = "QUORVEL_TEST_WRITE_ENTRY";
// What a successful change reads as in a comparison, so that a failure shows its reason.
const QString kDone = u"(done)"_s;

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeText(const QString &path, const QByteArray &text)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(text), qint64(text.size()));
}

int mode(const QString &path)
{
    struct stat st
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

QString execValue(const QByteArray &entry)
{
    for (const QByteArray &line : entry.split('\n')) {
        if (line.startsWith("Exec="))
            return QString::fromUtf8(line.mid(5));
    }
    return {};
}

// The program named by an Exec value, read the way a launcher reads it: the value's
// string escapes first, then the quoting, then "%%".
QString execProgram(const QString &value)
{
    QString unescaped;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            unescaped += value[i];
            continue;
        }
        const QChar next = value[++i];
        unescaped += next == u's'   ? u' '
                     : next == u'n' ? u'\n'
                     : next == u't' ? u'\t'
                     : next == u'r' ? u'\r'
                                    : next;
    }
    QString program;
    bool quoted = false;
    for (qsizetype i = 0; i < unescaped.size(); ++i) {
        const QChar c = unescaped[i];
        if (c == u'"')
            quoted = !quoted;
        else if (quoted && c == u'\\' && i + 1 < unescaped.size())
            program += unescaped[++i];
        else if (!quoted && c == u' ')
            break;
        else
            program += c;
    }
    return program.replace(u"%%"_s, u"%"_s);
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
        QVERIFY(QDir(m_home->path()).removeRecursively());
        QVERIFY(QDir().mkpath(m_home->path()));
    }

    void switchOn_data();
    void switchOn();
    void switchOff();
    void entryPassesValidator();
    void execQuoting_data();
    void execQuoting();
    void readsEntry_data();
    void readsEntry();
    void blockedFolder_data();
    void blockedFolder();
    void configHome_data();
    void configHome();

private:
    QString config() const { return m_home->file(u"cfg"_s); }
    QString entry() const { return config() + u"/autostart/quorvel.desktop"_s; }
    std::unique_ptr<TestHome> m_home;
};

void LaunchAtLoginTest::switchOn_data()
{
    QTest::addColumn<bool>("autostartExists");
    QTest::addColumn<int>("autostartMode");
    QTest::newRow("folders missing") << false << 0700;
    QTest::newRow("folder kept as it was") << true << 0755;
}

void LaunchAtLoginTest::switchOn()
{
    QFETCH(bool, autostartExists);
    QFETCH(int, autostartMode);
    if (autostartExists) {
        QVERIFY(QDir().mkpath(config() + u"/autostart"_s));
        QCOMPARE(::chmod(QFile::encodeName(config() + u"/autostart"_s).constData(), 0755), 0);
    }
    QVERIFY(!Login::enabled());
    QCOMPARE(Login::set(true).value_or(kDone), kDone);
    QVERIFY(Login::enabled());
    QCOMPARE(mode(config() + u"/autostart"_s), autostartMode);
    if (!autostartExists)
        QCOMPARE(mode(config()), 0700);

    const QByteArray text = readAll(entry());
    QVERIFY(text.startsWith("[Desktop Entry]\n"));
    for (const char *line : {"Type=Application\n", "Name=Quorvel\n", "Icon=quorvel\n",
                             "Terminal=false\n", "X-GNOME-Autostart-enabled=true\n"})
        QVERIFY2(text.contains(line), line);
    const QString program = execProgram(execValue(text));
    QVERIFY(QFileInfo(program).isAbsolute());
    QCOMPARE(program, QCoreApplication::applicationFilePath());

    // On again rewrites the same entry instead of failing.
    QCOMPARE(Login::set(true).value_or(kDone), kDone);
    QCOMPARE(readAll(entry()), text);
    QCOMPARE(QDir(config() + u"/autostart"_s).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{u"quorvel.desktop"_s});
}

void LaunchAtLoginTest::switchOff()
{
    QCOMPARE(Login::set(true).value_or(kDone), kDone);
    QCOMPARE(Login::set(false).value_or(kDone), kDone);
    QVERIFY(!QFileInfo::exists(entry()));
    QVERIFY(!Login::enabled());
    // Already off is not a failure.
    QCOMPARE(Login::set(false).value_or(kDone), kDone);

    // A hidden entry written by the desktop is removed too.
    writeText(entry(), "[Desktop Entry]\nType=Application\nExec=x\nHidden=true\n");
    QCOMPARE(Login::set(false).value_or(kDone), kDone);
    QVERIFY(!QFileInfo::exists(entry()));
}

void LaunchAtLoginTest::entryPassesValidator()
{
    const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
    if (validator.isEmpty())
        QSKIP("desktop-file-validate is not installed");
    QCOMPARE(Login::set(true).value_or(kDone), kDone);
    QProcess run;
    run.start(validator, {entry()});
    QVERIFY(run.waitForFinished(30'000));
    const QByteArray output = run.readAllStandardOutput() + run.readAllStandardError();
    QVERIFY2(run.exitCode() == 0 && !output.contains("error"), output.constData());
}

void LaunchAtLoginTest::execQuoting_data()
{
    QTest::addColumn<QString>("folder");
    QTest::newRow("plain") << u"bin"_s;
    QTest::newRow("space") << u"My Apps"_s;
    QTest::newRow("shell characters") << u"a$b`c'd;e&f"_s;
    QTest::newRow("double quote") << u"say \"hi\""_s;
    QTest::newRow("backslash") << u"back\\slash"_s;
    QTest::newRow("percent") << u"100%d"_s;
    QTest::newRow("tab and hash") << u"a\tb#c"_s;
}

// The entry must start the program from wherever it lies: a copy of this test program in
// an awkward folder writes it, and reading Exec back must give that copy's path.
void LaunchAtLoginTest::execQuoting()
{
    QFETCH(QString, folder);
    const QString dir = m_home->file(u"apps/"_s + folder);
    QVERIFY(QDir().mkpath(dir));
    const QString copy = dir + u"/quorvel"_s;
    const QByteArray self = QFile::encodeName(QCoreApplication::applicationFilePath());
    if (::link(self.constData(), QFile::encodeName(copy).constData()) != 0) {
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), copy));
        QVERIFY(QFile::setPermissions(copy, QFile::ReadOwner | QFile::ExeOwner));
    }
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(kWriteEntry), u"1"_s);
    child.setProcessEnvironment(environment);
    child.start(copy, {});
    QVERIFY(child.waitForFinished(30'000));
    QCOMPARE(child.exitCode(), 0);

    const QByteArray text = readAll(entry());
    QCOMPARE(execProgram(execValue(text)), copy);
    QVERIFY(Login::enabled());
    const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
    if (validator.isEmpty())
        return;
    QProcess run;
    run.start(validator, {entry()});
    QVERIFY(run.waitForFinished(30'000));
    QVERIFY2(run.exitCode() == 0, (run.readAllStandardOutput() + text).constData());
}

void LaunchAtLoginTest::readsEntry_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("on");
    const QByteArray minimal = "[Desktop Entry]\nType=Application\nName=Quorvel\nExec=quorvel\n";
    QTest::newRow("minimal entry") << minimal << true;
    QTest::newRow("hidden") << minimal + "Hidden=true\n" << false;
    QTest::newRow("hidden false") << minimal + "Hidden=false\n" << true;
    QTest::newRow("GNOME switch off") << minimal + "X-GNOME-Autostart-enabled=false\n" << false;
    QTest::newRow("GNOME switch on") << minimal + "X-GNOME-Autostart-enabled=true\n" << true;
    QTest::newRow("spaces around the equals sign") << minimal + "Hidden = true\n" << false;
    QTest::newRow("CRLF line ends")
        << QByteArray("[Desktop Entry]\r\nExec=quorvel\r\nHidden=true\r\n") << false;
    QTest::newRow("commented out") << minimal + "#Hidden=true\n# X-GNOME-Autostart-enabled=false\n"
                                   << true;
    QTest::newRow("keys in an action group")
        << minimal + "\n[Desktop Action quit]\nName=Quit\nHidden=true\n"
                     "X-GNOME-Autostart-enabled=false\n"
        << true;
    QTest::newRow("keys in a group before the entry")
        << "[Extra]\nHidden=true\n\n" + minimal << true;
    QTest::newRow("no Desktop Entry group")
        << QByteArray("[Other]\nType=Application\nExec=q\n") << false;
    QTest::newRow("empty file") << QByteArray() << false;
    QTest::newRow("localized key is another key") << minimal + "Hidden[de]=true\n" << true;
}

void LaunchAtLoginTest::readsEntry()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, on);
    writeText(entry(), text);
    QCOMPARE(Login::enabled(), on);
}

void LaunchAtLoginTest::blockedFolder_data()
{
    QTest::addColumn<QString>("blocker"); // a plain file where a folder must go
    QTest::newRow("autostart is a file") << u"autostart"_s;
    QTest::newRow("config folder is a file") << QString();
}

void LaunchAtLoginTest::blockedFolder()
{
    QFETCH(QString, blocker);
    writeText(blocker.isEmpty() ? config() : config() + u'/' + blocker, "not a folder");
    const std::optional<QString> error = Login::set(true);
    QVERIFY(error.has_value());
    QVERIFY(!error->isEmpty());
    QVERIFY(!Login::enabled());
}

void LaunchAtLoginTest::configHome_data()
{
    QTest::addColumn<QByteArray>("value"); // "-" leaves the variable unset
    QTest::addColumn<QString>("folder");   // below HOME
    QTest::newRow("absolute") << QByteArray() << u"cfg"_s;
    QTest::newRow("unset") << QByteArray("-") << u".config"_s;
    QTest::newRow("empty") << QByteArray("") << u".config"_s;
    QTest::newRow("relative") << QByteArray("cfg") << u".config"_s;
}

void LaunchAtLoginTest::configHome()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, folder);
    if (value == "-")
        qunsetenv("XDG_CONFIG_HOME");
    else if (!value.isNull())
        qputenv("XDG_CONFIG_HOME", value);
    // A relative value must not be taken from the working folder either.
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_home->path()));
    const std::optional<QString> error = Login::set(true);
    const bool on = Login::enabled();
    QVERIFY(QDir::setCurrent(previous));
    QCOMPARE(error.value_or(kDone), kDone);
    QVERIFY(on);
    const QString expected = m_home->file(folder + u"/autostart/quorvel.desktop"_s);
    QVERIFY2(QFileInfo::exists(expected), qPrintable(expected));
    QStringList desktopFiles;
    QDirIterator it(m_home->path(), {u"*.desktop"_s}, QDir::Files | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        desktopFiles.append(it.next());
    QCOMPARE(desktopFiles, QStringList{expected});
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet(kWriteEntry))
        return Login::set(true) ? 1 : 0;
    LaunchAtLoginTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_launchatlogin.moc"
