#include "common/TestHome.h"
#include "core/text/L10n.h"
#include "ui/Theme.h"
#include "ui/kit/Confirm.h"
#include "ui/kit/ElidedLabel.h"
#include "ui/kit/ProminentButton.h"
#include "ui/kit/Spinner.h"

#include <QAbstractButton>
#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(Theme::Font)

// The theme's symbols and fonts, and the small widgets of the kit.
class ThemeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { L10n::overrideForTesting(false); }

    void symbols_data();
    void symbols();
    void symbolCache();
    void fontRoles_data();
    void fontRoles();

    void confirm_data();
    void confirm();
    void elidedLabel_data();
    void elidedLabel();
    void spinnerTimer_data();
    void spinnerTimer();
    void prominentButton_data();
    void prominentButton();

private:
    std::unique_ptr<TestHome> m_home;
};

void ThemeTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
}

// ---- Theme -------------------------------------------------------------------------

void ThemeTest::symbols_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QColor>("tint");
    const QList<QColor> tints{Theme::accent(), QColor(Qt::red), QColor(0, 160, 90)};
    const QStringList names =
        u"heart.text.square.fill laptopcomputer cpu memorychip internaldrive "
        u"battery.100percent.bolt battery.75percent powerplug network arrow.up arrow.down "
        u"sparkles gauge.with.dots.needle.33percent trash shippingbox doc.zipper app.dashed "
        u"sparkles.rectangle.stack arrow.down.circle magnifyingglass lock.fill gearshape "
        u"checkmark.shield"_s.split(u' ');
    for (qsizetype i = 0; i < names.size(); ++i)
        QTest::newRow(qPrintable(names[i])) << names[i] << tints[i % tints.size()];
}

// Each symbol is a drawing (neither empty nor a solid square) entirely in the tint.
void ThemeTest::symbols()
{
    QFETCH(QString, name);
    QFETCH(QColor, tint);
    QVERIFY(!Theme::icon(name, tint).isNull());
    const QPixmap pixmap = Theme::symbol(name, 48, tint);
    QCOMPARE(pixmap.size(), QSize(48, 48));
    const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
    int covered = 0, exact = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.alpha() == 0)
                continue;
            ++covered;
            if (c.alpha() == 255 && c.rgb() == tint.rgb())
                ++exact;
            if (c.alpha() >= 128 &&
                (qAbs(c.red() - tint.red()) > 3 || qAbs(c.green() - tint.green()) > 3 ||
                 qAbs(c.blue() - tint.blue()) > 3))
                QFAIL(qPrintable(u"untinted pixel at %1,%2: %3"_s.arg(x).arg(y).arg(c.name())));
        }
    }
    const int area = image.width() * image.height();
    QVERIFY2(exact > 0, "the tint never appears at full strength");
    QVERIFY2(covered > area / 50, qPrintable(QString::number(covered)));
    QVERIFY2(covered < area * 85 / 100, qPrintable(QString::number(covered)));
}

void ThemeTest::symbolCache()
{
    const QPixmap a = Theme::symbol(u"trash"_s, 24, Qt::red);
    QCOMPARE(Theme::symbol(u"trash"_s, 24, Qt::red).cacheKey(), a.cacheKey());
    const QPixmap blue = Theme::symbol(u"trash"_s, 24, Qt::blue);
    QVERIFY(blue.cacheKey() != a.cacheKey());
    QVERIFY(blue.toImage() != a.toImage());
    QCOMPARE(Theme::symbol(u"trash"_s, 32, Qt::red).size(), QSize(32, 32));
    // No tint: the text colour of the palette.
    const QColor text = QApplication::palette().color(QPalette::WindowText);
    QCOMPARE(Theme::symbol(u"trash"_s, 24).toImage(),
             Theme::symbol(u"trash"_s, 24, text).toImage());
    QVERIFY(Theme::symbol(u"no.such.symbol"_s, 24, Qt::red).isNull());
    QVERIFY(Theme::icon(u"no.such.symbol"_s).isNull());
    QVERIFY(Theme::symbol(u"trash"_s, 0, Qt::red).isNull());
}

