#include "LoopbackServer.h"

#include "UpdatesFixture.h"

#include <QTcpSocket>
#include <QTimer>

namespace UpdatesBench {

void FixtureServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        auto connection = std::make_shared<Connection>();
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, connection] {
            connection->buffer += socket->readAll();
            next(socket, connection);
        });
    }
}

void FixtureServer::next(QTcpSocket *socket, const std::shared_ptr<Connection> &connection)
{
    const qsizetype end = connection->buffer.indexOf("\r\n\r\n");
    if (connection->busy || end < 0)
        return;
    const QByteArray head = connection->buffer.left(end);
    connection->buffer.remove(0, end + 4);
    const QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    const QByteArray target = requestLine.value(1);
    bool close = requestLine.value(2) != "HTTP/1.1";
    for (const QByteArray &line : lines) {
        const QByteArray lower = line.trimmed().toLower();
        if (lower.startsWith("connection:") && lower.contains("close"))
            close = true;
    }
    m_requests.append(target);
    const Answer answer = answerFor(target);
    connection->busy = true;
    if (answer.silent)
        return;
    QTimer::singleShot(answer.latencyMs, socket, [this, socket, connection, answer, close] {
        socket->write("HTTP/1.1 " + QByteArray::number(answer.status) +
                      (answer.status == 200 ? " OK" : " Not Found") +
                      "\r\nContent-Type: " + answer.type +
                      "\r\nContent-Length: " + QByteArray::number(answer.body.size()) +
                      (close ? "\r\nConnection: close" : "") + "\r\n\r\n" + answer.body);
        connection->busy = false;
        if (close)
            socket->disconnectFromHost();
        else
            next(socket, connection);
    });
}

void ServerThread::run()
{
    FixtureServer server;
    m_port.set_value(server.listen(0) ? server.port() : quint16(0));
    exec();
    m_requests = server.requests();
}

} // namespace UpdatesBench
