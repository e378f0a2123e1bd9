#include "ui/pages/CleanSection.h"

#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CategoryWords.h"
#include "ui/Theme.h"
#include "ui/kit/SectionHeader.h"
#include "ui/pages/CleanItemsView.h"
#include "ui/pages/RevealButton.h"

#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

QLabel *secondaryLabel(const QString &text, Theme::Font font, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setFont(Theme::font(font));
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, Theme::secondaryText());
    label->setPalette(palette);
    return label;
}

QToolButton *miniButton(const QString &text, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setFont(Theme::font(Theme::Font::caption));
    return button;
}

} // namespace

CleanSection::CleanSection(CleanModel &model, CleanCategory category, QWidget *parent)
    : QWidget(parent), m_model(model), m_category(category),
      m_rows(new CleanItemsModel(model, this)), m_header(new SectionHeader(title(category))),
      m_all(miniButton(L10n::pick(u"All"_s, u"全选"_s), m_header)),
      m_none(miniButton(L10n::pick(u"None"_s, u"全不选"_s), m_header)),
      m_empty(secondaryLabel({}, Theme::Font::body, this)), m_view(new CleanItemsView(m_rows))
{
    m_header->addTrailing(m_all);
    m_header->addTrailing(m_none);
    QLabel *note = secondaryLabel(::note(category), Theme::Font::caption, this);
    note->setWordWrap(true);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(m_header);
    layout->addWidget(m_empty);
    layout->addWidget(m_view);
    layout->addWidget(note);
    new RevealButton(m_view, this);

    connect(m_all, &QToolButton::clicked, this, [this] { tickAll(true); });
    connect(m_none, &QToolButton::clicked, this, [this] { tickAll(false); });
    setItems({});
}

void CleanSection::setItems(QList<CleanItem> items)
{
    m_rows->setItems(std::move(items));
    const bool any = m_rows->rowCount() > 0;
    const qint64 bytes = m_rows->totalBytes();
    m_header->setDetail(any && bytes > 0 ? Fmt::bytes(bytes) : QString());
    m_all->setVisible(any);
    m_none->setVisible(any);
    m_view->setVisible(any);
    m_empty->setVisible(!any);
    refresh();
}

void CleanSection::refresh()
{
    if (m_rows->rowCount() > 0) {
        m_rows->refreshTicks();
        return;
    }
    // A removal also sets `scanning`, so an empty section then reads "Scanning… Removing…".
    if (m_model.scanning())
        m_empty->setText(L10n::pick(u"Scanning…"_s, u"扫描中…"_s) + u' ' + m_model.progress());
    else if (m_model.scanned())
        m_empty->setText(L10n::pick(u"Nothing found."_s, u"没有可清理的内容。"_s));
    else
        m_empty->setText(L10n::pick(u"Not scanned yet."_s, u"还没扫描。"_s));
}

void CleanSection::tickAll(bool on)
{
    QSet<QString> selected = m_model.selected();
    for (const CleanItem &item : m_rows->items()) {
        if (on)
            selected.insert(item.path);
        else
            selected.remove(item.path);
    }
    m_model.setSelected(selected);
}
