#pragma once

#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <memory>

// An HTTP server on 127.0.0.1 for the network sources' tests, well-behaved or not: it
// records each request's head and answers the path by its route.
class LocalHttpServer
{
public:
    enum class Behaviour {
        answer,       // status line, Content-Length, body, close
        hang,         // reads the request and never answers
        closeAtOnce,  // drops the connection without a byte
        closeEarly,   // promises more body than it sends, then closes
        stall,        // headers and all but the last bytes of the body, then silence
        drip,         // the whole answer in small pieces, 60 ms apart
        dripForever,  // headers, then one body byte every 50 ms without end
        redirectLoop, // 302 back to the same path
        garbage,      // bytes that are no HTTP answer
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

    static QByteArray statusHead(int status, qsizetype length, const QByteArray &headers)
    {
        return "HTTP/1.1 " + QByteArray::number(status) +
               " Status\r\nContent-Length: " + QByteArray::number(length) +
               "\r\nConnection: close\r\n" + headers + "\r\n";
    }

    void answer(QTcpSocket *socket, const Route &route)
    {
        const QByteArray whole =
            statusHead(route.status, route.body.size(), route.headers) + route.body;
        switch (route.behaviour) {
        case Behaviour::answer:
            socket->write(whole);
            socket->disconnectFromHost();
            break;
        case Behaviour::hang:
            break;
        case Behaviour::closeAtOnce:
            socket->abort();
            break;
        case Behaviour::closeEarly:
            socket->write(statusHead(route.status, route.body.size() + 1000, route.headers) +
                          route.body);
            socket->disconnectFromHost();
            break;
        case Behaviour::stall:
            socket->write(whole.left(whole.size() - 10));
            break;
        case Behaviour::drip:
        case Behaviour::dripForever: {
            auto *timer = new QTimer(socket);
            const bool forever = route.behaviour == Behaviour::dripForever;
            auto rest = std::make_shared<QByteArray>(whole);
            const qsizetype piece = whole.size() / 8 + 1;
            if (forever)
                socket->write(statusHead(route.status, 100'000'000, route.headers));
            QObject::connect(timer, &QTimer::timeout, socket, [socket, rest, piece, forever] {
                if (forever) {
                    socket->write(" ");
                    return;
                }
                socket->write(rest->left(piece));
                rest->remove(0, piece);
                if (rest->isEmpty())
                    socket->disconnectFromHost();
            });
            timer->start(forever ? 50 : 60);
            break;
        }
        case Behaviour::redirectLoop:
            socket->write("HTTP/1.1 302 Found\r\nLocation: " + target(requests.last()) +
                          "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
            break;
        case Behaviour::garbage:
            socket->write("SSH-2.0-OpenSSH_9.2\r\n\x01\x02\xff\xfe<rss>\r\n\r\n");
            socket->disconnectFromHost();
            break;
        }
    }

    QTcpServer m_server;
    QHash<QByteArray, Route> m_routes;
};
