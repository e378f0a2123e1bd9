#include "Output.h"

#include <cstdio>

namespace Output {
namespace {

void write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

void out(const QString &text)
{
    write(stdout, text);
}

void err(const QString &text)
{
    write(stderr, text);
}

} // namespace Output