void ThemeTest::fontRoles_data()
{
    QTest::addColumn<Theme::Font>("role");
    QTest::addColumn<double>("macPoints");
    QTest::addColumn<bool>("bold");
    QTest::newRow("title") << Theme::Font::title << 22.0 << false;
    QTest::newRow("title2") << Theme::Font::title2 << 17.0 << false;
    QTest::newRow("title3") << Theme::Font::title3 << 15.0 << false;
    QTest::newRow("headline") << Theme::Font::headline << 13.0 << true;
    QTest::newRow("body") << Theme::Font::body << 13.0 << false;
    QTest::newRow("callout") << Theme::Font::callout << 12.0 << false;
    QTest::newRow("caption") << Theme::Font::caption << 10.0 << false;
}

// Sizes follow the application font, in macOS's proportions to its 13-point body.
void ThemeTest::fontRoles()
{
    QFETCH(Theme::Font, role);
    QFETCH(double, macPoints);
    QFETCH(bool, bold);
    const QFont base = QApplication::font();
    QVERIFY(base.pointSizeF() > 0);
    for (const double points : {base.pointSizeF(), base.pointSizeF() * 2}) {
        QFont app = base;
        app.setPointSizeF(points);
        QApplication::setFont(app);
        const QFont f = Theme::font(role);
        QVERIFY2(qAbs(f.pointSizeF() - points * macPoints / 13) < 0.01,
                 qPrintable(QString::number(f.pointSizeF())));
        QCOMPARE(f.bold(), bold);
        QCOMPARE(f.family(), app.family());
    }
    QApplication::setFont(base);
}

// ---- Kit -----------------------------------------------------------------------------

void ThemeTest::confirm_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<int>("calls");
    QTest::newRow("destructive button") << u"destructive"_s << 1;
    QTest::newRow("Cancel") << u"cancel"_s << 0;
    QTest::newRow("Escape") << u"escape"_s << 0;
    QTest::newRow("Return") << u"return"_s << 0;
}

void ThemeTest::confirm()
{
    QFETCH(QString, answer);
    QFETCH(int, calls);
    QWidget window;
    window.show();
    int confirmed = 0;
    QPointer<QMessageBox> box = Confirm::ask(&window, u"Move 3 items to the Trash?"_s,
                                             u"They can be restored from the Trash."_s,
                                             u"Move to Trash"_s, [&] { ++confirmed; });
    QVERIFY(box);
    QVERIFY(box->isVisible()); // shown without a nested event loop
    QCOMPARE(box->windowModality(), Qt::WindowModal);
    QCOMPARE(box->text(), u"Move 3 items to the Trash?"_s);
    QCOMPARE(box->informativeText(), u"They can be restored from the Trash."_s);
    QAbstractButton *destructive = nullptr;
    for (QAbstractButton *b : box->buttons())
        if (box->buttonRole(b) == QMessageBox::DestructiveRole)
            destructive = b;
    QVERIFY(destructive);
    QCOMPARE(destructive->text(), u"Move to Trash"_s);
    QVERIFY(box->button(QMessageBox::Cancel));
    QCOMPARE(box->buttons().size(), 2);
    QCOMPARE(confirmed, 0);

    if (answer == u"destructive")
        destructive->click();
    else if (answer == u"cancel")
        box->button(QMessageBox::Cancel)->click();
    else
        QTest::keyClick(box, answer == u"escape" ? Qt::Key_Escape : Qt::Key_Return);
    QTRY_VERIFY(box.isNull()); // deleted on close
    QCOMPARE(confirmed, calls);
}

void ThemeTest::elidedLabel_data()
{
    QTest::addColumn<Qt::TextElideMode>("mode");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("elided");
    const QString path = u"~/Library/Caches/com.example.SomeVeryLongApplicationName/"
                         u"fsCachedData/0A1B2C3D-4E5F-6789-ABCD-EF0123456789"_s;
    QTest::newRow("middle, long") << Qt::ElideMiddle << path << true;
    QTest::newRow("right, long") << Qt::ElideRight << path << true;
    QTest::newRow("left, long") << Qt::ElideLeft << path << true;
    QTest::newRow("middle, short") << Qt::ElideMiddle << u"~/Downloads"_s << false;
    QTest::newRow("markup stays text") << Qt::ElideRight << u"<b>a & b</b>"_s << false;
}

