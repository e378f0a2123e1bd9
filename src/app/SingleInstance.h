#pragma once

#include <QLockFile>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

class QLocalServer;

// One running app per user. The first process holds a lock file and listens on a local
// socket beside it; later ones hand their request over and exit. The lock (not the
// socket) decides who is first, so two launches at the same moment cannot both listen.
// Both live in a folder only this user can write, so nobody else can hold the lock or
// take the requests; where no such folder can be had there is no single instance.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    // `onRequest` runs on the main thread for every request another process forwards;
    // `cacheFolder` is the user's (Locations), the fallback when there is no runtime folder.
    SingleInstance(std::function<void(const QString &)> onRequest, QString cacheFolder,
                   QObject *parent = nullptr);
    ~SingleInstance() override;

    // True when this process is now the one instance and listens for requests, or when
    // there is no private folder to coordinate through (then every launch runs).
    bool claim();
    // Hands `request` to the running instance; blocks for at most about two seconds,
    // before any event loop runs. False when nobody took it.
    bool forward(const QString &request);
    // Gives up the lock and the socket; quitting calls it because it skips destructors.
    void release();

    // privateFolder() of $XDG_RUNTIME_DIR and the cache folder, plus a name with the user id.
    std::optional<QString> socketPath() const;
    // `runtimeDir` when it is an absolute path to a real folder (not a link) of ours that
    // nobody else can write. Else the folder `quorvel` in the absolute `cacheDir` (either
    // created 0700 when missing), which must be a real folder of ours and is stripped of
    // any group and other permissions. nullopt when neither will do.
    static std::optional<QString> privateFolder(const QString &runtimeDir, const QString &cacheDir);

private:
    void accept();

    std::function<void(const QString &)> m_onRequest;
    QString m_cacheFolder;
    QString m_path;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
};
