#pragma once

#include <QtNetwork>
#include <atomic>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

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
    bool listening() const { return m_server.isListening(); }
    quint16 port() const { return m_server.serverPort(); }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
    QUrl url(const QString &path) const { return QUrl(base() + path); }
    void route(const QByteArray &path, const Route &route) { m_routes.insert(path, route); }

    // Request heads (request line and headers), in arrival order.
    QList<QByteArray> requests;

    static QByteArray target(const QByteArray &head) { return head.split(' ').value(1); }
    static QByteArray header(const QByteArray &head, const QByteArray &name)
    {
        for (const QByteArray &line : head.split('\n')) {
            const qsizetype colon = line.indexOf(':');
            if (colon > 0 && line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
                return line.mid(colon + 1).trimmed();
        }
        return {};
    }

private:
    void accept()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            auto head = std::make_shared<QByteArray>();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, head] {
                if (head->contains("\r\n\r\n"))
                    return;
                *head += socket->readAll();
                if (head->contains("\r\n\r\n")) {
                    requests.append(head->left(head->indexOf("\r\n\r\n")));
                    answer(socket, m_routes.value(target(*head)));
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
        const QByteArray whole =
            statusHead(route.status, route.body.size(), route.headers) + route.body;
        QByteArray reply; // written whole, then the connection closes
        switch (route.behaviour) {
        case Behaviour::answer:
            reply = whole;
            break;
        case Behaviour::hang:
            return;
        case Behaviour::closeEarly:
            reply = statusHead(route.status, route.body.size() + 1000, route.headers) + route.body;
            break;
        case Behaviour::drip:
        case Behaviour::dripForever: {
            const bool forever = route.behaviour == Behaviour::dripForever;
            auto rest = std::make_shared<QByteArray>(whole);
            if (forever)
                socket->write(statusHead(route.status, -1, route.headers));
            auto *timer = new QTimer(socket);
            QObject::connect(timer, &QTimer::timeout, socket,
                             [socket, rest, forever, piece = whole.size() / 8 + 1] {
                                 socket->write(forever ? QByteArray("1\r\n \r\n")
                                                       : rest->left(piece));
                                 rest->remove(0, piece);
                                 if (!forever && rest->isEmpty())
                                     socket->disconnectFromHost();
                             });
            return timer->start(forever ? 50 : 60);
        }
        case Behaviour::redirectLoop:
            reply = "HTTP/1.1 302 Found\r\nLocation: " + target(requests.last()) +
                    "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
            break;
        case Behaviour::garbage:
            reply = "SSH-2.0-OpenSSH_9.2\r\n\x01\x02\xff\xfe<rss>\r\n\r\n";
            break;
        case Behaviour::flood:
            // Written from a thread of its own, so that the rate is not tied to the event
            // loop the client shares with us.
            m_floods.emplace_back(
                [this, fd = ::dup(int(socket->socketDescriptor())),
                 head = statusHead(route.status, -1, route.headers)] { flood(fd, head); });
            return socket->abort();
        }
        socket->write(reply);
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
#ifdef MSG_NOSIGNAL
            constexpr int flags = MSG_NOSIGNAL;
#else
            constexpr int flags = 0; // Qt's sockets have SIGPIPE ignored for the process
#endif
            const ssize_t sent =
                ::send(fd, pending.constData() + offset, size_t(pending.size() - offset), flags);
            if (sent < 0 && errno != EINTR && errno != EAGAIN)
                break;
            offset += std::max<ssize_t>(sent, 0);
            if (offset == pending.size()) {
                pending = chunk;
                offset = 0;
            }
        }
        if (fd >= 0)
            ::close(fd);
    }
    QTcpServer m_server;
    QHash<QByteArray, Route> m_routes;
    std::atomic<bool> m_stop = false;
    std::vector<std::thread> m_floods;
};
