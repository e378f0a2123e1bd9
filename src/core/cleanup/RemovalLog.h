#pragma once

#include "core/system/Locations.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

// The user's append-only record of every move to the Trash, at Locations::removalLog().
namespace RemovalLog {

// Appends "<UTC time stamp>\t<field>\t<field>…\n" lines, each in one write to the file
// opened for appending, each field escaped (PathText::escaped) so that one call is always
// one line. The folders and the file are created on the first line (the log's own folder
// 0700, the file 0600) and reached without following a link: a log or folder that is a
// link, a log folder owned by someone else, or a log that is no regular file gets nothing.
// The log is then held open for the writer's life; one that could not be opened is tried
// again on the next line. Never truncates.
class Writer final
{
public:
    explicit Writer(const Locations &where) : m_where(where) {}
    ~Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // nullopt when the line was written, else the errno that stopped it.
    std::optional<int> append(const QStringList &fields);

private:
    const Locations &m_where;
    int m_fd = -1;
};

// The log's last `maxBytes` at most, from the first whole line, reached as a Writer reaches
// it but creating nothing; nullopt when there is no readable log.
std::optional<QByteArray> tail(const Locations &where, qint64 maxBytes);

} // namespace RemovalLog
