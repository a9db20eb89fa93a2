#include "state/Log.h"

#include <atomic>
#include <cstdio>

namespace {
std::atomic_bool logToStandardError{false};
}

void logLine(const char *tag, const QString &text)
{
    const QByteArray line = '[' + QByteArray(tag) + "] " + text.toUtf8() + '\n';
    FILE *stream = logToStandardError ? stderr : stdout;
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stream);
    std::fflush(stream);
}

void setLogToStandardError(bool toStandardError)
{
    logToStandardError = toStandardError;
}
