#pragma once

#include <QWidget>

class QLabel;
class QHBoxLayout;

// A section's title row: bold title, optional detail text, room for trailing buttons.
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
