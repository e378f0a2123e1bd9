#include "ui/kit/Confirm.h"

#include <QAbstractButton>
#include <QMessageBox>
#include <QPushButton>

namespace Confirm {

QMessageBox *ask(QWidget *parent, const QString &title, const QString &message,
                 const QString &destructiveLabel, std::function<void()> onConfirm)
{
    auto *box = new QMessageBox(parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Warning);
    box->setText(title);
    box->setInformativeText(message);
    QPushButton *destructive = box->addButton(destructiveLabel, QMessageBox::DestructiveRole);
    box->addButton(QMessageBox::Cancel);
    // Return and Escape both keep the files: removing must be a deliberate click.
    box->setDefaultButton(QMessageBox::Cancel);
    box->setEscapeButton(QMessageBox::Cancel);
    QObject::connect(box, &QMessageBox::buttonClicked, box,
                     [destructive, onConfirm = std::move(onConfirm)](QAbstractButton *clicked) {
                         if (clicked == destructive && onConfirm)
                             onConfirm();
                     });
    box->open();
    return box;
}

} // namespace Confirm
