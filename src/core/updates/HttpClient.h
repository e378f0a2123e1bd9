#pragma once

#include <QByteArray>
#include <QList>
#include <QUrl>
#include <chrono>
#include <functional>
#include <optional>
#include <utility>

// GET requests for the update sources, all through one QNetworkAccessManager on the main
// thread. The HTTP status is deliberately not examined: an error page whose body arrives
// is handed over like any answer, and the caller's parser decides what it is worth.
namespace HttpClient {

using Header = std::pair<QByteArray, QByteArray>;
// The whole body, or nullopt when the transfer failed: no HTTP answer at all (refused,
// unreachable, not an HTTP URL), a transport error or time-out, or an abandoned request.
using Done = std::function<void(std::optional<QByteArray> body)>;

// The longest wait without data, as the sources require.
inline constexpr std::chrono::milliseconds defaultInactivity{15000};
// Our own additions, so that no server can keep a check open or fill memory: a request
// is abandoned after this long in all, or once its body grows (or is announced to grow)
// past maxBodyBytes, however fast it arrives.
inline constexpr std::chrono::milliseconds defaultTotal{60000};
inline constexpr qsizetype maxBodyBytes = 8 * 1024 * 1024;

// Callable from any thread; the request itself is made on the main thread. `done` runs
// exactly once, on the main thread, never before get() returns. Qt's default redirect
// policy applies. Without a QCoreApplication nothing can be fetched and `done` gets
// nullopt at once.
void get(const QUrl &url, const QList<Header> &headers, Done done);

// Shorter limits for tests and benchmarks, set on the main thread; applies to requests
// started afterwards.
void setTimeoutsForTesting(std::chrono::milliseconds inactivity, std::chrono::milliseconds total);

} // namespace HttpClient
