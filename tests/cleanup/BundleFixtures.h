#pragma once

#include <QDir>
#include <QFile>
#include <QVariantMap>
#include <QtTest>
#include <cstdlib>
#include <plist/plist.h>

// Application bundles for the scanner tests: an Info.plist in XML or binary form, holding
// strings and integers (an integer where a string belongs must be ignored).
namespace BundleFixtures {

inline bool writeInfoPlist(const QString &bundle, const QVariantMap &values, bool binary)
{
    plist_t dict = plist_new_dict();
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        const QByteArray key = it.key().toUtf8();
        plist_t node = it.value().typeId() == QMetaType::Int
                           ? plist_new_uint(uint64_t(it.value().toInt()))
                           : plist_new_string(it.value().toString().toUtf8().constData());
        plist_dict_set_item(dict, key.constData(), node);
    }
    char *data = nullptr;
    uint32_t length = 0;
    if (binary)
        plist_to_bin(dict, &data, &length);
    else
        plist_to_xml(dict, &data, &length);
    plist_free(dict);
    bool ok = data && QDir().mkpath(bundle + QStringLiteral("/Contents"));
    QFile file(bundle + QStringLiteral("/Contents/Info.plist"));
    ok = ok && file.open(QIODevice::WriteOnly) && file.write(data, length) == qint64(length);
    std::free(data);
    return ok;
}

inline bool writeApp(const QString &bundle, const QString &identifier, bool binary = false)
{
    return writeInfoPlist(bundle, {{QStringLiteral("CFBundleIdentifier"), identifier}}, binary);
}

// An executable script that prints `output` whatever it is asked, and leaves its
// arguments, one per line, in `argsFile`.
inline bool writeTool(const QString &path, const QString &output, const QString &argsFile)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QByteArray script = "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + QFile::encodeName(argsFile) +
                        "'\ncat <<'END_OF_OUTPUT'\n" + output.toUtf8() + "\nEND_OF_OUTPUT\n";
    file.write(script);
    file.close();
    return file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
}

} // namespace BundleFixtures
