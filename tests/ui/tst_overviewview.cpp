#include "common/TestHome.h"
#include "core/health/SystemStats.h"
#include "core/models/OverviewModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "health/FakeSources.h"
#include "ui/CleanPageProbe.h"
#include "ui/pages/OverviewView.h"
#include "ui/pages/RingChart.h"

#include <QCheckBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSemaphore>
#include <QtTest>
#include <atomic>
#include <memory>

using namespace Qt::StringLiterals;
using namespace Probe;

namespace {

// The disk as the fake services see it. Shared with the worker jobs, so a job still
// running when a test ends never outlives it.
struct Disk
{
    QList<DiskCategory> cats;
    QString progressName = u"Documents"_s;
    std::optional<TrashSize> trash; // none: unreadable
    std::optional<QString> emptyError;
    QSemaphore gate{1000}; // take the permits away to hold the scan
    std::atomic<int> scans{0}, trashReads{0}, empties{0};
};

OverviewModel::Services fakeServices(const std::shared_ptr<Disk> &disk)
{
    OverviewModel::Services s;
    s.categories = [disk](const DiskScanner::NameProgress &progress) {
        ++disk->scans;
        progress(disk->progressName);
        disk->gate.acquire();
        disk->gate.release();
        return disk->cats;
    };
    s.trashSize = [disk] {
        ++disk->trashReads;
        return disk->trash;
    };
    s.emptyTrash = [disk] {
        ++disk->empties;
        return disk->emptyError;
    };
    return s;
}

struct Page
{
    std::shared_ptr<Disk> disk = std::make_shared<Disk>();
    Fake machine;
    SystemStats stats{machine.sources()};
    // The system's login item: a flag that may refuse to change.
    bool loginOn = false;
    bool loginAccepts = true;
    QList<bool> loginAsked;
    int loginReads = 0;
    int settingsOpened = 0;
    std::unique_ptr<OverviewModel> model;
    std::unique_ptr<OverviewView> view;

