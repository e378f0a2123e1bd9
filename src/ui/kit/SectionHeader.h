#pragma once

#include <QWidget>

class QLabel;
class QHBoxLayout;

// A section's title row: the bold title on the leading side; the optional detail text
// (a figure) and then the trailing buttons on the trailing side.
class SectionHeader final : public QWidget
{
    Q_OBJECT

public:
    explicit SectionHeader(const QString &title, const QString &detail = {},
                           QWidget *parent = nullptr);
    void setDetail(const QString &detail);
    void addTrailing(QWidget *widget);
    QString title() const;

private:
    QLabel *m_title;
    QLabel *m_detail;
    QHBoxLayout *m_row;
};
