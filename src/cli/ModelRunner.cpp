#include "ModelRunner.h"

#include "Output.h"

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace ModelRunner {
namespace {

// Longer lines would wrap, and "\r" only returns to the start of the last row.
constexpr qsizetype kMaxWidth = 72;

} // namespace

ProgressLine::ProgressLine() : m_enabled(isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine()
{
    clear();
}

void ProgressLine::show(const QString &text)
{
    if (!m_enabled || text == m_shown)
        return;
    m_shown = text;
    const QString line = text.size() > kMaxWidth ? text.left(kMaxWidth - 1) + u'…' : text;
    Output::err(u"\r\x1b[K"_s + line);
}

void ProgressLine::clear()
{
    if (!m_enabled || m_shown.isEmpty())
        return;
    m_shown.clear();
    Output::err(u"\r\x1b[K"_s);
}

} // namespace ModelRunner
