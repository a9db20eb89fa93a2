#include "state/OutputMode.h"

std::optional<OutputMode> outputModeFromRawValue(const QString &raw)
{
    if (raw == QLatin1String("translate_only"))
        return OutputMode::TranslateOnly;
    if (raw == QLatin1String("bilingual"))
        return OutputMode::Bilingual;
    return std::nullopt;
}

QString rawValue(OutputMode mode)
{
    return mode == OutputMode::Bilingual ? QStringLiteral("bilingual") : QStringLiteral("translate_only");
}
