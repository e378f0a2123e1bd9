#pragma once

#include "core/system/Locations.h"

#include <QByteArray>
#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

// Points HOME at a fresh temporary folder and clears the XDG variables for the whole test
// run, so no test ever reaches the developer's own files; where() hands the same folder to
// the engine directly. Child processes (the CLI, the app) find it through HOME.
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
    // What the engine is told about this home.
    Locations where() const { return Locations(m_path); }

private:
    QTemporaryDir m_dir;
    QString m_path;
};
