#include "state/Log.h"

#include <cstdio>

void logLine(const char *tag, const QString &text)
{
    const QByteArray line = '[' + QByteArray(tag) + "] " + text.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fflush(stdout);
}