    explicit Page(bool realServices = false, std::optional<QString> version = u"1.2"_s,
                  bool loginInitially = false)
        : loginOn(loginInitially)
    {
        stats.samplePass();
        model = std::make_unique<OverviewModel>(realServices ? OverviewModel::Services::real()
                                                             : fakeServices(disk));
        OverviewView::Settings s;
        s.loginEnabled = [this] { return ++loginReads, loginOn; };
        s.setLogin = [this](bool on) -> std::optional<QString> {
            loginAsked.append(on);
            if (!loginAccepts)
                return u"Operation not permitted"_s;
            loginOn = on;
            return std::nullopt;
        };
        s.openFullDiskAccess = [this] { ++settingsOpened; };
        s.version = std::move(version);
        view = std::make_unique<OverviewView>(*model, stats, std::move(s));
        view->resize(900, 620);
        view->show();
    }
    ~Page()
    {
        disk->gate.release(1000);
        if (!QTest::qWaitFor([&] { return !model->scanning(); }, 10'000))
            qFatal("a scan never ended");
    }
    bool scanned(QList<DiskCategory> cats)
    {
        disk->cats = std::move(cats);
        model->scan();
        return QTest::qWaitFor([&] { return !model->scanning() && !model->cats().isEmpty(); });
    }
    bool measuredTrash()
    {
        model->refreshTrash();
        return QTest::qWaitFor([&] { return model->trash() || model->trashUnreadable(); });
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

QAbstractButton *destructiveButton(QMessageBox *box)
{
    for (QAbstractButton *b : box->buttons()) {
        if (box->buttonRole(b) == QMessageBox::DestructiveRole)
            return b;
    }
    return nullptr;
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

    void texts_data();
    void texts();
    void ringSectors_data();
    void ringSectors();
    void ringPainting();
    void palette_data();
    void palette();
    void appearanceAndScan_data();
    void appearanceAndScan();
    void trashStates_data();
    void trashStates();
    void emptying_data();
    void emptying();
    void emptiesRealTrash();
    void loginSwitch_data();
    void loginSwitch();

private:
    std::unique_ptr<TestHome> m_home;
};

void OverviewViewTest::texts_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QStringList>("titles");
    QTest::addColumn<QString>("of");
    QTest::addColumn<QStringList>("fixed");
    QTest::addColumn<QString>("version"); // null: the build has none
    QTest::addColumn<QString>("versionText");
    const QStringList en{u"Macintosh HD"_s, u"Trash"_s, u"Settings & safety"_s};
    const QStringList enFixed{
        u"available"_s, u"Start Quorvel at login"_s, u"Empty Trash"_s,
        u"Quorvel never deletes files outright: every clean-up moves items to the Trash, "
        u"protected folders (Mail, Messages, Photos, Documents, iCloud…) are refused, and each "
        u"move is written to ~/Library/Logs/Quorvel/removals.log."_s};
    QTest::newRow("English") << false << en << u"of "_s << enFixed << u"1.2"_s << u"v1.2"_s;
    QTest::newRow("empty version") << false << en << u"of "_s << enFixed << u""_s << u"vdev"_s;
    QTest::newRow("Chinese")
        << true << QStringList{u"磁盘"_s, u"废纸篓"_s, u"设置与安全"_s} << u"共 "_s
        << QStringList{u"可用"_s, u"登录时自动启动 Quorvel"_s, u"清空废纸篓"_s,
                       u"Quorvel 从不直接删除文件：所有清理都先移到废纸篓；"
                       u"邮件、信息、照片、文稿、iCloud 等受保护位置一律拒绝；"
                       u"每次移动都记在 ~/Library/Logs/Quorvel/removals.log。"_s}
        << QString() << u"vdev"_s;
}

void OverviewViewTest::texts()
{
    QFETCH(bool, zh);
    QFETCH(QStringList, titles);
    QFETCH(QString, of);
    QFETCH(QStringList, fixed);
    QFETCH(QString, version);
    QFETCH(QString, versionText);
    L10n::overrideForTesting(zh);
    Page page(false, version.isNull() ? std::nullopt : std::optional(version));
    QStringList shownTitles;
    for (const QLabel *title : page.view->findChildren<QLabel *>(u"boxTitle"_s))
        shownTitles.append(title->text());
    QCOMPARE(shownTitles, titles);
    const QStringList texts = page.texts();
    for (const QString &text : fixed + QStringList{versionText})
        QVERIFY2(texts.contains(text), qPrintable(text));
    QVERIFY(texts.contains(Fmt::bytes(500 * GB)));
    QVERIFY(texts.contains(of + Fmt::bytes(1000 * GB)));

    // The centre follows the statistics without a new page.
    page.machine.disk = {2000 * GB, 125 * GB};
    page.stats.samplePass();
    QVERIFY(page.texts().contains(Fmt::bytes(125 * GB)));
    QVERIFY(page.texts().contains(of + Fmt::bytes(2000 * GB)));
    QVERIFY(!page.texts().contains(Fmt::bytes(500 * GB)));
}

void OverviewViewTest::ringSectors_data()
{
    QTest::addColumn<QStringList>("ids");
    QTest::addColumn<QList<qint64>>("bytes");
    QTest::addColumn<QList<qint64>>("values");
    QTest::addColumn<QList<double>>("spans");
    const QStringList two{u"documents"_s, u"free"_s};
    QTest::newRow("proportional") << two << QList<qint64>{1000, 3000} << QList<qint64>{1000, 3000}
                                  << QList<double>{90, 270};
    QTest::newRow("zero bytes count as one")
        << two << QList<qint64>{0, 3'000'000} << QList<qint64>{1, 3'000'000}
        << QList<double>{360.0 / 3'000'001, 360.0 * 3'000'000 / 3'000'001};
    QTest::newRow("negative counts as one")
        << QStringList{u"other"_s, u"free"_s, u"desktop"_s} << QList<qint64>{-5, 1, 2}
        << QList<qint64>{1, 1, 2} << QList<double>{90, 90, 180};
    QTest::newRow("one category fills the ring")
        << QStringList{u"free"_s} << QList<qint64>{7} << QList<qint64>{7} << QList<double>{360};
    QTest::newRow("order kept, not sorted")
        << QStringList{u"downloads"_s, u"documents"_s, u"applications"_s} << QList<qint64>{1, 6, 5}
        << QList<qint64>{1, 6, 5} << QList<double>{30, 180, 150};
}

void OverviewViewTest::ringSectors()
{
    QFETCH(QStringList, ids);
    QFETCH(QList<qint64>, bytes);
    QFETCH(QList<qint64>, values);
    QFETCH(QList<double>, spans);
    Page page;
    const RingChart *ring = page.view->findChild<RingChart *>();
    QVERIFY(ring->sectors().isEmpty());
    QList<DiskCategory> cats;
    QStringList rows;
    for (qsizetype i = 0; i < ids.size(); ++i) {
        cats.append({ids[i], ids[i].toUpper(), bytes[i]});
        // The legend lists the real sizes, not the ones the ring counts.
        rows.append(ids[i].toUpper() + u'|' + Fmt::bytes(bytes[i]));
    }
    QVERIFY(page.scanned(cats));
    const QList<RingChart::Sector> &sectors = ring->sectors();
    QCOMPARE(sectors.size(), ids.size());
    double start = 0;
    for (qsizetype i = 0; i < sectors.size(); ++i) {
        QCOMPARE(sectors[i].id, ids[i]);
        QCOMPARE(sectors[i].value, values[i]);
        QCOMPARE(sectors[i].startAngle, start);
        QCOMPARE(sectors[i].spanAngle, spans[i]);
        start += spans[i];
    }
    QCOMPARE(page.legend(), rows);
}

// Clockwise from twelve o'clock, a ring between 0.7 and 1 of the radius.
void OverviewViewTest::ringPainting()
{
    RingChart ring;
    ring.setCategories({{u"documents"_s, u"Documents"_s, 1}, {u"other"_s, u"Other"_s, 3}});
    const QImage image = ring.grab().toImage();
    QCOMPARE(image.size(), QSize(RingChart::kSize, RingChart::kSize));
    const double radius = RingChart::kSize / 2.0;
    const auto at = [&](double angle, double ratio) {
        const double radians = qDegreesToRadians(angle);
        return image.pixelColor(int(radius + ratio * radius * std::sin(radians)),
                                int(radius - ratio * radius * std::cos(radians)));
    };
    const QColor background = image.pixelColor(1, 1);
    QVERIFY2(near(at(45, 0.85), RingChart::colour(u"documents"_s)),
             qPrintable(at(45, 0.85).name()));
    for (const double angle : {135.0, 225.0, 315.0})
        QVERIFY2(near(at(angle, 0.85), RingChart::colour(u"other"_s)),
                 qPrintable(QString::number(angle)));
    // The hole, near its rim and at the centre.
    QVERIFY(near(at(45, 0.6), background) && near(at(200, 0.1), background));
}

void OverviewViewTest::palette_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<int>("hueFrom"); // -1: a gray
    QTest::addColumn<int>("hueTo");
    QTest::addColumn<double>("alpha");
    QTest::newRow("documents blue") << u"documents"_s << 200 << 235 << 1.0;
    QTest::newRow("applications pink") << u"applications"_s << 325 << 359 << 1.0;
    QTest::newRow("desktop teal") << u"desktop"_s << 170 << 199 << 1.0;
    QTest::newRow("downloads purple") << u"downloads"_s << 260 << 300 << 1.0;
    QTest::newRow("other orange") << u"other"_s << 20 << 50 << 1.0;
    QTest::newRow("free faint gray") << u"free"_s << -1 << -1 << 0.25;
    QTest::newRow("unknown id plain gray") << u"volumes"_s << -1 << -1 << 1.0;
    QTest::newRow("ids are exact") << u"Documents"_s << -1 << -1 << 1.0;
}

void OverviewViewTest::palette()
{
    QFETCH(QString, id);
    QFETCH(int, hueFrom);
    QFETCH(int, hueTo);
    QFETCH(double, alpha);
    Page page;
    QVERIFY(page.scanned({{id, u"Slice"_s, 10}, {u"mystery"_s, u"Mystery"_s, 10}}));
    const QList<RingChart::Sector> sectors = page.view->findChild<RingChart *>()->sectors();
    const QColor colour = sectors.first().colour;
    QVERIFY2(std::abs(colour.alphaF() - alpha) < 0.01,
             qPrintable(QString::number(colour.alphaF())));
    if (hueFrom < 0) {
        QVERIFY2(colour.hsvSaturationF() < 0.1, qPrintable(colour.name()));
        // The same gray as any id outside the palette, only fainter.
        QColor plain = sectors.last().colour;
        plain.setAlphaF(colour.alphaF());
        QCOMPARE(colour, plain);
    } else {
        QVERIFY2(colour.hsvHue() >= hueFrom && colour.hsvHue() <= hueTo, qPrintable(colour.name()));
        QVERIFY(colour.hsvSaturationF() > 0.5);
    }
    // The legend's dot is the ring's colour.
    const QList<QWidget *> rows = page.view->findChildren<QWidget *>(u"legendRow"_s);
    QCOMPARE(rows.size(), 2);
    const QImage dot = rows.first()->findChild<QLabel *>(u"dot"_s)->pixmap().toImage();
    const QColor dotColour = dot.pixelColor(dot.width() / 2, dot.height() / 2);
    QVERIFY2(near(dotColour, colour), qPrintable(dotColour.name()));
}

void OverviewViewTest::appearanceAndScan_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QString>("progress");
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("measuring");
    QTest::addColumn<QString>("scanningLabel");
    QTest::addColumn<QString>("rescanLabel");
    QTest::newRow("English") << false << u"Desktop"_s << u"Press Scan to measure folder sizes."_s
                             << u"Measuring Desktop…"_s << u"Scanning…"_s << u"Rescan"_s;
    QTest::newRow("Chinese") << true << u"桌面"_s << u"点「扫描」统计各文件夹大小。"_s
                             << u"正在统计 桌面…"_s << u"扫描中…"_s << u"重新扫描"_s;
}

void OverviewViewTest::appearanceAndScan()
{
    QFETCH(bool, zh);
    QFETCH(QString, progress);
    QFETCH(QString, before);
    QFETCH(QString, measuring);
    QFETCH(QString, scanningLabel);
    QFETCH(QString, rescanLabel);
    L10n::overrideForTesting(zh);
    Page page;
    page.disk->progressName = progress;
    page.disk->cats = {{u"desktop"_s, progress, 4096}};

    QVERIFY(page.texts().contains(before));
    QAbstractButton *scan = button(page.view.get(), rescanLabel);
    QVERIFY(scan && scan->isEnabled());

    page.disk->gate.acquire(1000);
    page.view->appeared();
    QTRY_VERIFY(page.texts().contains(measuring));
    QCOMPARE(scan->text(), scanningLabel);
    QVERIFY(!scan->isEnabled());
    QVERIFY(!page.texts().contains(before));

    page.disk->gate.release(1000);
    QTRY_COMPARE(page.legend(), QStringList{progress + u'|' + Fmt::bytes(4096)});
    QTRY_VERIFY(scan->isEnabled());
    QCOMPARE(scan->text(), rescanLabel);
    QVERIFY(!page.texts().contains(measuring));
    QVERIFY(!page.texts().contains(before));
    QTRY_COMPARE(page.disk->trashReads.load(), 1);

    // Coming back re-measures the Trash only: the folders have their result.
    page.disk->trash = TrashSize{8192, 5};
    page.view->appeared();
    QTRY_VERIFY(page.texts().contains(zh ? u"5 项"_s : u"5 item(s)"_s));
    QTest::qWait(50);
    QCOMPARE(page.disk->scans.load(), 1);

    // A new result replaces the rows instead of adding to them.
    page.disk->cats = {{u"free"_s, u"Free"_s, 0}, {u"other"_s, u"Other"_s, 1'000'000}};
    scan->click();
    QTRY_COMPARE(page.legend(),
                 (QStringList{u"Free|"_s + Fmt::bytes(0), u"Other|"_s + Fmt::bytes(1'000'000)}));
    QCOMPARE(page.disk->scans.load(), 2);
}

void OverviewViewTest::trashStates_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<int>("state"); // 0 not measured, 1 known, 2 unreadable
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<QStringList>("absent");
    const QString explanation = u"macOS hides the Trash from apps unless they have Full Disk "
                                u"Access. Emptying still works."_s;
    const QStringList unreadableEn{u"Size unavailable"_s, explanation,
                                   u"Grant Full Disk Access…"_s};
    QTest::newRow("not measured") << false << 0 << QStringList{u"…"_s}
                                  << unreadableEn + QStringList{u"0 item(s)"_s};
    QTest::newRow("known") << false << 1 << QStringList{u"3 item(s)"_s}
                           << unreadableEn + QStringList{u"…"_s};
    QTest::newRow("known zh") << true << 1 << QStringList{u"3 项"_s}
                              << QStringList{u"无法读取大小"_s, u"…"_s};
    QTest::newRow("unreadable") << false << 2 << unreadableEn
                                << QStringList{u"…"_s, u"0 item(s)"_s};
    QTest::newRow("unreadable zh")
        << true << 2
        << QStringList{u"无法读取大小"_s,
                       u"macOS 不让应用读取废纸篓内容，除非给「完全磁盘访问权限」。清空仍然可用。"_s,
                       u"去授权完全磁盘访问…"_s}
        << QStringList{u"…"_s};
}

void OverviewViewTest::trashStates()
{
    QFETCH(bool, zh);
    QFETCH(int, state);
    QFETCH(QStringList, shown);
    QFETCH(QStringList, absent);
    L10n::overrideForTesting(zh);
    Page page;
    if (state == 1) {
        page.disk->trash = TrashSize{2'500'000, 3};
        shown.append(Fmt::bytes(2'500'000));
    }
    if (state > 0)
        QVERIFY(page.measuredTrash());
    const QStringList texts = page.texts();
    for (const QString &text : std::as_const(shown))
        QVERIFY2(texts.contains(text), qPrintable(text + u" not in "_s + texts.join(u", "_s)));
    for (const QString &text : std::as_const(absent))
        QVERIFY2(!texts.contains(text), qPrintable(text));
    QAbstractButton *empty = button(page.view.get(), zh ? u"清空废纸篓"_s : u"Empty Trash"_s);
    QVERIFY(empty && empty->isEnabled());

    if (state == 2) {
        button(page.view.get(), shown.last())->click();
        QCOMPARE(page.settingsOpened, 1);
    }
}

void OverviewViewTest::emptying_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<bool>("confirm");
    QTest::addColumn<bool>("unreadable");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("message"); // after confirming
    QTest::newRow("cancelled") << false << false << false << QString() << QString();
    QTest::newRow("cancelled zh") << true << false << true << QString() << QString();
    QTest::newRow("emptied") << false << true << false << QString() << u"Trash emptied."_s;
    QTest::newRow("emptied zh") << true << true << false << QString() << u"已清空。"_s;
    QTest::newRow("unreadable Trash still empties")
        << false << true << true << QString() << u"Trash emptied."_s;
    QTest::newRow("the Finder refuses")
        << false << true << false << u"AppleScript error"_s << u"AppleScript error"_s;
}

