#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QTcpServer>
#include <QThread>
#include <future>
#include <memory>

class QTcpSocket;

namespace UpdatesBench {

// HTTP/1.1 with keep-alive on 127.0.0.1: each request is answered in full after its
// delay, one at a time per connection; silent paths hold the connection without a byte.
class FixtureServer final
{
public:
    FixtureServer()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { accept(); });
    }

    bool listen(quint16 port) { return m_server.listen(QHostAddress::LocalHost, port); }
    quint16 port() const { return m_server.serverPort(); }
    // Request targets in arrival order.
    const QList<QByteArray> &requests() const { return m_requests; }

private:
    struct Connection
    {
        QByteArray buffer;
        bool busy = false;
    };

    void accept();
    void next(QTcpSocket *socket, const std::shared_ptr<Connection> &connection);

    QTcpServer m_server;
    QList<QByteArray> m_requests;
};

// The server on a thread of its own, so its delays do not wait on the checker's loop.
class ServerThread final : public QThread
{
public:
    // The port, or 0 when nothing could listen.
    quint16 begin()
    {
        std::future<quint16> port = m_port.get_future();
        start();
        return port.get();
    }
    // Stops the thread; the requests it saw, in arrival order.
    QList<QByteArray> end()
    {
        quit();
        wait();
        return m_requests;
    }

protected:
    void run() override;

private:
    std::promise<quint16> m_port;
    QList<QByteArray> m_requests;
};

} // namespace UpdatesBench
