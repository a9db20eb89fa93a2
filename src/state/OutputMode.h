#pragma once

#include <QString>
#include <optional>

// What a selection translation pastes: the translation alone, or original and translation.
enum class OutputMode { TranslateOnly, Bilingual };

// The stored raw values; any other string gives no value (the match is exact).
std::optional<OutputMode> outputModeFromRawValue(const QString &raw);
QString rawValue(OutputMode mode);
