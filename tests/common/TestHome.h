#pragma once

#include <QByteArray>
#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

// Points HOME at a fresh temporary folder and clears the XDG variables for the whole test
// run, so no test ever reaches the developer's own files. Create it in initTestCase,
// before anything reads the home folder (the guard and the log fix it at first use).
class TestHome
{
public:
    TestHome()
    {
        QVERIFY2(m_dir.isValid(), "cannot create a temporary home");
        m_path = QDir(m_dir.path()).canonicalPath();
        qputenv("HOME", m_path.toUtf8());
        for (const char *name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME",
                                 "XDG_STATE_HOME", "XDG_CONFIG_DIRS", "XDG_DATA_DIRS"})
            qunsetenv(name);
    }
    QString path() const { return m_path; }
    QString file(const QString &relative) const { return m_path + u'/' + relative; }

private:
    QTemporaryDir m_dir;
    QString m_path;
};
