#include "common/TestHome.h"
#include "core/health/SystemStats.h"
#include "core/models/OverviewModel.h"
#include "core/system/RealSystem.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "health/FakeSources.h"
#include "ui/CleanPageProbe.h"
#include "ui/pages/OverviewView.h"
#include "ui/pages/RingChart.h"

#include <QCheckBox>
#include <QLabel>
#include <QMessageBox>
#include <QSemaphore>
#include <QtTest>
#include <atomic>
#include <memory>

using namespace Qt::StringLiterals;
using namespace Probe;

namespace {

// Shared with the worker jobs, so a job still running when a test ends never outlives it.
struct Disk
{
    QList<DiskCategory> cats;
    QString progressName = u"Documents"_s;
    std::optional<TrashSize> trash; // none: unreadable
    QSemaphore gate{1000};          // take the permits away to hold the scan
    std::atomic<int> scans{0}, trashReads{0}, empties{0};
};

struct Page
{
    std::shared_ptr<Disk> disk = std::make_shared<Disk>();
    Fake machine;
    SystemStats stats{machine.sources()};
    bool loginOn = false, loginAccepts = true; // the system's login item
    QList<bool> loginAsked;
    int settingsOpened = 0;
    std::unique_ptr<OverviewModel> model;
    std::unique_ptr<OverviewView> view;

    explicit Page(bool real = false, std::optional<QString> version = u"1.2"_s, bool login = false)
        : loginOn(login)
    {
        stats.samplePass();
        OverviewModel::Services fake;
        fake.categories = [disk = disk](const DiskScanner::NameProgress &progress) {
            ++disk->scans;
            progress(disk->progressName);
            disk->gate.acquire();
            disk->gate.release();
            return disk->cats;
        };
        fake.trashSize = [disk = disk] { return ++disk->trashReads, disk->trash; };
        fake.emptyTrash = [disk = disk](const std::optional<Platform::TrashContents> &) {
            return ++disk->empties, TrashEmptyResult{};
        };
        model = std::make_unique<OverviewModel>(
            real ? OverviewModel::Services::real(
                       std::make_shared<RealSystem>(Locations::fromEnvironment()))
                 : fake);
        const auto setLogin = [this](bool on) {
            loginAsked.append(on);
            loginOn = loginAccepts ? on : loginOn;
            return loginAccepts ? std::nullopt : std::optional(u"Operation not permitted"_s);
        };
        view = std::make_unique<OverviewView>(
            *model, stats,
            OverviewView::Settings{[this] { return loginOn; }, setLogin,
                                   [this] { ++settingsOpened; }, std::move(version)});
        view->resize(900, 620);
        view->show();
    }
    ~Page()
    {
        disk->gate.release(1000);
        if (!QTest::qWaitFor([&] { return !model->scanning(); }, 10'000))
            qFatal("a scan never ended");
    }
    QStringList texts() const { return visibleTexts(view.get()); }
    QStringList legend() const
    {
        QStringList rows;
        for (const QWidget *row : view->findChildren<QWidget *>(u"legendRow"_s))
            rows.append(visibleTexts(row).join(u'|'));
        return rows;
    }
};

bool near(const QColor &a, const QColor &b)
{
    return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) +
               std::abs(a.blue() - b.blue()) + std::abs(a.alpha() - b.alpha()) <=
           8;
}

} // namespace

class OverviewViewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void cleanup()
    {
        while (QMessageBox *box = openBox())
            delete box;
        L10n::overrideForTesting(false);
    }

