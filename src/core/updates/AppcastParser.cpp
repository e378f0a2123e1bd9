#include "core/updates/AppcastParser.h"

#include "core/updates/Versions.h"

#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

void AppcastParser::parse(const QByteArray &feed)
{
    QXmlStreamReader xml(feed);
    xml.setNamespaceProcessing(false);
    // After an error atEnd() holds, so whatever was finished before it stays.
    while (!xml.atEnd()) {
        switch (xml.readNext()) {
        case QXmlStreamReader::StartElement:
            startElement(xml.qualifiedName(), xml.attributes());
            break;
        case QXmlStreamReader::EndElement:
            endElement(xml.qualifiedName());
            break;
        case QXmlStreamReader::Characters:
            // Only plain character data counts; CDATA sections are not text here.
            if (!xml.isCDATA())
                characters(xml.text());
            break;
        default:
            // Comments, processing instructions, the DTD and unresolved entity references
            // add no text.
            break;
        }
    }
}

void AppcastParser::startElement(QStringView name, const QXmlStreamAttributes &attributes)
{
    m_text.clear();
    if (name == u"item") {
        m_current = Entry{}; // an unfinished earlier item is dropped
        return;
    }
    if (name != u"enclosure" || !m_current)
        return;
    // The enclosure's attributes outrank the element forms, whichever comes first.
    for (const QXmlStreamAttribute &attribute : attributes) {
        if (attribute.qualifiedName() == u"sparkle:shortVersionString")
            m_current->short_ = attribute.value().toString();
        else if (attribute.qualifiedName() == u"sparkle:version")
            m_current->build = attribute.value().toString();
    }
}

void AppcastParser::characters(QStringView text)
{
    m_text += text;
}

void AppcastParser::endElement(QStringView name)
{
    if (name == u"item") {
        if (m_current)
            m_entries.append(*m_current);
        m_current.reset();
        return;
    }
    if (!m_current)
        return;
    if (name == u"sparkle:shortVersionString") {
        if (!m_current->short_)
            m_current->short_ = m_text.trimmed();
    } else if (name == u"sparkle:version") {
        if (!m_current->build)
            m_current->build = m_text.trimmed();
    } else if (name == u"sparkle:channel") {
        m_current->channel = m_text.trimmed();
    }
}

std::optional<AppcastParser::Entry> AppcastParser::best() const
{
    const auto key = [](const Entry &entry) {
        return entry.short_ ? *entry.short_ : entry.build ? *entry.build : u"0"_s;
    };
    std::optional<Entry> newest;
    for (const Entry &entry : m_entries) {
        if (entry.channel)
            continue;
        if (!newest || Versions::versionLess(key(*newest), key(entry)))
            newest = entry;
    }
    return newest;
}
