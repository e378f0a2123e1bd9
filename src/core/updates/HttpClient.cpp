#include "core/updates/HttpClient.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>
#include <memory>
#include <utility>

namespace HttpClient {
namespace {

// Read and written on the main thread only, like the manager.
std::chrono::milliseconds g_inactivity = defaultInactivity;
std::chrono::milliseconds g_total = defaultTotal;

// What Qt may hold for a reply beyond what we have read.
constexpr qint64 kReadBufferBytes = 1024 * 1024;

QNetworkAccessManager *manager()
{
    static QPointer<QNetworkAccessManager> nam;
    if (!nam)
        nam = new QNetworkAccessManager(QCoreApplication::instance());
    return nam;
}

// A failed transfer, as opposed to an HTTP answer that merely reports an error. Qt turns
// 4xx and 5xx statuses into content, protocol and server errors; only a missing status,
// the connection-level and proxy errors (refused, closed early, time-out, abort, redirect
// loop) and a body Qt could not decode mean that nothing trustworthy arrived.
bool transportFailed(const QNetworkReply &reply)
{
    if (!reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid())
        return true;
    const QNetworkReply::NetworkError error = reply.error();
    return (error != QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied) ||
           error == QNetworkReply::ProtocolFailure;
}

struct Transfer
{
    QByteArray body;
    bool abandoned = false;
    bool finished = false;
};

void start(const QUrl &url, const QList<Header> &headers, Done done)
{
    QNetworkRequest request(url);
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    request.setTransferTimeout(int(g_inactivity.count()));

    QNetworkReply *reply = manager()->get(request);
    // Without a limit Qt reads the socket as fast as the peer sends, whatever we take, so
    // a fast server could fill memory long before readyRead gets to count. With one, Qt
    // stops reading until we drain, which readyRead always does.
    reply->setReadBufferSize(kReadBufferBytes);
    auto transfer = std::make_shared<Transfer>();
    // abort() can emit finished() before it returns; the flag tells that handler why.
    const auto abandon = [reply, transfer] {
        if (!std::exchange(transfer->abandoned, true))
            reply->abort();
    };

    auto *total = new QTimer(reply);
    total->setSingleShot(true);
    QObject::connect(total, &QTimer::timeout, reply, abandon);
    total->start(g_total);

    // An announced length past the cap gives the body up at its first bytes.
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
                     [transfer, abandon](qint64 received, qint64 announced) {
                         if (!transfer->finished &&
                             (received > maxBodyBytes || announced > maxBodyBytes))
                             abandon();
                     });
    QObject::connect(reply, &QIODevice::readyRead, reply, [reply, transfer, abandon] {
        if (transfer->finished || transfer->abandoned)
            return;
        transfer->body += reply->readAll();
        if (transfer->body.size() > maxBodyBytes)
            abandon();
    });
    QObject::connect(reply, &QNetworkReply::finished, reply,
                     [reply, transfer, done = std::move(done)] {
                         if (std::exchange(transfer->finished, true))
                             return;
                         reply->deleteLater();
                         if (transfer->abandoned || transportFailed(*reply)) {
                             done(std::nullopt);
                             return;
                         }
                         transfer->body += reply->readAll();
                         if (transfer->body.size() > maxBodyBytes) {
                             done(std::nullopt);
                             return;
                         }
                         done(std::move(transfer->body));
                     });
}

} // namespace

void get(const QUrl &url, const QList<Header> &headers, Done done)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        done(std::nullopt);
        return;
    }
    // Queued even on the main thread, so that `done` never runs inside the caller's loop.
    QMetaObject::invokeMethod(
        app,
        [url, headers, done = std::move(done)]() mutable { start(url, headers, std::move(done)); },
        Qt::QueuedConnection);
}

void setTimeoutsForTesting(std::chrono::milliseconds inactivity, std::chrono::milliseconds total)
{
    g_inactivity = inactivity;
    g_total = total;
}

} // namespace HttpClient
