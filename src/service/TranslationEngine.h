#pragma once

#include "service/TranslationTypes.h"

#include <QString>
#include <QCoro/QCoroTask>

// What an engine is asked to do. The text has already passed the length checks.
struct EngineRequest
{
    QString text;
    QString targetLanguage; // a code of the language table ("en", "ja", ...)
    QString sourceLanguage; // empty: the engine detects it (or lets its provider do so)
};

// One way of translating: the web service, the offline engine, or an engine the user brings.
// TranslationService chooses one per request; an engine maps every failure onto the
// TranslationError of the same meaning, so callers never see which engine answered.
class TranslationEngine
{
public:
    virtual ~TranslationEngine() = default;

    // The engine's name in settings and on the command line: "service", "offline", "deepl",
    // "libretranslate", "openai".
    virtual QString id() const = 0;
    // Whether the engine has what it needs to be tried (a URL, a key, installed pairs...).
    virtual bool isConfigured() const = 0;
    // Must not block the calling (main) thread.
    virtual QCoro::Task<TranslationResult> translate(EngineRequest request) = 0;
};
