#include "common/TestHome.h"

#include "core/updates/Homebrew.h"
#include "platform/Homebrew.h"

#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;
using Source = OutdatedApp::Source;

Q_DECLARE_METATYPE(OutdatedApp)

char *toString(const OutdatedApp &app)
{
    const QString text = u"{%1 | %2 | %3 | %4 | %5}"_s.arg(app.id, app.name, app.installed,
                                                           app.latest, rawValue(app.source));
    return qstrdup(text.toUtf8().constData());
}

namespace {

// Shaped like `brew outdated --json=v2` from a current Homebrew, with a cask in the older
// form whose installed_versions is a single string.
const QByteArray kAnswer = R"({
  "formulae": [
    {"name": "wget", "installed_versions": ["1.21.3"], "current_version": "1.21.4",
     "pinned": false, "pinned_version": null},
    {"name": "python@3.11", "installed_versions": ["3.11.4_1", "3.11.5"],
     "current_version": "3.11.6", "pinned": true, "pinned_version": "3.11.5"},
    {"name": "openssl@3", "installed_versions": [], "current_version": "3.1.3",
     "pinned": false, "pinned_version": null}
  ],
  "casks": [
    {"name": "iterm2", "installed_versions": "3.4.19", "current_version": "3.4.20"},
    {"name": "firefox", "installed_versions": ["118.0.1"], "current_version": "118.0.2"},
    {"name": "visual-studio-code", "installed_versions": ["1.82.2", "1.83.0"],
     "current_version": "1.83.1"}
  ]
}
)";

OutdatedApp record(Source source, const QString &name, const QString &installed,
                   const QString &latest)
{
    const QString prefix = source == Source::brewCask ? u"cask:"_s : u"brew:"_s;
    return {prefix + name, name, installed, latest, source, std::nullopt};
}

OutdatedApp formula(const QString &name, const QString &installed, const QString &latest)
{
    return record(Source::brewFormula, name, installed, latest);
}

const QList<OutdatedApp> kFormulae{formula(u"wget"_s, u"1.21.3"_s, u"1.21.4"_s),
                                   formula(u"python@3.11"_s, u"3.11.4_1, 3.11.5"_s, u"3.11.6"_s),
                                   formula(u"openssl@3"_s, QString(), u"3.1.3"_s)};
const QList<OutdatedApp> kCasks{
    record(Source::brewCask, u"iterm2"_s, u"3.4.19"_s, u"3.4.20"_s),
    record(Source::brewCask, u"firefox"_s, u"118.0.1"_s, u"118.0.2"_s),
    record(Source::brewCask, u"visual-studio-code"_s, u"1.82.2, 1.83.0"_s, u"1.83.1"_s)};
const QByteArray kFailure = "==> Upgrading wget\nError: it failed\n";
const QByteArray kCasksJson = R"("casks": [{"name": "iterm2", "installed_versions": "3.4.19",
                                            "current_version": "3.4.20"}])";

// One formula element with `fields` laid into an otherwise valid answer.
QByteArray withFormula(const QByteArray &fields)
{
    return "{\"formulae\": [{" + fields + "}], " + kCasksJson + "}";
}

bool writeFile(const QString &path, const QByteArray &bytes, bool executable = false)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return false;
    file.close();
    return !executable || file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
}

} // namespace

class HomebrewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void sourceNames_data();
    void sourceNames();
    void parse_data();
    void parse();
    void element_data();
    void element();
    void brewPath_data();
    void brewPath();
    void defaultCandidates();
    void outdated_data();
    void outdated();
    void outdatedWithoutBrew();
    void upgrade_data();
    void upgrade();

private:
    // A fake brew that records its arguments and prints `output` to stdout, noise to stderr.
    QString fakeBrew(const QByteArray &output, int exitCode = 0);
    QStringList recordedArguments() const;

    std::unique_ptr<TestHome> m_home;
    QString m_bin;
};

void HomebrewTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    m_bin = m_home->file(u"bin"_s);
    QVERIFY(QDir().mkpath(m_bin));
}

void HomebrewTest::init()
{
    QFile::remove(m_bin + u"/argv"_s);
}

