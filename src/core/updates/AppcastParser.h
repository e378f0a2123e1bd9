#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringView>
#include <optional>

class QXmlStreamAttributes;

// Reads the release entries of an appcast feed (RSS items with sparkle: versions and
// channels). Names are matched as written, prefix included, so only the literal
// "sparkle:" forms count, whatever namespace a feed binds that prefix to. One parser
// serves one feed. Pure: no I/O, any thread.
class AppcastParser final
{
public:
    struct Entry
    {
        std::optional<QString> short_;  // marketing version (sparkle:shortVersionString)
        std::optional<QString> build;   // build version (sparkle:version)
        std::optional<QString> channel; // present, even empty, for any named channel

        friend bool operator==(const Entry &, const Entry &) = default;
    };

    // Reads the whole feed. A feed that is not well-formed keeps the entries finished
    // before the error; text in CDATA sections never counts as a version.
    void parse(const QByteArray &feed);

    // The finished items, in feed order.
    const QList<Entry> &entries() const { return m_entries; }

    // The newest entry without a channel: compared by its short version, else its build,
    // else "0"; among equal versions the earlier entry wins.
    std::optional<Entry> best() const;

    // The reader's events in document order, names as written (prefix included); parse()
    // drives them, and a feed can be replayed through them event by event.
    void startElement(QStringView name, const QXmlStreamAttributes &attributes);
    void characters(QStringView text);
    void endElement(QStringView name);

private:
    std::optional<Entry> m_current; // the item being read
    QString m_text;                 // character data since the last element start
    QList<Entry> m_entries;
};
