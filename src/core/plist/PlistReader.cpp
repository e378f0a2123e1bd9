#include "core/plist/PlistReader.h"

#include <QFile>
#include <QVariantList>
#include <cstdlib>
#include <plist/plist.h>

namespace PlistReader {
namespace {

// libplist 2.2 and later agree on these calls (later ones only add a return value, which
// we do not need), so one code path serves Debian's 2.2 and Homebrew's newer releases.
plist_t parseAny(const QByteArray &data)
{
    plist_t root = nullptr;
    const auto length = uint32_t(data.size());
    if (plist_is_binary(data.constData(), length))
        plist_from_bin(data.constData(), length, &root);
    else
        plist_from_xml(data.constData(), length, &root);
    return root;
}

QString takeString(char *raw)
{
    QString text = raw ? QString::fromUtf8(raw) : QString();
    std::free(raw);
    return text;
}

QVariant toVariant(plist_t node, int depth);

QVariantMap toMap(plist_t dict, int depth)
{
    QVariantMap map;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(dict, &it);
    if (!it)
        return map;
    for (;;) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dict, it, &key, &value);
        if (!key)
            break;
        const QString name = takeString(key);
        if (QVariant v = toVariant(value, depth + 1); v.isValid())
            map.insert(name, v);
    }
    std::free(it);
    return map;
}

QVariant toVariant(plist_t node, int depth)
{
    // Hostile files can nest deeply; nothing we read needs more than a few levels.
    if (!node || depth > 64)
        return {};
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        char *raw = nullptr;
        plist_get_string_val(node, &raw);
        return takeString(raw);
    }
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return bool(b);
    }
    case PLIST_UINT: {
        uint64_t n = 0;
        plist_get_uint_val(node, &n);
        return qint64(n);
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return d;
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t n = plist_array_get_size(node);
        for (uint32_t i = 0; i < n; ++i) {
            if (QVariant v = toVariant(plist_array_get_item(node, i), depth + 1); v.isValid())
                list.append(v);
        }
        return list;
    }
    case PLIST_DICT:
        return toMap(node, depth);
    default:
        return {};
    }
}

} // namespace

std::optional<QVariantMap> parseDictionary(const QByteArray &data)
{
    if (data.isEmpty() || data.size() > kMaxBytes)
        return std::nullopt;
    plist_t root = parseAny(data);
    if (!root)
        return std::nullopt;
    std::optional<QVariantMap> result;
    if (plist_get_node_type(root) == PLIST_DICT)
        result = toMap(root, 0);
    plist_free(root);
    return result;
}

std::optional<QVariantMap> readDictionary(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // Read one byte past the cap so an oversized file is recognised without reading it all.
    const QByteArray data = file.read(kMaxBytes + 1);
    return parseDictionary(data);
}

} // namespace PlistReader