QString HomebrewTest::fakeBrew(const QByteArray &output, int exitCode)
{
    const QString answer = m_bin + u"/answer"_s;
    const QString brew = m_bin + u"/brew"_s;
    const QByteArray script = "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + QFile::encodeName(m_bin) +
                              "/argv'\ncat '" + QFile::encodeName(answer) +
                              "'\necho 'Warning: noise' >&2\nexit " + QByteArray::number(exitCode) +
                              "\n";
    if (!writeFile(answer, output) || !writeFile(brew, script, true))
        return {};
    return brew;
}

QStringList HomebrewTest::recordedArguments() const
{
    QFile file(m_bin + u"/argv"_s);
    const QString text =
        file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    return text.isEmpty() ? QStringList() : text.chopped(1).split(u'\n');
}

void HomebrewTest::sourceNames_data()
{
    QTest::addColumn<QString>("raw");
    QTest::addColumn<int>("source"); // -1: not a source name
    QTest::newRow("brewFormula") << u"brewFormula"_s << int(Source::brewFormula);
    QTest::newRow("brewCask") << u"brewCask"_s << int(Source::brewCask);
    QTest::newRow("appStore") << u"appStore"_s << int(Source::appStore);
    QTest::newRow("sparkle") << u"sparkle"_s << int(Source::sparkle);
    QTest::newRow("other case") << u"BrewFormula"_s << -1;
    QTest::newRow("padded") << u"sparkle "_s << -1;
    QTest::newRow("empty") << QString() << -1;
}

void HomebrewTest::sourceNames()
{
    QFETCH(QString, raw);
    QFETCH(int, source);
    const std::optional<Source> parsed = outdatedSourceFromRaw(raw);
    QCOMPARE(parsed.has_value(), source >= 0);
    if (source >= 0) {
        QCOMPARE(int(*parsed), source);
        QCOMPARE(rawValue(Source(source)), raw);
    }
}

void HomebrewTest::parse_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QList<OutdatedApp>>("expected");
    const QList<OutdatedApp> none;
    const QList<OutdatedApp> iterm{kCasks.first()};

    // Whole answers
    QTest::newRow("real answer") << kAnswer << kFormulae + kCasks;
    QTest::newRow("empty groups") << QByteArray(R"({"formulae": [], "casks": []})") << none;
    QTest::newRow("casks only") << "{" + kCasksJson + "}" << iterm;
    QTest::newRow("casks key first")
        << "{" + kCasksJson + R"(, "formulae": [{"name": "wget", "current_version": "2"}]})"
        << QList<OutdatedApp>{formula(u"wget"_s, {}, u"2"_s), kCasks.first()};
    QTest::newRow("duplicates kept")
        << QByteArray(R"({"formulae": [{"name": "a"}, {"name": "a"}]})")
        << QList<OutdatedApp>{formula(u"a"_s, {}, {}), formula(u"a"_s, {}, {})};
    QTest::newRow("not json") << QByteArray("Error: Unknown command: outdatd") << none;
    QTest::newRow("empty output") << QByteArray() << none;
    QTest::newRow("top-level array") << QByteArray(R"([{"name": "wget"}])") << none;
    QTest::newRow("top-level string") << QByteArray(R"("formulae")") << none;
    QTest::newRow("text before json") << "Warning: x\n" + kAnswer << none;

    // A group of the wrong shape is empty; the other group still counts
    for (const char *group : {R"({"name": "wget"})", "null", "[1, 2]", R"(["wget"])",
                              R"([{"name": "wget"}, 3])", R"("wget")"})
        QTest::newRow(group) << "{\"formulae\": " + QByteArray(group) + ", " + kCasksJson + "}"
                             << iterm;
}

void HomebrewTest::parse()
{
    QFETCH(QByteArray, json);
    QFETCH(QList<OutdatedApp>, expected);
    QCOMPARE(Homebrew::parseBrewOutdated(json), expected);
}

