#include "support/LogCapture.h"

#include <cstdio>
#include <unistd.h>

LogCapture::LogCapture()
{
    std::fflush(stdout);
    if (!m_file.open())
        return;
    m_saved = ::dup(STDOUT_FILENO);
    ::dup2(m_file.handle(), STDOUT_FILENO);
}

LogCapture::~LogCapture()
{
    finish();
}

QString LogCapture::text()
{
    if (m_saved < 0)
        return m_text;
    std::fflush(stdout);
    m_file.seek(0);
    return QString::fromUtf8(m_file.readAll());
}

QString LogCapture::finish()
{
    if (m_saved < 0)
        return m_text;
    m_text = text();
    ::dup2(m_saved, STDOUT_FILENO);
    ::close(m_saved);
    m_saved = -1;
    std::fputs(m_text.toUtf8().constData(), stdout);
    std::fflush(stdout);
    return m_text;
}
