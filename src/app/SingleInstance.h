#pragma once

#include <QLockFile>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>

class QLocalServer;

// One running app per user. The first process holds a lock file and listens on a local
// socket beside it; later ones hand their request over and exit. The lock (not the
// socket) decides who is first, so two launches at the same moment cannot both listen.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    // `onRequest` runs on the main thread for every request another process forwards.
    explicit SingleInstance(std::function<void(const QString &)> onRequest,
                            QObject *parent = nullptr);
    ~SingleInstance() override;

    // True when this process is now the one instance and listens for requests.
    bool claim();
    // Hands `request` to the running instance; blocks for at most about two seconds,
    // before any event loop runs. False when nobody took it.
    bool forward(const QString &request);
    // Gives up the lock and the socket; quitting calls it because it skips destructors.
    void release();

    // $XDG_RUNTIME_DIR when set, else the temporary folder; named after the user id.
    static QString socketPath();

private:
    void accept();

    std::function<void(const QString &)> m_onRequest;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
};
