#include "app/CommandLine.h"
#include "service/TranslationService.h"
#include "state/Languages.h"

#include <QCoro/QCoroTask>
#include <QCoreApplication>
#include <QTextStream>

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
    "  parlanto translate --to LANG TEXT     print the translation of TEXT into LANG\n"
    "  parlanto --help | --version\n";

QString languageCodes()
{
    QStringList codes;
    for (const Language &language : supportedLanguages())
        codes << language.code;
    return codes.join(QStringLiteral(", "));
}

int translate(const QStringList &args)
{
    QString target;
    QStringList words;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        if (arg == QLatin1String("--to")) {
            if (++i >= args.size()) {
                err() << "parlanto translate: --to needs a language code\n";
                return 2;
            }
            target = args.at(i);
        } else if (arg.startsWith(QLatin1String("--to="))) {
            target = arg.mid(5);
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
    if (!isSupportedLanguage(target)) {
        err() << "parlanto translate: unknown language \"" << target << "\"; use one of: " << languageCodes() << "\n";
        return 2;
    }
    const TranslationResult result =
        QCoro::waitFor(TranslationService::shared().translate(words.join(QLatin1Char(' ')), target));
    if (!result.isOk()) {
        err() << result.error().userMessage() << "\n";
        return 1;
    }
    out() << result.value().translatedText << "\n";
    return 0;
}

} // namespace

int runCommandLine(const QStringList &arguments)
{
    if (arguments.size() < 2)
        return -1;
    const QString command = arguments.at(1);
    const QStringList rest = arguments.mid(2);
    if (command == QLatin1String("translate"))
        return translate(rest);
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
