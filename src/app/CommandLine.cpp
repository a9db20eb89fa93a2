#include "app/CommandLine.h"
#include "service/EngineSettings.h"
#include "service/TranslationService.h"
#include "state/Languages.h"
#include "state/Log.h"

#include <QCoro/QCoroTask>
#include <QCoreApplication>
#include <QFile>
#include <QStringDecoder>
#include <QTextStream>
#include <cstdio>

namespace {

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

const char *usage =
    "Usage:\n"
    "  parlanto                              start the tray program\n"
    "  parlanto translate [--engine NAME] [--from LANG] --to LANG TEXT\n"
    "                                        print the translation of TEXT into LANG; TEXT \"-\"\n"
    "                                        reads standard input (UTF-8, one final line break dropped)\n"
    "  parlanto engines                      list the engines, whether each is configured, and the\n"
    "                                        offline engine's directions\n"
    "  parlanto --help | --version\n";

QString engineNames()
{
    return EngineSettings::engineIds().join(QStringLiteral(", "));
}

// All of standard input as UTF-8, without one final line break; none when it is not UTF-8.
std::optional<QString> readStandardInput()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = input.readAll();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    if (text.endsWith(QLatin1String("\r\n")))
        text.chop(2);
    else if (text.endsWith(u'\n'))
        text.chop(1);
    return text;
}

QString languageCodes()
{
    QStringList codes;
    for (const Language &language : supportedLanguages())
        codes << language.code;
    return codes.join(QStringLiteral(", "));
}

// Reads the value of an option given as "--name VALUE" or "--name=VALUE"; false (with a message)
// when the value is missing.
bool optionValue(const QStringList &args, qsizetype &i, const QString &name, QString &value)
{
    const QString &arg = args.at(i);
    if (arg.startsWith(name + u'=')) {
        value = arg.mid(name.size() + 1);
        return true;
    }
    if (++i >= args.size() || args.at(i).isEmpty()) {
        err() << "parlanto translate: " << name << " needs a value\n";
        return false;
    }
    value = args.at(i);
    return true;
}

bool isOption(const QString &arg, const QString &name)
{
    return arg == name || arg.startsWith(name + u'=');
}

int translate(const QStringList &args)
{
    QString target;
    QString source;
    QString engine;
    QStringList words;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        if (isOption(arg, QStringLiteral("--to"))) {
            if (!optionValue(args, i, QStringLiteral("--to"), target))
                return 2;
        } else if (isOption(arg, QStringLiteral("--from"))) {
            if (!optionValue(args, i, QStringLiteral("--from"), source))
                return 2;
        } else if (isOption(arg, QStringLiteral("--engine"))) {
            if (!optionValue(args, i, QStringLiteral("--engine"), engine))
                return 2;
        } else if (arg == QLatin1String("--")) {
            words += args.mid(i + 1);
            break;
        } else if (arg.startsWith(QLatin1String("--"))) {
            err() << "parlanto translate: unknown option " << arg << "\n" << usage;
            return 2;
        } else {
            words << arg;
        }
    }
    if (target.isEmpty() || words.isEmpty()) {
        err() << "parlanto translate: a target language (--to) and a text are needed\n" << usage;
        return 2;
    }
    for (const QString &language : {target, source}) {
        if (!language.isEmpty() && !isSupportedLanguage(language)) {
            err() << "parlanto translate: unknown language \"" << language << "\"; use one of: " << languageCodes()
                  << "\n";
            return 2;
        }
    }
    if (engine.isEmpty() && !qEnvironmentVariable("PARLANTO_ENGINE").trimmed().isEmpty()) {
        const QString chosen = EngineSettings::selectedEngine();
        if (!EngineSettings::isKnownEngine(chosen)) {
            err() << "parlanto translate: PARLANTO_ENGINE names an unknown engine \"" << chosen << "\"; use one of: "
                  << engineNames() << "\n";
            return 2;
        }
    }
    if (!engine.isEmpty() && !EngineSettings::isKnownEngine(engine.toLower())) {
        err() << "parlanto translate: unknown engine \"" << engine << "\"; use one of: " << engineNames() << "\n";
        return 2;
    }

    QString text = words.join(QLatin1Char(' '));
    if (words == QStringList{QStringLiteral("-")}) {
        const auto input = readStandardInput();
        if (!input) {
            err() << "parlanto translate: standard input is not UTF-8 text\n";
            return 2;
        }
        text = *input;
    }

    EngineSettings::allowKeysFromEnvironment(true);
    const TranslationResult result = QCoro::waitFor(
        TranslationService::shared().translate(text, target, TranslateOptions{source, engine.toLower()}));
    if (!result.isOk()) {
        err() << result.error().userMessage() << "\n";
        return 1;
    }
    out() << result.value().translatedText << "\n";
    return 0;
}

int listEngines()
{
    EngineSettings::allowKeysFromEnvironment(true);
    out() << "Engines (* is the one used when --engine is not given):\n";
    for (const EngineStatus &engine : TranslationService::shared().engineStatuses()) {
        out() << (engine.selected ? "* " : "  ") << engine.id.leftJustified(16)
              << (engine.configured ? QStringLiteral("ready") : QStringLiteral("not configured")).leftJustified(16)
              << engine.details << "\n";
        if (!engine.directions.isEmpty())
            out() << QString(18, u' ') << "directions: " << engine.directions.join(QStringLiteral(", ")) << "\n";
    }
    return 0;
}

} // namespace

int runCommandLine(const QStringList &arguments)
{
    // A command's standard output carries its result alone, so that scripts can use it as it is.
    const auto keepOutputForResults = [] { setLogToStandardError(true); };
    if (arguments.size() < 2)
        return -1;
    const QString command = arguments.at(1);
    const QStringList rest = arguments.mid(2);
    if (command == QLatin1String("translate")) {
        keepOutputForResults();
        return translate(rest);
    }
    if (command == QLatin1String("engines")) {
        keepOutputForResults();
        if (!rest.isEmpty()) {
            err() << "parlanto engines: takes no arguments\n" << usage;
            return 2;
        }
        return listEngines();
    }
    if (command == QLatin1String("--help") || command == QLatin1String("-h") || command == QLatin1String("help")) {
        out() << usage;
        return 0;
    }
    if (command == QLatin1String("--version")) {
        out() << "parlanto " << QCoreApplication::applicationVersion() << "\n";
        return 0;
    }
    if (command.startsWith(QLatin1Char('-')) || !command.contains(QLatin1Char(':'))) {
        err() << "parlanto: unknown command \"" << command << "\"\n" << usage;
        return 2;
    }
    return -1; // a link such as parlanto://settings is for the tray program
}
