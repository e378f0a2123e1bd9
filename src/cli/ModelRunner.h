#pragma once

#include <QEventLoop>
#include <QObject>
#include <QString>
#include <functional>

// The models publish on the main thread through queued calls, so the command line has to
// spin an event loop while they work.
namespace ModelRunner {

// Runs the event loop until `done` holds, testing it first and after every changed() of
// `model`; `onChange` sees each change before the test (for progress).
template <class Model>
void waitUntil(Model &model, const std::function<bool()> &done,
               const std::function<void()> &onChange = {})
{
    if (done())
        return;
    QEventLoop loop;
    QObject::connect(&model, &Model::changed, &loop, [&] {
        if (onChange)
            onChange();
        if (done())
            loop.quit();
    });
    loop.exec();
}

// A single self-overwriting line of progress on standard error. Silent unless standard
// error is a terminal, so logs and pipes only ever get results and complaints.
class ProgressLine final
{
public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void show(const QString &text);
    void clear();

private:
    bool m_enabled = false;
    QString m_shown;
};

} // namespace ModelRunner
