#pragma once

#include <QtNetwork>
#include <atomic>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0 // Qt's sockets have SIGPIPE ignored for the process
#endif

// An HTTP server on 127.0.0.1 for the network sources' tests, well-behaved or not: it
// records each request's head and answers the path by its route.
class LocalHttpServer
{
public:
    enum class Behaviour {
        answer,       // status line, Content-Length, body, close
        hang,         // reads the request and never answers
        closeEarly,   // promises more body than it sends, then closes
        drip,         // the whole answer in small pieces, 60 ms apart
        dripForever,  // headers, then one chunked body byte every 50 ms without end
        redirectLoop, // 302 back to the same path
        garbage,      // bytes that are no HTTP answer
        flood,        // a chunked body without end, as fast as the client takes it
    };
    struct Route
    {
        Behaviour behaviour = Behaviour::answer;
        int status = 200;
        QByteArray body;
        QByteArray headers; // extra header lines, each ending in \r\n
    };

    LocalHttpServer()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { accept(); });
        m_server.listen(QHostAddress::LocalHost);
    }
    ~LocalHttpServer()
    {
        m_stop = true;
        for (std::thread &flood : m_floods)
            flood.join();
    }
    LocalHttpServer(const LocalHttpServer &) = delete;
    LocalHttpServer &operator=(const LocalHttpServer &) = delete;
    QString base() const
    {
        return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
    }
    void route(const QByteArray &path, const Route &route) { m_routes.insert(path, route); }

    // Request heads (request line and headers, each line ending in \r\n), in arrival order.
    QList<QByteArray> requests;

private:
    void accept()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            auto head = std::make_shared<QByteArray>();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, head] {
                const bool answered = head->contains("\r\n\r\n");
                *head += socket->readAll();
                if (!answered && head->contains("\r\n\r\n")) {
                    requests.append(head->left(head->indexOf("\r\n\r\n") + 2));
                    answer(socket, m_routes.value(head->split(' ').value(1)));
                }
            });
        }
    }

    // A length below 0 announces a chunked body.
    static QByteArray statusHead(int status, qsizetype length, const QByteArray &headers)
    {
        return "HTTP/1.1 " + QByteArray::number(status) + " Status\r\n" +
               (length < 0 ? QByteArray("Transfer-Encoding: chunked\r\n")
                           : "Content-Length: " + QByteArray::number(length) +
                                 "\r\nConnection: close\r\n") +
               headers + "\r\n";
    }
    void answer(QTcpSocket *socket, const Route &route)
    {
        const Behaviour how = route.behaviour;
        const qsizetype promised = route.body.size() + (how == Behaviour::closeEarly ? 1000 : 0);
        QByteArray reply = statusHead(route.status, promised, route.headers) + route.body;
        if (how == Behaviour::hang)
            return;
        if (how == Behaviour::flood) {
            // Written from a thread of its own, so that the rate is not tied to the event
            // loop the client shares with us.
            m_floods.emplace_back(
                [this, fd = ::dup(int(socket->socketDescriptor())),
                 head = statusHead(route.status, -1, route.headers)] { flood(fd, head); });
            return socket->abort();
        }
        if (how == Behaviour::drip || how == Behaviour::dripForever) {
            const bool forever = how == Behaviour::dripForever;
            if (forever)
                socket->write(statusHead(route.status, -1, route.headers));
            auto *timer = new QTimer(socket);
            QObject::connect(
                timer, &QTimer::timeout, socket,
                [socket, forever, rest = reply, piece = reply.size() / 8 + 1]() mutable {
                    socket->write(forever ? QByteArray("1\r\n \r\n") : rest.left(piece));
                    rest.remove(0, piece);
                    if (!forever && rest.isEmpty())
                        socket->disconnectFromHost();
                });
            return timer->start(forever ? 50 : 60);
        }
        if (how == Behaviour::redirectLoop)
            reply = "HTTP/1.1 302 Found\r\nLocation: " + requests.last().split(' ').value(1) +
                    "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        else if (how == Behaviour::garbage)
            reply = "SSH-2.0-OpenSSH_9.2\r\n\x01\x02\xff\xfe<rss>\r\n\r\n";
        socket->write(reply); // whole, then the connection closes
        socket->disconnectFromHost();
    }
    void flood(int fd, const QByteArray &head) const
    {
        const QByteArray chunk = "10000\r\n" + QByteArray(0x10000, 'x') + "\r\n";
        QByteArray pending = head + chunk;
        qsizetype offset = 0;
        while (fd >= 0 && !m_stop) {
            pollfd out{fd, POLLOUT, 0};
            if (::poll(&out, 1, 50) < 0 || (out.revents & (POLLERR | POLLHUP)))
                break;
            if (!(out.revents & POLLOUT))
                continue;
            const ssize_t sent = ::send(fd, pending.constData() + offset,
                                        size_t(pending.size() - offset), MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR && errno != EAGAIN)
                break;
            offset += std::max<ssize_t>(sent, 0);
            if (offset == pending.size())
                std::tie(pending, offset) = std::pair(chunk, 0);
        }
        if (fd >= 0)
            ::close(fd);
    }
    QTcpServer m_server;
    QHash<QByteArray, Route> m_routes;
    std::atomic<bool> m_stop = false;
    std::vector<std::thread> m_floods;
};