    void pageAndScan_data()
    {
        QTest::addColumn<bool>("zh");
        QTest::addColumn<QString>("version"); // null: the build has none
        QTest::addColumn<QString>("fixed");   // always shown, split at "|"
        // progress|hint|measuring|scanning|rescan|"of "|5 items
        QTest::addColumn<QString>("labels");
        const QString en = u"Macintosh HD|Trash|Settings & safety|available|Empty Trash|"
                           u"Start Quorvel at login|Quorvel never deletes files outright: every "
                           u"clean-up moves items to the Trash, protected folders (Mail, Messages, "
                           u"Photos, Documents, iCloud…) are refused, and each move is written to "
                           u"~/Library/Logs/Quorvel/removals.log."_s;
        const QString enLabels = u"Desktop|Press Scan to measure folder sizes.|Measuring Desktop…|"
                                 u"Scanning…|Rescan|of |5 item(s)"_s;
        QTest::newRow("English") << false << u"1.2"_s << en + u"|v1.2"_s << enLabels;
        QTest::newRow("empty version") << false << u""_s << en + u"|vdev"_s << enLabels;
        QTest::newRow("Chinese, no version")
            << true << QString()
            << u"磁盘|废纸篓|设置与安全|可用|清空废纸篓|登录时自动启动 Quorvel|vdev|"
               u"Quorvel 从不直接删除文件：所有清理都先移到废纸篓；邮件、信息、照片、文稿、"
               u"iCloud 等受保护位置一律拒绝；每次移动都记在 ~/Library/Logs/Quorvel/removals.log。"_s
            << u"桌面|点「扫描」统计各文件夹大小。|正在统计 桌面…|扫描中…|重新扫描|共 |5 项"_s;
    }
    void pageAndScan()
    {
        QFETCH(bool, zh);
        QFETCH(QString, version);
        QFETCH(QString, fixed);
        QFETCH(QString, labels);
        const QStringList l = labels.split(u'|');
        L10n::overrideForTesting(zh);
        Page page(false, version.isNull() ? std::nullopt : std::optional(version));
        for (const QString &text : fixed.split(u'|') + QStringList{l[1], Fmt::bytes(500 * GB),
                                                                   l[5] + Fmt::bytes(1000 * GB)})
            QVERIFY2(page.texts().contains(text), qPrintable(text));
        // The centre follows the statistics without a new page.
        page.machine.disk = {2000 * GB, 125 * GB};
        page.stats.samplePass();
        QVERIFY(page.texts().contains(Fmt::bytes(125 * GB)));
        QVERIFY(page.texts().contains(l[5] + Fmt::bytes(2000 * GB)));

        page.disk->progressName = l[0];
        page.disk->cats = {{u"desktop"_s, l[0], 4096}};
        QAbstractButton *scan = button(page.view.get(), l[4]);
        QVERIFY(scan && scan->isEnabled());
        page.disk->gate.acquire(1000);
        page.view->appeared();
        QTRY_VERIFY(page.texts().contains(l[2]));
        QCOMPARE(scan->text(), l[3]);
        QVERIFY(!scan->isEnabled());

        page.disk->gate.release(1000);
        QTRY_COMPARE(page.legend(), QStringList{l[0] + u'|' + Fmt::bytes(4096)});
        QTRY_VERIFY(scan->isEnabled());
        QCOMPARE(scan->text(), l[4]);
        QVERIFY(!page.texts().contains(l[2]) && !page.texts().contains(l[1]));
        QTRY_COMPARE(page.disk->trashReads.load(), 1);

        // Coming back re-measures the Trash only: the folders have their result.
        page.disk->trash = TrashSize{8192, 5, {}};
        page.view->appeared();
        QTRY_VERIFY(page.texts().contains(l[6]));
        QTest::qWait(50);
        QCOMPARE(page.disk->scans.load(), 1);

        // A new result replaces the rows instead of adding to them.
        page.disk->cats = {{u"other"_s, u"Other"_s, 1'000'000}};
        scan->click();
        QTRY_COMPARE(page.legend(), QStringList{u"Other|"_s + Fmt::bytes(1'000'000)});
    }

    // In the given order, sized by bytes, with an empty category still drawn as one byte.
    void ringSectors()
    {
        Page page;
        page.disk->cats = {{u"downloads"_s, u"Downloads"_s, 0},
                           {u"other"_s, u"Other"_s, 1},
                           {u"documents"_s, u"Documents"_s, 2}};
        page.model->scan();
        QTRY_VERIFY(!page.model->scanning());
        const QList<RingChart::Sector> &sectors = page.view->findChild<RingChart *>()->sectors();
        const QList<QWidget *> legend = page.view->findChildren<QWidget *>(u"legendRow"_s);
        QCOMPARE(sectors.size(), 3);
        const double starts[] = {0, 90, 180}, spans[] = {90, 90, 180};
        for (qsizetype i = 0; i < 3; ++i) {
            QCOMPARE(sectors[i].id, page.disk->cats[i].id);
            QCOMPARE(sectors[i].startAngle, starts[i]);
            QCOMPARE(sectors[i].spanAngle, spans[i]);
            // The legend's dot is the ring's colour.
            const QImage dot = legend[i]->findChild<QLabel *>(u"dot"_s)->pixmap().toImage();
            QVERIFY(near(dot.pixelColor(dot.width() / 2, dot.height() / 2), sectors[i].colour));
        }
        // The legend lists the real sizes, not the ones the ring counts.
        QCOMPARE(page.legend(),
                 (QStringList{u"Downloads|"_s + Fmt::bytes(0), u"Other|"_s + Fmt::bytes(1),
                              u"Documents|"_s + Fmt::bytes(2)}));
    }

