#include "common/PeakMemory.h"
#include "common/TestHome.h"
#include "core/process/Shell.h"

#include <QElapsedTimer>
#include <QFile>
#include <QtTest>

#include <fcntl.h>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;
using Env = QMap<QString, QString>;
using Result = std::optional<QString>;

// Found through QString by argument-dependent lookup, so failed comparisons show both sides.
static char *toString(const Result &value)
{
    return value ? QTest::toString(*value) : qstrdup("nullopt");
}

namespace {

const QString kSh = u"/bin/sh"_s;

Result sh(const QString &script, double timeoutSeconds = 10.0)
{
    return Shell::run(kSh, {u"-c"_s, script}, {}, timeoutSeconds);
}

// The value of `name` as the child saw it, read back from env's listing; nullopt when the
// child did not have it.
Result childVariable(const QString &name, const Env &env = {})
{
    const Result listing = Shell::run(u"/usr/bin/env"_s, {}, env);
    if (!listing)
        return std::nullopt;
    const QString prefix = name + u'=';
    for (const QString &line : listing->split(u'\n'))
        if (line.startsWith(prefix))
            return line.mid(prefix.size());
    return std::nullopt;
}

bool writeFile(const QString &path, QByteArrayView bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) &&
           file.write(bytes.data(), bytes.size()) == bytes.size();
}

// Points our own standard input at a file for as long as it lives, so what the child
// inherits is known instead of whatever the test runner was started with.
class StdinFrom
{
public:
    explicit StdinFrom(const QString &path) : m_saved(::dup(STDIN_FILENO))
    {
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY);
        m_ok = m_saved >= 0 && fd >= 0 && ::dup2(fd, STDIN_FILENO) == STDIN_FILENO;
        if (fd >= 0)
            ::close(fd);
    }
    ~StdinFrom()
    {
        if (m_saved >= 0) {
            ::dup2(m_saved, STDIN_FILENO);
            ::close(m_saved);
        }
    }
    StdinFrom(const StdinFrom &) = delete;
    StdinFrom &operator=(const StdinFrom &) = delete;
    bool ok() const { return m_ok; }

private:
    int m_saved;
    bool m_ok = false;
};

} // namespace

