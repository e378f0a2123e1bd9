#pragma once

#include <QString>
#include <functional>

class QWidget;
class QMessageBox;

// A window-modal confirmation with one destructive button and Cancel; no nested event
// loop. `onConfirm` runs only when the destructive button is chosen. Returns the box so
// tests can answer it.
namespace Confirm {

QMessageBox *ask(QWidget *parent, const QString &title, const QString &message,
                 const QString &destructiveLabel, std::function<void()> onConfirm);

} // namespace Confirm
