#include "core/models/Nav.h"

Nav &Nav::shared()
{
    static Nav *instance = new Nav; // lives as long as the process
    return *instance;
}

void Nav::setPage(ToolPage page)
{
    if (page == m_page)
        return;
    m_page = page;
    Q_EMIT changed();
}
