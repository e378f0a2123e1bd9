#include "ui/pages/ScreenCleanView.h"

#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/L10n.h"
#include "ui/Theme.h"
#include "ui/kit/ProminentButton.h"
#include "ui/kit/TintedBox.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSymbolSize = 64;
constexpr int kTextWidth = 480;
constexpr int kStartWidth = 180;

// Wrapped text at most its maximum width, and centred. It asks for that whole width, and
// measures its height at the width it will really get: a column hands an aligned item its
// own, wider width when asking for heights, which would cut lines off.
class WrappedText final : public QLabel
{
public:
    using QLabel::QLabel;
    QSize sizeHint() const override { return {maximumWidth(), heightForWidth(maximumWidth())}; }
    int heightForWidth(int width) const override
    {
        return QLabel::heightForWidth(qMin(width, maximumWidth()));
    }
};

QLabel *text(QWidget *parent, const QString &name, Theme::Font role, bool wrap)
{
    QLabel *l = wrap ? new WrappedText(parent) : new QLabel(parent);
    l->setObjectName(name);
    l->setFont(Theme::font(role));
    l->setTextFormat(Qt::PlainText);
    l->setAlignment(Qt::AlignCenter);
    if (wrap) {
        l->setWordWrap(true);
        l->setMaximumWidth(kTextWidth);
    }
    return l;
}

QWidget *permissionBox(QWidget *parent, ScreenCleanMode &mode)
{
    auto *box = new TintedBox(parent);
    box->setObjectName(u"permissionBox"_s);
    auto *column = new QVBoxLayout(box);
    column->setContentsMargins(12, 12, 12, 12);
    column->setSpacing(8);
    QLabel *note = text(box, u"permissionNote"_s, Theme::Font::callout, false);
    note->setText(L10n::pick(u"Needs the Accessibility permission to block key presses."_s,
                             u"需要「辅助功能」权限才能拦截按键。"_s));
    column->addWidget(note, 0, Qt::AlignHCenter);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    auto *request = new QPushButton(L10n::pick(u"Request permission"_s, u"申请权限"_s), box);
    auto *settings = new QPushButton(L10n::pick(u"Open System Settings"_s, u"打开系统设置"_s), box);
    buttons->addWidget(request);
    buttons->addWidget(settings);
    column->addLayout(buttons);
    column->setAlignment(buttons, Qt::AlignHCenter);
    QObject::connect(request, &QPushButton::clicked, box, [&mode] { mode.requestPermission(); });
    QObject::connect(settings, &QPushButton::clicked, box,
                     &ScreenCleanMode::openAccessibilitySettings);
    return box;
}

} // namespace

ScreenCleanView::ScreenCleanView(ScreenCleanMode &mode, QWidget *parent)
    : QWidget(parent), m_mode(mode)
{
    auto *symbol = new QLabel(this);
    symbol->setObjectName(u"symbol"_s);
    symbol->setPixmap(Theme::symbol(u"sparkles.rectangle.stack"_s, kSymbolSize, Theme::accent()));
    symbol->setFixedSize(kSymbolSize, kSymbolSize);

    QLabel *title = text(this, u"title"_s, Theme::Font::title, false);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    title->setText(L10n::pick(u"Screen Cleaning Mode"_s, u"清屏模式"_s));

    QLabel *description = text(this, u"description"_s, Theme::Font::body, true);
    description->setText(L10n::pick(
        u"Blacks out the screen and locks the keyboard, trackpad and mouse buttons so you can "
        u"wipe the Mac without typing or clicking anything. Press Esc three times quickly to "
        u"exit; it also ends by itself after 10 minutes."_s,
        u"把屏幕变黑，并锁住键盘、触控板和鼠标按键，擦拭时不会误按。连按 3 次 Esc 退出，10 "
        u"分钟后也会自动退出。"_s));

    m_permissionBox = permissionBox(this, mode);

    m_error = text(this, u"error"_s, Theme::Font::caption, true);
    QPalette red = m_error->palette();
    red.setColor(QPalette::WindowText, Theme::poor());
    m_error->setPalette(red);

    auto *start = new ProminentButton(L10n::pick(u"Start cleaning mode"_s, u"开始清屏"_s),
                                      u"lock.fill"_s, this);
    start->setObjectName(u"start"_s);
    start->setMinimumWidth(kStartWidth);

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(30, 30, 30, 30);
    column->setSpacing(18);
    column->addStretch(1);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    column->addWidget(title, 0, Qt::AlignHCenter);
    column->addWidget(description, 0, Qt::AlignHCenter);
    column->addWidget(m_permissionBox, 0, Qt::AlignHCenter);
    column->addWidget(m_error, 0, Qt::AlignHCenter);
    column->addWidget(start, 0, Qt::AlignHCenter);
    column->addStretch(1);

    connect(start, &QPushButton::clicked, this, [this] { m_mode.start(); });
    connect(&mode, &ScreenCleanMode::changed, this, &ScreenCleanView::sync);
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state == Qt::ApplicationActive)
                    sync();
            });
    sync();
}

void ScreenCleanView::appeared()
{
    sync();
}

void ScreenCleanView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    sync();
}

void ScreenCleanView::sync()
{
    m_permissionBox->setVisible(!m_mode.trusted());
    const std::optional<QString> &error = m_mode.lastError();
    m_error->setText(error.value_or(QString()));
    m_error->setVisible(error.has_value());
}