void HomebrewTest::element_data()
{
    QTest::addColumn<QByteArray>("fields");
    QTest::addColumn<bool>("listed");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("installed");
    QTest::addColumn<QString>("latest");
    const auto row = [](const char *tag, const QByteArray &fields, bool listed,
                        const QString &name = {}, const QString &installed = {},
                        const QString &latest = {}) {
        QTest::newRow(tag) << fields << listed << name << installed << latest;
    };
    row("name missing", R"("current_version": "2")", false);
    row("name a number", R"("name": 7)", false);
    row("name empty", R"("name": "")", true);
    row("bare name", R"("name": "wget")", true, u"wget"_s);
    row("non-ascii", R"("name": "caf\u00e9", "current_version": "\u4e8c")", true, u"caf\u00E9"_s,
        {}, u"\u4E8C"_s);
    row("installed one string", R"("name": "w", "installed_versions": "1.2")", true, u"w"_s,
        u"1.2"_s);
    row("installed array", R"("name": "w", "installed_versions": ["1.2", "1.3"])", true, u"w"_s,
        u"1.2, 1.3"_s);
    row("installed a number", R"("name": "w", "installed_versions": 1)", true, u"w"_s);
    row("installed mixed", R"("name": "w", "installed_versions": ["1.2", 3])", true, u"w"_s);
    row("installed an object", R"("name": "w", "installed_versions": {"v": "1"})", true, u"w"_s);
    row("latest a number", R"("name": "w", "current_version": 2.5)", true, u"w"_s);
}

// Each element sits in the formulae of an answer whose cask must survive it.
void HomebrewTest::element()
{
    QFETCH(QByteArray, fields);
    QFETCH(bool, listed);
    QFETCH(QString, name);
    QFETCH(QString, installed);
    QFETCH(QString, latest);
    QList<OutdatedApp> expected{kCasks.first()};
    if (listed)
        expected.prepend(formula(name, installed, latest));
    QCOMPARE(Homebrew::parseBrewOutdated(withFormula(fields)), expected);
}

void HomebrewTest::brewPath_data()
{
    // One letter per candidate: m missing, f plain file, x executable, d folder with the
    // execute bit, l link to an executable, g dangling link.
    QTest::addColumn<QString>("kinds");
    QTest::addColumn<int>("chosen"); // -1: none
    QTest::newRow("no candidates") << QString() << -1;
    QTest::newRow("none present") << u"mmm"_s << -1;
    QTest::newRow("first of two") << u"xx"_s << 0;
    QTest::newRow("first missing") << u"mx"_s << 1;
    QTest::newRow("not executable") << u"fx"_s << 1;
    QTest::newRow("folder") << u"dx"_s << 1;
    QTest::newRow("dangling link") << u"gx"_s << 1;
    QTest::newRow("link followed") << u"lx"_s << 0;
    QTest::newRow("only unusable") << u"fdg"_s << -1;
    QTest::newRow("third") << u"mfx"_s << 2;
}

void HomebrewTest::brewPath()
{
    QFETCH(QString, kinds);
    QFETCH(int, chosen);
    QTemporaryDir dir(m_home->file(u"cand-XXXXXX"_s));
    QVERIFY(dir.isValid());
    const QString real = dir.filePath(u"real-brew"_s);
    QVERIFY(writeFile(real, "#!/bin/sh\n", true));
    QStringList candidates;
    for (const QChar kind : std::as_const(kinds)) {
        const QString path = dir.filePath(u"brew%1"_s.arg(candidates.size()));
        candidates << path;
        if (kind == u'f' || kind == u'x')
            QVERIFY(writeFile(path, "#!/bin/sh\n", kind == u'x'));
        else if (kind == u'd')
            QVERIFY(QDir().mkpath(path) &&
                    QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner));
        else if (kind == u'l' || kind == u'g')
            QVERIFY(QFile::link(kind == u'l' ? real : dir.filePath(u"gone"_s), path));
    }
    const std::optional<QString> expected =
        chosen < 0 ? std::nullopt : std::optional<QString>(candidates[chosen]);
    QCOMPARE(Homebrew::brewPath(candidates), expected);
}

void HomebrewTest::defaultCandidates()
{
    const QStringList candidates = Homebrew::defaultBrewCandidates();
    QCOMPARE(candidates.mid(0, 2),
             (QStringList{u"/opt/homebrew/bin/brew"_s, u"/usr/local/bin/brew"_s}));
    QCOMPARE(candidates.mid(2), Platform::extraBrewCandidates());
#if defined(Q_OS_LINUX)
    QCOMPARE(candidates.mid(2), QStringList{u"/home/linuxbrew/.linuxbrew/bin/brew"_s});
#else
    QCOMPARE(candidates.size(), 2);
#endif
}