void ThemeTest::elidedLabel()
{
    QFETCH(Qt::TextElideMode, mode);
    QFETCH(QString, text);
    QFETCH(bool, elided);
    QWidget holder;
    auto *label = new ElidedLabel(mode, &holder);
    label->resize(160, 20);
    label->setFullText(text);
    QCOMPARE(label->fullText(), text);
    QCOMPARE(label->textFormat(), Qt::PlainText);
    if (!elided) {
        QCOMPARE(label->text(), text);
        QVERIFY(label->toolTip().isEmpty());
        return;
    }
    const QString shown = label->text();
    QVERIFY(shown != text);
    QVERIFY(shown.contains(QChar(0x2026)));
    QVERIFY(label->fontMetrics().horizontalAdvance(shown) <= 160);
    QCOMPARE(label->toolTip(), text);
    if (mode == Qt::ElideMiddle)
        QVERIFY(shown.startsWith(text.left(2)) && shown.endsWith(text.right(2)));
    else if (mode == Qt::ElideRight)
        QVERIFY(shown.startsWith(text.left(2)) && shown.endsWith(QChar(0x2026)));
    else
        QVERIFY(shown.startsWith(QChar(0x2026)) && shown.endsWith(text.right(2)));
    // A layout that grows it gets the whole text back, and asks for exactly that much.
    QVERIFY(label->sizeHint().width() >= label->fontMetrics().horizontalAdvance(text));
    QVERIFY(label->minimumSizeHint().width() < 160);
    holder.show();
    label->resize(label->sizeHint().width() + 10, 20);
    QCOMPARE(label->text(), text);
    QVERIFY(label->toolTip().isEmpty());
}

void ThemeTest::spinnerTimer_data()
{
    QTest::addColumn<QList<bool>>("calls");
    QTest::addColumn<int>("timers");
    QTest::newRow("never started") << QList<bool>{} << 0;
    QTest::newRow("started") << QList<bool>{true} << 1;
    QTest::newRow("started twice") << QList<bool>{true, true} << 1;
    QTest::newRow("stopped") << QList<bool>{true, false} << 0;
    QTest::newRow("stopped twice") << QList<bool>{true, false, false} << 0;
    QTest::newRow("stopped, never started") << QList<bool>{false} << 0;
    QTest::newRow("restarted") << QList<bool>{true, false, true} << 1;
}

void ThemeTest::spinnerTimer()
{
    QFETCH(QList<bool>, calls);
    QFETCH(int, timers);
    Spinner spinner;
    for (const bool running : calls)
        spinner.setRunning(running);
    const auto registered = QAbstractEventDispatcher::instance()->registeredTimers(&spinner);
    QCOMPARE(registered.size(), timers);
    QCOMPARE(spinner.isRunning(), timers > 0);
}

void ThemeTest::prominentButton_data()
{
    QTest::addColumn<QString>("symbol");
    QTest::newRow("text only") << QString();
    QTest::newRow("with icon") << u"sparkles"_s;
}

void ThemeTest::prominentButton()
{
    QFETCH(QString, symbol);
    QWidget window; // the disabled face is see-through, so draw it over a real background
    auto *button = new ProminentButton(u"Open Quorvel"_s, symbol, &window);
    QCOMPARE(button->text(), u"Open Quorvel"_s);
    QCOMPARE(button->icon().isNull(), symbol.isEmpty());
    button->resize(button->sizeHint());
    window.resize(button->size());
    const auto accentPixels = [&window] {
        const QImage image = window.grab().toImage().convertToFormat(QImage::Format_ARGB32);
        int n = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                n += image.pixel(x, y) == Theme::accent().rgba();
        return n;
    };
    // Enabled: an accent face. Disabled: a faded one, not the same accent.
    QVERIFY(accentPixels() > button->width() * button->height() / 3);
    button->setEnabled(false);
    QCOMPARE(accentPixels(), 0);
}

QTEST_MAIN(ThemeTest)
#include "tst_theme.moc"