class TestShell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        qputenv("QUORVEL_TEST_INHERITED", "from-parent");
        QVERIFY(writeFile(m_home->file(u"script.sh"_s), "#!/bin/sh\necho should-not-run\n"));
        QVERIFY(writeFile(m_home->file(u"stdin.txt"_s), "from our stdin\n"));
    }

    void cannotStart_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("missing file") << m_home->file(u"no-such-program"_s);
        QTest::newRow("directory") << m_home->path();
        QTest::newRow("not executable") << m_home->file(u"script.sh"_s);
        QTest::newRow("empty path") << QString();
    }
    void cannotStart()
    {
        QFETCH(QString, program);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(Shell::run(program, {}, {}, 20.0), Result());
        QVERIFY2(clock.elapsed() < 5000, "a failed start waited for the time limit");
    }

    // The exit status never matters: whatever reached stdout is the answer.
    void output_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");
        QTest::newRow("stdout") << kSh << QStringList{u"-c"_s, u"printf hello"_s} << u"hello"_s;
        QTest::newRow("non-zero exit keeps output")
            << kSh << QStringList{u"-c"_s, u"echo out; exit 3"_s} << u"out\n"_s;
        QTest::newRow("stderr only, exit 1")
            << kSh << QStringList{u"-c"_s, u"echo err >&2; exit 1"_s} << QString();
        QTest::newRow("prints nothing") << u"/bin/true"_s << QStringList() << QString();
        QTest::newRow("killed by a signal")
            << kSh << QStringList{u"-c"_s, u"echo before; kill -KILL $$"_s} << u"before\n"_s;
        const QStringList quoting{u"a b"_s, u"$HOME"_s, u"*"_s, QString(), u"it's"_s};
        QTest::newRow("arguments reach the program untouched")
            << kSh << QStringList{u"-c"_s, u"printf '%s|' \"$@\""_s, u"sh"_s} + quoting
            << u"a b|$HOME|*||it's|"_s;
        QTest::newRow("megabytes on stderr do not hold it up")
            << kSh
            << QStringList{u"-c"_s, u"echo first; head -c 8000000 /dev/zero >&2; echo last"_s}
            << u"first\nlast\n"_s;
        QTest::newRow("large stdout")
            << kSh << QStringList{u"-c"_s, u"head -c 3000000 /dev/zero | tr '\\0' a"_s}
            << QString(3000000, u'a');
    }
    void output()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(QString, expected);
        const Result result = Shell::run(program, arguments);
        QVERIFY(result.has_value());
        QCOMPARE(result->size(), expected.size());
        QCOMPARE(*result, expected);
    }

    void decoding_data()
    {
        QTest::addColumn<QString>("printfFormat");
        QTest::addColumn<Result>("expected");
        QTest::newRow("chinese") << u"\\344\\270\\255\\346\\226\\207\\n"_s << Result(u"中文\n"_s);
        QTest::newRow("emoji") << u"\\360\\237\\247\\271"_s << Result(u"🧹"_s);
        QTest::newRow("stray byte") << u"ok\\377"_s << Result();
        QTest::newRow("cut-off sequence at end") << u"ok\\344\\270"_s << Result();
        QTest::newRow("overlong encoding") << u"\\300\\257"_s << Result();
        QTest::newRow("encoded surrogate") << u"\\355\\240\\200"_s << Result();
    }
    void decoding()
    {
        QFETCH(QString, printfFormat);
        QFETCH(Result, expected);
        QCOMPARE(sh(u"printf '"_s + printfFormat + u'\''), expected);
    }

    void environment_data()
    {
        QTest::addColumn<Env>("env");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");
        const QString path = QString::fromLatin1(Shell::kFixedPath);
        QTest::newRow("fixed PATH") << Env() << u"PATH"_s << path;
        QTest::newRow("auto update off") << Env() << u"HOMEBREW_NO_AUTO_UPDATE"_s << u"1"_s;
        QTest::newRow("env hints off") << Env() << u"HOMEBREW_NO_ENV_HINTS"_s << u"1"_s;
        QTest::newRow("inherited") << Env() << u"QUORVEL_TEST_INHERITED"_s << u"from-parent"_s;
        QTest::newRow("inherited HOME") << Env() << u"HOME"_s << m_home->path();
        QTest::newRow("caller PATH wins")
            << Env{{u"PATH"_s, u"/custom/bin:/bin"_s}} << u"PATH"_s << u"/custom/bin:/bin"_s;
        QTest::newRow("caller overrides a fixed setting")
            << Env{{u"HOMEBREW_NO_AUTO_UPDATE"_s, u"0"_s}} << u"HOMEBREW_NO_AUTO_UPDATE"_s
            << u"0"_s;
        QTest::newRow("caller overrides an inherited variable")
            << Env{{u"QUORVEL_TEST_INHERITED"_s, u"caller"_s}} << u"QUORVEL_TEST_INHERITED"_s
            << u"caller"_s;
        QTest::newRow("caller extra") << Env{{u"QUORVEL_EXTRA"_s, u"x y=z"_s}, {u"OTHER"_s, u"o"_s}}
                                      << u"QUORVEL_EXTRA"_s << u"x y=z"_s;
    }
    void environment()
    {
        QFETCH(Env, env);
        QFETCH(QString, name);
        QFETCH(QString, expected);
        QCOMPARE(childVariable(name, env), Result(expected));
    }

    void callerEnvironmentStaysWithThatCall()
    {
        const QByteArray ourPath = qgetenv("PATH");
        const Env env{{u"PATH"_s, u"/custom/bin"_s}, {u"QUORVEL_EXTRA"_s, u"1"_s}};
        QCOMPARE(childVariable(u"PATH"_s, env), Result(u"/custom/bin"_s));

        QCOMPARE(childVariable(u"QUORVEL_EXTRA"_s), Result());
        QCOMPARE(childVariable(u"PATH"_s), Result(QString::fromLatin1(Shell::kFixedPath)));
        QCOMPARE(qgetenv("PATH"), ourPath);
        QVERIFY(!qEnvironmentVariableIsSet("QUORVEL_EXTRA"));
    }

    // SIGTERM at the limit, SIGKILL for whoever ignores it; the output so far is kept.
    void timeLimit_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<double>("limit");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<qint64>("atLeastMs");
        QTest::addColumn<qint64>("underMs");
        QTest::newRow("sleeper is stopped")
            << u"echo partial; exec sleep 30"_s << 1.0 << u"partial\n"_s << 900LL << 10000LL;
        QTest::newRow("SIGTERM comes first")
            << u"trap 'echo got-term; kill $p; exit 0' TERM; echo start; "
               "sleep 30 >/dev/null 2>&1 & p=$!; wait $p"_s
            << 0.5 << u"start\ngot-term\n"_s << 400LL << 5000LL;
        QTest::newRow("SIGTERM ignored, killed after grace")
            << u"trap '' TERM; echo stubborn; exec sleep 60"_s << 1.0 << u"stubborn\n"_s << 4000LL
            << 15000LL;
        QTest::newRow("background child holding stdout is not waited for")
            << u"echo hi; sleep 5 & echo bye"_s << 10.0 << u"hi\nbye\n"_s << 0LL << 3000LL;
    }
    void timeLimit()
    {
        QFETCH(QString, script);
        QFETCH(double, limit);
        QFETCH(QString, expected);
        QFETCH(qint64, atLeastMs);
        QFETCH(qint64, underMs);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(sh(script, limit), Result(expected));
        const qint64 elapsed = clock.elapsed();
        QVERIFY2(elapsed >= atLeastMs, "stopped too early");
        QVERIFY2(elapsed < underMs, "the call outlived its time limit");
    }

    // Output past the cap is no answer, and a flood is stopped at the cap rather than at the
    // time limit. Memory stays bounded at any rate; the flood runs first, before the rows
    // that need the full cap raise the high-water mark.
    void outputCap_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<qsizetype>("expectedSize"); // -1: nullopt
        const QString cap = QString::number(Shell::maxOutputBytes);
        QTest::newRow("endless output") << u"exec yes"_s << qsizetype(-1);
        QTest::newRow("endless output, SIGTERM ignored")
            << u"trap '' TERM; exec yes"_s << qsizetype(-1);
        QTest::newRow("exactly the cap")
            << u"head -c "_s + cap + u" /dev/zero | tr '\\0' a"_s << Shell::maxOutputBytes;
        QTest::newRow("one byte past the cap")
            << u"head -c "_s + cap + u" /dev/zero | tr '\\0' a; echo"_s << qsizetype(-1);
    }
    void outputCap()
    {
        QFETCH(QString, script);
        QFETCH(qsizetype, expectedSize);
        QElapsedTimer clock;
        clock.start();
        const Result result = sh(script, 60.0);
        QVERIFY2(clock.elapsed() < 15000, "the flood ran into the time limit");
        QCOMPARE(result ? result->size() : -1, expectedSize);
        const qint64 peak = peakResidentMiB();
        QVERIFY2(peak > 0 && peak < 128, QByteArray::number(peak).constData());
    }

    // Standard input is ours, not a pipe left open: the child reads what we would read.
    void standardInputIsInherited_data()
    {
        QTest::addColumn<QString>("stdinFile");
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QString>("expected");
        const QString text = m_home->file(u"stdin.txt"_s);
        const QString null = u"/dev/null"_s;
        QTest::newRow("cat, empty input") << null << QStringList{u"/bin/cat"_s} << QString();
        QTest::newRow("read, empty input")
            << null << QStringList{kSh, u"-c"_s, u"read x; echo \"got:$x\""_s} << u"got:\n"_s;
        QTest::newRow("cat, our input")
            << text << QStringList{u"/bin/cat"_s} << u"from our stdin\n"_s;
    }
    void standardInputIsInherited()
    {
        QFETCH(QString, stdinFile);
        QFETCH(QStringList, command);
        QFETCH(QString, expected);
        Result result;
        QElapsedTimer clock;
        {
            StdinFrom redirect(stdinFile);
            QVERIFY(redirect.ok());
            clock.start();
            result = Shell::run(command.first(), command.mid(1), {}, 8.0);
        }
        QVERIFY2(clock.elapsed() < 5000, "the child waited for input that never ends");
        QCOMPARE(result, Result(expected));
    }

    // Worker threads have no event loop and share nothing.
    void concurrentCallsKeepTheirOwnOutput()
    {
        constexpr int kWorkers = 6;
        std::vector<Result> results(kWorkers);
        std::vector<std::thread> threads;
        for (int i = 0; i < kWorkers; ++i)
            threads.emplace_back([&results, i] {
                results[i] = Shell::run(kSh, {u"-c"_s, u"sleep 0.3; printf \"worker-$W\""_s},
                                        {{u"W"_s, QString::number(i)}}, 10.0);
            });
        for (std::thread &t : threads)
            t.join();
        for (int i = 0; i < kWorkers; ++i)
            QCOMPARE(results[i], Result(u"worker-"_s + QString::number(i)));
    }

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_GUILESS_MAIN(TestShell)
#include "tst_shell.moc"