    // Clockwise from twelve o'clock around a hole; named ids in their own hues, any other id
    // one gray, "free" a faint version of it.
    void ringColours()
    {
        RingChart ring;
        ring.setCategories({{u"documents"_s, u"Documents"_s, 1}, {u"volumes"_s, u"Volumes"_s, 3}});
        const QImage image = ring.grab().toImage();
        const double r = RingChart::kSize / 2.0;
        const auto at = [&](double angle, double ratio) {
            const double radians = qDegreesToRadians(angle);
            return image.pixelColor(int(r + ratio * r * std::sin(radians)),
                                    int(r - ratio * r * std::cos(radians)));
        };
        QVERIFY2(std::abs(at(45, 0.85).hsvHue() - 211) < 15, qPrintable(at(45, 0.85).name()));
        const QColor gray = at(225, 0.85);
        QVERIFY2(gray.hsvSaturationF() < 0.1 && gray.alpha() == 255, qPrintable(gray.name()));
        QVERIFY(near(at(200, 0.1), image.pixelColor(1, 1)));
        QColor free = RingChart::colour(u"free"_s);
        QVERIFY(std::abs(free.alphaF() - 0.25) < 0.01);
        free.setAlpha(255);
        QVERIFY(near(free, gray));
    }

    // The three states of the Trash box, then its Empty button.
    void trash_data()
    {
        QTest::addColumn<bool>("zh");
        QTest::addColumn<int>("state");          // 0 not measured, 1 known, 2 unreadable
        QTest::addColumn<QStringList>("detail"); // shown only while the size is unreadable
        QTest::addColumn<QString>("message");    // null: the confirmation is cancelled
        const QStringList en{u"macOS hides the Trash from apps unless they have Full Disk "
                             u"Access. Emptying still works."_s,
                             u"Grant Full Disk Access…"_s};
        const QStringList zh{u"macOS 不让应用读取废纸篓内容，除非给「完全磁盘访问权限」。"
                             u"清空仍然可用。"_s,
                             u"去授权完全磁盘访问…"_s};
        QTest::newRow("not measured, cancelled") << false << 0 << en << QString();
        QTest::newRow("known, emptied zh") << true << 1 << zh << u"已清空。"_s;
        QTest::newRow("unreadable, still empties") << false << 2 << en << u"Trash emptied."_s;
        QTest::newRow("unreadable zh, cancelled") << true << 2 << zh << QString();
    }
    void trash()
    {
        QFETCH(bool, zh);
        QFETCH(int, state);
        QFETCH(QStringList, detail);
        QFETCH(QString, message);
        L10n::overrideForTesting(zh);
        Page page;
        if (state == 1)
            page.disk->trash = TrashSize{2'500'000, 3, {}};
        if (state > 0) {
            page.model->refreshTrash();
            QTRY_VERIFY(page.model->trash() || page.model->trashUnreadable());
        }
        const QStringList before = page.texts();
        const QStringList marks = zh ? QStringList{u"…"_s, u"3 项"_s, u"无法读取大小"_s}
                                     : QStringList{u"…"_s, u"3 item(s)"_s, u"Size unavailable"_s};
        for (int i = 0; i < 3; ++i)
            QVERIFY2(before.contains(marks[i]) == (i == state), qPrintable(before.join(u", "_s)));
        QCOMPARE(before.contains(Fmt::bytes(2'500'000)), state == 1);
        for (const QString &text : std::as_const(detail))
            QCOMPARE(before.contains(text), state == 2);
        if (state == 2) {
            button(page.view.get(), detail.last())->click();
            QCOMPARE(page.settingsOpened, 1);
        }

        const int reads = page.disk->trashReads;
        button(page.view.get(), zh ? u"清空废纸篓"_s : u"Empty Trash"_s)->click();
        QMessageBox *box = openBox();
        QVERIFY(box);
        QCOMPARE(box->text(), zh ? u"确定清空废纸篓？此操作无法撤销。"_s
                                 : u"Empty the Trash? This cannot be undone."_s);
        QAbstractButton *destructive = button(box, zh ? u"清空"_s : u"Empty Trash"_s);
        QVERIFY(destructive && box->button(QMessageBox::Cancel));
        QCOMPARE(box->buttonRole(destructive), QMessageBox::DestructiveRole);
        if (message.isNull()) {
            box->button(QMessageBox::Cancel)->click();
            QTRY_VERIFY(!openBox());
            QTest::qWait(50);
            QCOMPARE(page.disk->empties.load(), 0);
            QCOMPARE(page.disk->trashReads.load(), reads);
            QCOMPARE(page.texts(), before);
            return;
        }
        destructive->click();
        QTRY_VERIFY(page.texts().contains(message));
        QCOMPARE(page.disk->empties.load(), 1);
        // Counted when confirmed, measured again afterwards, failure or not.
        QTRY_COMPARE(page.disk->trashReads.load(), reads + 2);
    }

