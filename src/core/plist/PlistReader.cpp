#include "core/plist/PlistReader.h"

#include <QFile>
#include <QVariantList>
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

QVariant toVariant(plist_t node, int depth)
{
    // Hostile files can nest deeply; nothing we read needs more than a few levels.
    if (!node || depth > 64)
        return {};
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        uint64_t length = 0;
        const char *text = plist_get_string_ptr(node, &length);
        return text ? QString::fromUtf8(text, qsizetype(length)) : QString();
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
    default:
        return {};
    }
}

} // namespace

std::optional<QVariantMap> parseDictionary(const QByteArray &data, const QStringList &keys)
{
    if (data.isEmpty() || data.size() > kMaxBytes)
        return std::nullopt;
    plist_t root = parseAny(data);
    if (!root)
        return std::nullopt;
    std::optional<QVariantMap> result;
    if (plist_get_node_type(root) == PLIST_DICT) {
        result.emplace();
        for (const QString &key : keys) {
            const QByteArray name = key.toUtf8();
            if (QVariant v = toVariant(plist_dict_get_item(root, name.constData()), 1); v.isValid())
                result->insert(key, v);
        }
    }
    plist_free(root);
    return result;
}

std::optional<QVariantMap> readDictionary(const QString &path, const QStringList &keys)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // Read one byte past the cap so an oversized file is recognised without reading it all.
    const QByteArray data = file.read(kMaxBytes + 1);
    return parseDictionary(data, keys);
}

} // namespace PlistReader
