#pragma once

#include "service/ApertiumPipeline.h"
#include "service/TranslationEngine.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <memory>
#include <optional>

// One way from a source to a target language through the installed Apertium modes: a direct
// pair, or two hops through Spanish.
struct OfflineDirection
{
    QString source;    // "en"
    QString target;    // "pt"
    QStringList modes; // "eng-spa", "es-pt"

    bool isPivot() const { return modes.size() > 1; }
    // "en → es", "en → pt (via es)"
    QString describe() const;
};

// Translation on this machine with Apertium (Debian's apertium-* language pairs), no network and
// no account. The source language is detected unless the caller names it; each direction's
// pipeline is started on first use and kept warm, and a text goes through at most two of them.
// A language no installed pair reaches fails at once with a message that says what the engine
// can do.
class OfflineEngine : public TranslationEngine
{
public:
    struct Options
    {
        QStringList modeDirectories = Apertium::defaultModeDirectories();
        // A pipeline with nothing to do for this long is stopped (and started again when needed).
        std::chrono::milliseconds idleTimeout = std::chrono::minutes(5);
        // One hop that takes longer has its pipeline killed and started again.
        std::chrono::milliseconds requestTimeout = std::chrono::seconds(10);
    };

    OfflineEngine();
    explicit OfflineEngine(Options options);
    // Kills every pipeline process and waits for it; requests still waiting fail.
    ~OfflineEngine() override;

    QString id() const override;
    // At least one language pair is installed.
    bool isConfigured() const override;
    QCoro::Task<TranslationResult> translate(EngineRequest request) override;

    // Every source and target pair it can translate, in the language table's order.
    QList<OfflineDirection> directions() const;
    // The same as text, "en → es", "en → pt (via es)".
    QStringList directionNames() const;
    // The codes it translates between, in the language table's order.
    QStringList languages() const;
    // How a text would go from source to target, if it can.
    std::optional<OfflineDirection> route(const QString &source, const QString &target) const;
    // The modes found, by name.
    const QHash<QString, ApertiumMode> &modes() const { return m_modes; }

    // The pipelines started so far, and the ids of their running processes.
    QList<ApertiumPipeline *> pipelines() const;
    QList<qint64> processIds() const;

private:
    ApertiumPipeline *pipelineFor(const QString &modeName);
    std::optional<OfflineDirection> findRoute(const QString &source, const QString &target) const;
    QString directModeName(const QString &source, const QString &target) const;
    QString languageList() const;

    Options m_options;
    QHash<QString, ApertiumMode> m_modes;
    QList<OfflineDirection> m_directions;
    QHash<QString, ApertiumPipeline *> m_pipelines;
    std::shared_ptr<char> m_alive = std::make_shared<char>();
};
