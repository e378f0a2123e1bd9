#pragma once

#include "core/types/ToolPage.h"

#include <QObject>

// The selected page of the tools window; one per process, outliving the window.
class Nav final : public QObject
{
    Q_OBJECT

public:
    static Nav &shared();

    ToolPage page() const { return m_page; }
    void setPage(ToolPage page);

Q_SIGNALS:
    void changed();

private:
    ToolPage m_page = ToolPage::overview;
};