void OverviewViewTest::emptying()
{
    QFETCH(bool, zh);
    QFETCH(bool, confirm);
    QFETCH(bool, unreadable);
    QFETCH(QString, error);
    QFETCH(QString, message);
    L10n::overrideForTesting(zh);
    Page page;
    if (!unreadable)
        page.disk->trash = TrashSize{8192, 2};
    if (!error.isEmpty())
        page.disk->emptyError = error;
    QVERIFY(page.measuredTrash());
    const QStringList before = page.texts();

    button(page.view.get(), zh ? u"清空废纸篓"_s : u"Empty Trash"_s)->click();
    QMessageBox *box = openBox();
    QVERIFY(box);
    QCOMPARE(box->text(), zh ? u"确定清空废纸篓？此操作无法撤销。"_s
                             : u"Empty the Trash? This cannot be undone."_s);
    QVERIFY(box->informativeText().isEmpty());
    QCOMPARE(box->buttons().size(), 2);
    QAbstractButton *destructive = destructiveButton(box);
    QVERIFY(destructive);
    QCOMPARE(destructive->text(), zh ? u"清空"_s : u"Empty Trash"_s);
    QVERIFY(box->button(QMessageBox::Cancel));
    QVERIFY(box->defaultButton() != destructive);

    if (!confirm) {
        box->button(QMessageBox::Cancel)->click();
        QTRY_VERIFY(!openBox());
        QTest::qWait(50);
        QCOMPARE(page.disk->empties.load(), 0);
        QCOMPARE(page.disk->trashReads.load(), 1);
        QCOMPARE(page.texts(), before);
        return;
    }
    destructive->click();
    QTRY_VERIFY(page.texts().contains(message));
    QCOMPARE(page.disk->empties.load(), 1);
    QTRY_COMPARE(page.disk->trashReads.load(), 2); // measured again, failure or not
    QVERIFY(!page.texts().contains(zh ? u"正在清空…"_s : u"Emptying…"_s));
    QCOMPARE(page.texts().contains(zh ? u"无法读取大小"_s : u"Size unavailable"_s), unreadable);
    QCOMPARE(page.texts().contains(zh ? u"2 项"_s : u"2 item(s)"_s), !unreadable);
}

