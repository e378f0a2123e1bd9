#include "ui/kit/SectionHeader.h"

#include "ui/Theme.h"

#include <QHBoxLayout>
#include <QLabel>

SectionHeader::SectionHeader(const QString &title, const QString &detail, QWidget *parent)
    : QWidget(parent), m_title(new QLabel(title, this)), m_detail(new QLabel(this)),
      m_row(new QHBoxLayout(this))
{
    m_title->setFont(Theme::font(Theme::Font::headline));
    m_detail->setFont(Theme::figures(Theme::Font::callout));
    QPalette secondary = m_detail->palette();
    secondary.setColor(QPalette::WindowText, Theme::secondaryText());
    m_detail->setPalette(secondary);

    m_row->setContentsMargins(0, 0, 0, 0);
    m_row->setSpacing(8);
    m_row->addWidget(m_title);
    m_row->addStretch(1);
    m_row->addWidget(m_detail);
    setDetail(detail);
}

void SectionHeader::setDetail(const QString &detail)
{
    m_detail->setText(detail);
    m_detail->setVisible(!detail.isEmpty());
}

void SectionHeader::addTrailing(QWidget *widget)
{
    m_row->addWidget(widget);
}

QString SectionHeader::title() const
{
    return m_title->text();
}
