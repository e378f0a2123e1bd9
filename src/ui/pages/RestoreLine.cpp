#include "ui/pages/RestoreLine.h"

#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "core/words/RestoreWords.h"
#include "ui/Theme.h"
#include "ui/kit/ProminentButton.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

RestoreLine::RestoreLine(RestoreModel::Services services,
                         std::function<QString(const QString &)> shown, QWidget *parent)
    : QWidget(parent), m_model(std::move(services)), m_shown(std::move(shown))
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    m_open = new QToolButton(this);
    m_open->setAutoRaise(true);
    m_open->setFont(Theme::font(Theme::Font::caption));
    m_message = new QLabel(this);
    m_message->setFont(Theme::font(Theme::Font::caption));
    m_message->setWordWrap(true);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(m_open, 0, Qt::AlignLeft);
    column->addWidget(m_message);

    connect(m_open, &QToolButton::clicked, this, &RestoreLine::openList);
    connect(&m_model, &RestoreModel::changed, this, &RestoreLine::sync);
    connect(&m_model, &RestoreModel::restored, this, &RestoreLine::restored);
    sync();
}

void RestoreLine::refresh()
{
    m_model.refresh();
}

void RestoreLine::sync()
{
    const qsizetype count = m_model.moves().size();
    m_open->setText(Words::restorableLine(int(count)));
    m_open->setVisible(count > 0);
    m_open->setEnabled(!m_model.busy());
    m_message->setText(m_model.message().value_or(QString()));
    m_message->setVisible(m_model.message().has_value());
    setVisible(count > 0 || m_model.message().has_value());
}

void RestoreLine::openList()
{
    auto *dialog = new QDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(Words::putBack());
    auto *list = new QListWidget(dialog);
    const QList<Restorer::Move> moves = m_model.moves();
    for (const Restorer::Move &move : moves) {
        const QString when = QLocale().toString(move.time.toLocalTime(), QLocale::ShortFormat);
        auto *row = new QListWidgetItem(
            PathText::escaped(m_shown ? m_shown(move.original) : move.original) + u"  ·  "_s + when,
            list);
        row->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        row->setCheckState(Qt::Checked);
    }
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, dialog);
    auto *putBack = new ProminentButton(Words::putBack(), {}, dialog);
    buttons->addButton(putBack, QDialogButtonBox::AcceptRole);
    auto *column = new QVBoxLayout(dialog);
    column->addWidget(list);
    column->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, dialog,
            [dialog, list, moves, model = QPointer<RestoreModel>(&m_model)] {
                QList<Restorer::Move> ticked;
                for (int i = 0; i < list->count(); ++i) {
                    if (list->item(i)->checkState() == Qt::Checked)
                        ticked.append(moves.at(i));
                }
                if (model)
                    model->restore(ticked);
                dialog->accept();
            });
    dialog->resize(520, 320);
    dialog->open();
}
