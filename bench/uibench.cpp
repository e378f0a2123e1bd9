// The clean-up page over a HOME whose ~/Library/Caches holds many entries, for
// bench/app.sh: how long the page takes to show a finished scan, how long the section's
// None and All take until repainted, and how many widgets the page holds. Plain
// "key value" lines; a page that does not show what it should ends the run with status 1.
//   quorvel-uibench ITEMS [ROUNDS]   (run with the fixture's HOME, on a real display)
#include "core/models/CleanModel.h"
#include "core/system/RealSystem.h"
#include "core/types/ToolPage.h"
#include "ui/pages/CleanListView.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <QToolButton>
#include <QWindow>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// The detail area of the tools window at its default size.
constexpr QSize kPageSize{710, 620};
constexpr int kScanTimeoutMs = 120'000;

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "uibench: %s\n", what);
    std::fflush(stdout);
    std::_Exit(1);
}

double msSince(const QElapsedTimer &clock)
{
    return double(clock.nsecsElapsed()) / 1e6;
}

// Whatever the last change left queued (layout, update requests) is part of showing it;
// repaint() then paints the whole page synchronously into the window.
void settleAndPaint(QWidget &page)
{
    QCoreApplication::processEvents();
    page.repaint();
}

// The one visible button with this text: only the section that has rows shows All/None.
QToolButton *sectionButton(QWidget &page, const QString &text)
{
    QToolButton *found = nullptr;
    for (QToolButton *button : page.findChildren<QToolButton *>()) {
        if (button->text() != text || !button->isVisibleTo(&page))
            continue;
        if (found)
            fail("more than one section shows rows");
        found = button;
    }
    if (!found)
        fail("no section shows rows");
    return found;
}

void printTimes(const char *key, const QList<double> &times)
{
    std::printf("%s", key);
    for (double ms : times)
        std::printf(" %.2f", ms);
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    bool ok = false;
    const int expected = arguments.value(1).toInt(&ok);
    if (!ok || expected <= 0)
        fail("usage: quorvel-uibench ITEMS [ROUNDS]");
    const int rounds = arguments.size() > 2 ? std::max(1, arguments.at(2).toInt()) : 5;

    const auto system = std::make_shared<RealSystem>(Locations::fromEnvironment());
    CleanModel model(cleanCategories(ToolPage::cleanup).value(),
                     CleanModel::Services::real(system));
    // Connected ahead of the page, so the clock starts before the page hears of the change.
    QElapsedTimer shownClock;
    bool awaitingScan = false;
    QObject::connect(&model, &CleanModel::changed, &model, [&] {
        if (awaitingScan && !model.scanning()) {
            awaitingScan = false;
            shownClock.start();
        }
    });

    CleanListView page(model, [](const QString &) {});
    page.resize(kPageSize);
    page.show();
    const QDeadlineTimer exposeDeadline(10'000);
    while (!(page.windowHandle() && page.windowHandle()->isExposed())) {
        if (exposeDeadline.hasExpired())
            fail("the page window was never exposed");
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    settleAndPaint(page);

    QEventLoop waitForScan;
    QTimer scanTimeout;
    scanTimeout.setSingleShot(true);
    QObject::connect(&scanTimeout, &QTimer::timeout, &waitForScan, &QEventLoop::quit);
    QObject::connect(&model, &CleanModel::changed, &waitForScan, [&] {
        if (!awaitingScan && !model.scanning())
            waitForScan.quit();
    });

    QList<double> shown, none, all;
    for (int round = 0; round < rounds; ++round) {
        awaitingScan = true;
        model.scan();
        scanTimeout.start(kScanTimeoutMs);
        waitForScan.exec();
        scanTimeout.stop();
        if (awaitingScan)
            fail("the scan did not finish");
        settleAndPaint(page);
        shown.append(msSince(shownClock));

        if (model.items().size() != expected) {
            std::printf("items %lld\n", static_cast<long long>(model.items().size()));
            fail("the scan did not find the fixture's items");
        }
        if (model.selected().size() != expected)
            fail("caches should all be ticked after a scan");

        QToolButton *noneButton = sectionButton(page, u"None"_s);
        QElapsedTimer clock;
        clock.start();
        noneButton->click();
        settleAndPaint(page);
        none.append(msSince(clock));
        if (!model.selected().isEmpty())
            fail("None left items ticked");

        QToolButton *allButton = sectionButton(page, u"All"_s);
        clock.start();
        allButton->click();
        settleAndPaint(page);
        all.append(msSince(clock));
        if (model.selected().size() != expected)
            fail("All did not tick every item");
    }

    std::printf("items %d\n", expected);
    std::printf("widgets %lld\n", static_cast<long long>(page.findChildren<QWidget *>().size()));
    printTimes("shown_ms", shown);
    printTimes("none_ms", none);
    printTimes("all_ms", all);
    std::fflush(stdout);
    // The scanners' pool threads are idle by now, but leaving main would still wait on them.
    std::_Exit(EXIT_SUCCESS);
}
