#pragma once

#include <QLabel>

// One line that elides in the middle (paths) or at the end instead of growing the layout.
class ElidedLabel final : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(Qt::TextElideMode mode = Qt::ElideMiddle, QWidget *parent = nullptr);
    void setFullText(const QString &text);
    const QString &fullText() const { return m_full; }
    // Asks for the whole text's width, so a layout with room shows it unelided.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void updateElided();
    QString m_full;
    Qt::TextElideMode m_mode;
};