    // Through the real services: the page empties the XDG Trash of the temporary home.
    void emptiesRealTrash()
    {
        const QString trash = m_home->file(u".local/share/Trash"_s);
        QVERIFY(QDir().mkpath(trash + u"/files/old"_s) && QDir().mkpath(trash + u"/info"_s));
        for (const QString &name : {u"report.pdf"_s, u"old"_s}) {
            QFile data(trash + u"/files/"_s + (name == u"old" ? u"old/notes.txt"_s : name));
            QFile info(trash + u"/info/"_s + name + u".trashinfo"_s);
            QVERIFY(data.open(QIODevice::WriteOnly) && info.open(QIODevice::WriteOnly));
            data.write("data");
            info.write("[Trash Info]\nPath=/tmp/" + name.toUtf8() +
                       "\nDeletionDate=2024-05-01T10:00:00\n");
        }
        Page page(true);
        page.view->appeared();
        QTRY_VERIFY(page.texts().contains(u"2 item(s)"_s));

        button(page.view.get(), u"Empty Trash"_s)->click();
        QMessageBox *box = openBox();
        QVERIFY(box);
        button(box, u"Empty Trash"_s)->click();
        QVERIFY(page.texts().contains(u"Emptying…"_s));
        QTRY_VERIFY(page.texts().contains(u"Trash emptied."_s));
        QTRY_VERIFY(page.texts().contains(u"0 item(s)"_s));
        QVERIFY(!page.texts().contains(u"Emptying…"_s));
        for (const QString &folder : {u"/files"_s, u"/info"_s})
            QVERIFY(QDir(trash + folder)
                        .isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    }

    void loginSwitch_data()
    {
        QTest::addColumn<bool>("initially");
        QTest::addColumn<bool>("accepts");
        QTest::newRow("off, turned on") << false << true;
        QTest::newRow("on, turned off") << true << true;
        QTest::newRow("refused springs back off") << false << false;
        QTest::newRow("refused springs back on") << true << false;
    }
    // The switch shows what the system holds; a refusal shows nothing beyond springing back.
    void loginSwitch()
    {
        QFETCH(bool, initially);
        QFETCH(bool, accepts);
        Page page(false, u"1.2"_s, initially);
        page.loginAccepts = accepts;
        auto *box = qobject_cast<QCheckBox *>(button(page.view.get(), u"Start Quorvel at login"_s));
        QVERIFY(box);
        QCOMPARE(box->isChecked(), initially);
        const QStringList before = page.texts();
        box->click();
        QCOMPARE(page.loginAsked, QList<bool>{!initially});
        QCOMPARE(box->isChecked(), accepts != initially);
        if (!accepts)
            QCOMPARE(page.texts(), before);
    }

private:
    std::unique_ptr<TestHome> m_home;
};

QTEST_MAIN(OverviewViewTest)
#include "tst_overviewview.moc"
