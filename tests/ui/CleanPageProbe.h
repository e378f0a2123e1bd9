#pragma once

#include "core/models/CleanModel.h"
#include "core/text/PathText.h"
#include "ui/kit/SectionHeader.h"
#include "ui/pages/CleanItemsView.h"
#include "ui/pages/CleanListView.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QSemaphore>
#include <QtTest>
#include <array>
#include <atomic>
#include <memory>

// Fake services for a clean-up model and helpers that read a page the way a user sees it:
// through its visible labels and buttons.
namespace Probe {

using namespace Qt::StringLiterals;

inline CleanItem item(const QString &path, CleanCategory category, qint64 bytes = 1000)
{
    return {path,     PathText::lastComponent(path), u"~/fixture/folder"_s, bytes,
            category, CleanMethod::delete_};
}

// Scanners returning fixed lists, counting their calls; `gate`, when set, holds every
// scanner until the test releases a permit. Removal refuses ".vmdk" like the guard does.
struct Fakes
{
    QHash<CleanCategory, QList<CleanItem>> found; // fixed before a scan starts
    std::array<std::atomic<int>, 7> calls{};
    std::atomic<int> removals{0};
    QSemaphore *gate = nullptr;

    int callsOf(CleanCategory c) const { return calls[size_t(c)].load(); }

    QList<CleanItem> scanned(CleanCategory c)
    {
        ++calls[size_t(c)];
        if (gate)
            gate->acquire();
        return found.value(c);
    }

    CleanModel::Services services()
    {
        CleanModel::Services s;
        s.userCaches = [this](const QSet<QString> &) { return scanned(CleanCategory::userCache); };
        s.logs = [this] { return scanned(CleanCategory::logs); };
        s.aiClutter = [this] { return scanned(CleanCategory::ai); };
        s.developerJunk = [this] { return scanned(CleanCategory::developer); };
        s.leftovers = [this] { return scanned(CleanCategory::leftovers); };
        s.unusedApps = [this](int) { return scanned(CleanCategory::unusedApps); };
        s.largeFiles = [this](qint64, std::function<void(qint64)>) {
            return scanned(CleanCategory::largeFiles);
        };
        s.remove = [this](const QList<CleanItem> &items) {
            ++removals;
            Cleaner::Result result;
            for (const CleanItem &i : items) {
                const bool refused = i.path.endsWith(u".vmdk"_s);
                Cleaner::Outcome &o = result.items.emplace_back();
                o.path = i.path;
                o.title = i.title;
                o.kind = refused ? Cleaner::Outcome::Kind::refused : Cleaner::Outcome::Kind::moved;
                if (refused)
                    o.refusal = SafetyGuard::Refusal::protectedExtension;
                if (!refused) {
                    ++result.count;
                    result.bytes += i.bytes;
                }
            }
            return result;
        };
        return s;
    }
};

inline bool waitIdle(const CleanModel &model)
{
    return QTest::qWaitFor([&] { return model.scanned() && !model.scanning(); }, 10'000);
}

// A page over a model on fake services, scanned once the test asks.
struct FakePage
{
    Fakes fakes;
    std::unique_ptr<CleanModel> model;
    std::unique_ptr<CleanListView> page;
    QStringList revealed; // what the page asked the file manager to show

    explicit FakePage(QList<CleanCategory> categories)
    {
        model = std::make_unique<CleanModel>(std::move(categories), fakes.services());
    }
    // A failed check may leave a scan held at the gate: free it before the fakes go.
    ~FakePage()
    {
        if (fakes.gate)
            fakes.gate->release(1000);
        if (!QTest::qWaitFor([&] { return !model->scanning(); }, 10'000))
            qFatal("a scan never ended");
    }
    void build()
    {
        page = std::make_unique<CleanListView>(*model,
                                               [this](const QString &path) { revealed << path; });
        page->resize(900, 620);
        page->show();
    }
    bool scan()
    {
        page->appeared();
        return waitIdle(*model);
    }
};

inline QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

inline CleanItemsModel *rowsOf(const QWidget *section)
{
    return section->findChild<CleanItemsView *>()->rows();
}

inline bool shown(const QWidget *w, const QWidget *root)
{
    return w->isVisibleTo(root);
}

// The texts of the labels and buttons under `root` that a user would see.
inline QStringList visibleTexts(const QWidget *root)
{
    QStringList texts;
    for (const QLabel *label : root->findChildren<QLabel *>()) {
        if (shown(label, root) && !label->text().isEmpty())
            texts.append(label->text());
    }
    for (const QAbstractButton *button : root->findChildren<QAbstractButton *>()) {
        if (shown(button, root) && !button->text().isEmpty())
            texts.append(button->text());
    }
    return texts;
}

// The section whose header shows `title`: the widget holding that header.
inline QWidget *section(const QWidget *page, const QString &title)
{
    for (SectionHeader *header : page->findChildren<SectionHeader *>()) {
        if (header->title() == title)
            return header->parentWidget();
    }
    return nullptr;
}

inline QStringList sectionTitles(const QWidget *page)
{
    QStringList titles;
    for (const SectionHeader *header : page->findChildren<SectionHeader *>())
        titles.append(header->title());
    return titles;
}

inline QAbstractButton *button(const QWidget *root, const QString &text)
{
    for (QAbstractButton *b : root->findChildren<QAbstractButton *>()) {
        if (b->text() == text && shown(b, root))
            return b;
    }
    return nullptr;
}

// The bottom bar's remove button, whatever its size suffix.
inline QAbstractButton *removeButton(const QWidget *page, const QString &label)
{
    for (QAbstractButton *b : page->findChildren<QAbstractButton *>()) {
        if (b->text().startsWith(label))
            return b;
    }
    return nullptr;
}

inline QMessageBox *openBox()
{
    for (QWidget *w : QApplication::topLevelWidgets()) {
        if (auto *box = qobject_cast<QMessageBox *>(w); box && box->isVisible())
            return box;
    }
    return nullptr;
}

} // namespace Probe
