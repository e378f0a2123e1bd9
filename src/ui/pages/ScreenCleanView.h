#pragma once

#include <QWidget>

class QLabel;
class ScreenCleanMode;

// The "screen" page: explains the mode, offers the Accessibility permission while the
// system withholds it, shows why the last start failed, and starts the mode.
class ScreenCleanView final : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenCleanView(ScreenCleanMode &mode, QWidget *parent = nullptr);
    // Trust is granted outside the app, so it is asked again whenever the page comes back.
    void appeared();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void sync();

    ScreenCleanMode &m_mode;
    QWidget *m_permissionBox;
    QLabel *m_error;
};
