// Our own small Qt editor for the desktop tests: a multi-line editor, a one-line entry, a
// read-only text and a password field. Options:
//   --text TEXT      initial text of the editor and the entry (\n allowed)
//   --focus NAME     field that has the focus: editor (default), entry, readonly, password
//   --select-all     select the whole text of the focused field
//   --dump FILE      after every change, write the fields' texts (not the password's) to FILE
//                    as JSON: {"editor": "...", "entry": "...", "readonly": "...", "password_length": N}
//   --title TITLE    window title (default "Parlanto Test Editor")
#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QSaveFile>
#include <QTextEdit>
#include <QVBoxLayout>
#include <QWidget>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("text"), QStringLiteral("initial text"), QStringLiteral("TEXT")});
    parser.addOption({QStringLiteral("focus"), QStringLiteral("focused field"), QStringLiteral("NAME"), QStringLiteral("editor")});
    parser.addOption({QStringLiteral("select-all"), QStringLiteral("select the focused field's text")});
    parser.addOption({QStringLiteral("dump"), QStringLiteral("file to write the texts to"), QStringLiteral("FILE")});
    parser.addOption({QStringLiteral("title"), QStringLiteral("window title"), QStringLiteral("TITLE"),
                      QStringLiteral("Parlanto Test Editor")});
    parser.process(app);
    const QString text = parser.value(QStringLiteral("text")).replace(QLatin1String("\\n"), QLatin1String("\n"));

    QWidget window;
    window.setWindowTitle(parser.value(QStringLiteral("title")));
    auto *layout = new QVBoxLayout(&window);
    auto *editor = new QTextEdit;
    editor->setObjectName(QStringLiteral("editor"));
    editor->setAcceptRichText(false);
    editor->setPlainText(text);
    auto *entry = new QLineEdit(QString(text).replace(QLatin1Char('\n'), QLatin1Char(' ')));
    entry->setObjectName(QStringLiteral("entry"));
    auto *readOnly = new QTextEdit;
    readOnly->setObjectName(QStringLiteral("readonly"));
    readOnly->setPlainText(text);
    readOnly->setReadOnly(true);
    readOnly->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto *password = new QLineEdit;
    password->setObjectName(QStringLiteral("password"));
    password->setEchoMode(QLineEdit::Password);
    for (QWidget *field : {static_cast<QWidget *>(editor), static_cast<QWidget *>(entry),
                           static_cast<QWidget *>(readOnly), static_cast<QWidget *>(password)})
        layout->addWidget(field);
    window.resize(640, 480);

    const QString dumpPath = parser.value(QStringLiteral("dump"));
    auto dump = [&] {
        if (dumpPath.isEmpty())
            return;
        const QJsonObject texts{{QStringLiteral("editor"), editor->toPlainText()},
                                {QStringLiteral("entry"), entry->text()},
                                {QStringLiteral("readonly"), readOnly->toPlainText()},
                                {QStringLiteral("password_length"), password->text().size()}};
        QSaveFile file(dumpPath);
        if (file.open(QIODevice::WriteOnly)) {
            file.write(QJsonDocument(texts).toJson(QJsonDocument::Compact));
            file.commit();
        }
    };
    QObject::connect(editor, &QTextEdit::textChanged, dump);
    QObject::connect(entry, &QLineEdit::textChanged, dump);
    QObject::connect(password, &QLineEdit::textChanged, dump);
    dump();

    const QString focus = parser.value(QStringLiteral("focus"));
    QWidget *focused = window.findChild<QWidget *>(focus);
    if (!focused)
        focused = editor;
    window.show();
    window.activateWindow();
    focused->setFocus();
    if (parser.isSet(QStringLiteral("select-all"))) {
        if (auto *line = qobject_cast<QLineEdit *>(focused))
            line->selectAll();
        else if (auto *edit = qobject_cast<QTextEdit *>(focused))
            edit->selectAll();
    }
    return app.exec();
}