void HomebrewTest::outdated_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QList<OutdatedApp>>("expected");
    QTest::newRow("answer") << kAnswer << 0 << kFormulae + kCasks;
    QTest::newRow("failed exit status") << kAnswer << 1 << kFormulae + kCasks;
    QTest::newRow("prints nothing") << QByteArray() << 0 << QList<OutdatedApp>{};
    QTest::newRow("not utf-8") << QByteArray(R"({"formulae": [{"name": "w)") + "\xff\xfe" +
                                      R"("}]})"
                               << 0 << QList<OutdatedApp>{};
    QTest::newRow("error text") << QByteArray("Error: No such command") << 1
                                << QList<OutdatedApp>{};
}

void HomebrewTest::outdated()
{
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);
    QFETCH(QList<OutdatedApp>, expected);
    const QString brew = fakeBrew(output, exitCode);
    QVERIFY(!brew.isEmpty());
    QCOMPARE(Homebrew::brewOutdated({m_home->file(u"missing/brew"_s), brew}), expected);
    QCOMPARE(recordedArguments(), (QStringList{u"outdated"_s, u"--json=v2"_s}));
}

void HomebrewTest::outdatedWithoutBrew()
{
    QVERIFY(!fakeBrew(kAnswer).isEmpty());
    QVERIFY(QFile::setPermissions(m_bin + u"/brew"_s, QFileDevice::ReadOwner));
    QCOMPARE(Homebrew::brewOutdated({m_bin + u"/brew"_s}), QList<OutdatedApp>{});
    QCOMPARE(Homebrew::runBrewUpgrade(kFormulae.first(), {m_bin + u"/brew"_s}), std::nullopt);
    QVERIFY(!QFile::exists(m_bin + u"/argv"_s));
}

void HomebrewTest::upgrade_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("printed");
    QTest::addColumn<QString>("output");
    const auto row = [](const char *tag, Source source, const QString &name,
                        const QStringList &arguments, const QByteArray &printed = kFailure,
                        const QString &output = QString::fromUtf8(kFailure)) {
        QTest::newRow(tag) << int(source) << name << arguments << printed << output;
    };
    const QString odd = u"it's a \"b c\" $HOME"_s;
    row("formula", Source::brewFormula, u"wget"_s, {u"upgrade"_s, u"wget"_s});
    row("cask", Source::brewCask, u"iterm2"_s, {u"upgrade"_s, u"--cask"_s, u"iterm2"_s});
    row("app store record", Source::appStore, u"Xcode"_s, {u"upgrade"_s, u"Xcode"_s});
    row("appcast record", Source::sparkle, u"Foo"_s, {u"upgrade"_s, u"Foo"_s});
    row("name verbatim", Source::brewCask, odd, {u"upgrade"_s, u"--cask"_s, odd},
        "\xE2\x9C\x94 done", u"\u2714 done"_s);
    row("prints nothing", Source::brewFormula, u"a"_s, {u"upgrade"_s, u"a"_s}, {}, {});
    row("not utf-8", Source::brewFormula, u"a"_s, {u"upgrade"_s, u"a"_s}, "bad \xC3", {});
}

// The fake brew always exits 1: the output is returned whatever the exit status.
void HomebrewTest::upgrade()
{
    QFETCH(int, source);
    QFETCH(QString, name);
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, printed);
    QFETCH(QString, output);
    const QString brew = fakeBrew(printed, 1);
    QVERIFY(!brew.isEmpty());
    const OutdatedApp app{u"x"_s, name, u"1"_s, u"2"_s, Source(source), std::nullopt};
    QCOMPARE(Homebrew::runBrewUpgrade(app, {m_home->file(u"missing"_s), brew}),
             std::optional<QString>(output));
    QCOMPARE(recordedArguments(), arguments);
}

QTEST_GUILESS_MAIN(HomebrewTest)
#include "tst_homebrew.moc"