// Through the real services: the page empties the XDG Trash of the temporary home.
void OverviewViewTest::emptiesRealTrash()
{
    const QString trash = m_home->file(u".local/share/Trash"_s);
    const auto makeFile = [](const QString &path, const QByteArray &content) {
        QFile file(path);
        QVERIFY(QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    };
    for (const QString &path : {u"files/report.pdf"_s, u"files/old/notes.txt"_s})
        makeFile(trash + u'/' + path, "data");
    for (const QString &name : {u"report.pdf"_s, u"old"_s})
        makeFile(trash + u"/info/"_s + name + u".trashinfo"_s,
                 "[Trash Info]\nPath=/tmp/" + name.toUtf8() +
                     "\nDeletionDate=2024-05-01T10:00:00\n");
    Page page(true);
    page.view->appeared();
    QTRY_VERIFY(page.texts().contains(u"2 item(s)"_s));

    button(page.view.get(), u"Empty Trash"_s)->click();
    QMessageBox *box = openBox();
    QVERIFY(box);
    destructiveButton(box)->click();
    QVERIFY(page.texts().contains(u"Emptying…"_s));
    QTRY_VERIFY(page.texts().contains(u"Trash emptied."_s));
    QTRY_VERIFY(page.texts().contains(u"0 item(s)"_s));
    QVERIFY(!page.texts().contains(u"Emptying…"_s));
    for (const QString &folder : {u"/files"_s, u"/info"_s})
        QVERIFY(
            QDir(trash + folder).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    QTRY_VERIFY(!page.model->scanning());
}

void OverviewViewTest::loginSwitch_data()
{
    QTest::addColumn<bool>("initially");
    QTest::addColumn<bool>("accepts");
    QTest::addColumn<bool>("after");
    QTest::newRow("off, turned on") << false << true << true;
    QTest::newRow("on, turned off") << true << true << false;
    QTest::newRow("refused stays off") << false << false << false;
    QTest::newRow("refused stays on") << true << false << true;
}

void OverviewViewTest::loginSwitch()
{
    QFETCH(bool, initially);
    QFETCH(bool, accepts);
    QFETCH(bool, after);
    Page page(false, u"1.2"_s, initially);
    page.loginAccepts = accepts;
    QCheckBox *box =
        qobject_cast<QCheckBox *>(button(page.view.get(), u"Start Quorvel at login"_s));
    QVERIFY(box);
    QCOMPARE(box->isChecked(), initially);
    const int reads = page.loginReads;
    const QStringList before = page.texts();

    box->click();
    QCOMPARE(page.loginAsked, QList<bool>{!initially});
    QCOMPARE(page.loginReads, reads + 1);
    QCOMPARE(box->isChecked(), after);
    // A refusal shows nothing beyond the switch going back.
    if (!accepts)
        QCOMPARE(page.texts(), before);

    box->click();
    QCOMPARE(page.loginAsked.size(), 2);
    QCOMPARE(page.loginAsked.last(), !after);
    QCOMPARE(box->isChecked(), accepts ? !after : after);
}

QTEST_MAIN(OverviewViewTest)
#include "tst_overviewview.moc"
