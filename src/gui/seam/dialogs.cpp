#include "gui/seam/dialogs.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QMessageBox>
#include <QUrl>

#include "gui/seam/launch.h"

namespace brindlex::gui {

namespace {

Dialogs* installed = nullptr;

QString shown(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    return text;
}

}  // namespace

Dialogs& dialogs()
{
    static QtDialogs real;
    return installed ? *installed : real;
}

void installdialogs(Dialogs* replacement)
{
    installed = replacement;
}

Reply QtDialogs::messagebox(QWidget* parent, const QString& text, Buttons buttons, Icon icon,
                            const QString& title, const QString& detail)
{
    QMessageBox box(icon == Icon::Question ? QMessageBox::Question : QMessageBox::NoIcon, shown(title),
                    shown(text), QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    if (!detail.isEmpty())
        box.setDetailedText(shown(detail));
    if (buttons == Buttons::YesNoCancel) {
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
        box.setDefaultButton(QMessageBox::Yes);
        box.setEscapeButton(QMessageBox::Cancel);
    } else if (buttons == Buttons::YesNo) {
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        box.setDefaultButton(QMessageBox::Yes);
        box.setEscapeButton(QMessageBox::No);
    } else {
        box.setStandardButtons(QMessageBox::Ok);
    }
    switch (box.exec()) {
    case QMessageBox::Yes: return Reply::Yes;
    case QMessageBox::No: return Reply::No;
    case QMessageBox::Cancel: return Reply::Cancel;
    default: return buttons == Buttons::Ok ? Reply::Ok : buttons == Buttons::YesNo ? Reply::No : Reply::Cancel;
    }
}

QString QtDialogs::inputbox(QWidget* parent, const QString& prompt, const QString& title,
                            const QString& defaultText)
{
    bool ok = false;
    const QString answer = QInputDialog::getText(parent, title, shown(prompt), QLineEdit::Normal, defaultText, &ok);
    return ok ? answer : QString();
}

QString QtDialogs::openfile(QWidget* parent, const QString& seed, const QString& filter,
                            const QString& defaultExtension)
{
    QFileDialog dialog(parent, QString(), QFileInfo(seed).path(), filter);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setDefaultSuffix(defaultExtension);
    dialog.selectFile(seed);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return seed;
    return dialog.selectedFiles().constFirst();
}

void QtDialogs::shellopen(const QString& path)
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

Error Dialogs::startprogram(const std::string& program, const std::vector<std::string>& args)
{
    return startdetached(program, args);
}

QStringList ScriptedDialogs::seen(DialogRecord::Kind kind) const
{
    QStringList out;
    for (const DialogRecord& r : records)
        if (r.kind == kind)
            out << r.title + QLatin1Char('|') + r.text + (r.detail.isEmpty() ? QString() : QLatin1Char('|') + r.detail);
    return out;
}

Reply ScriptedDialogs::messagebox(QWidget*, const QString& text, Buttons buttons, Icon icon,
                                  const QString& title, const QString& detail)
{
    records.push_back({DialogRecord::Kind::Message, title, text, QString(), buttons, icon, detail, {}});
    if (onmessage)
        onmessage(records.back());
    if (replies.empty())
        return buttons == Buttons::Ok ? Reply::Ok : Reply::Yes;
    const Reply reply = replies.front();
    replies.pop_front();
    return reply;
}

QString ScriptedDialogs::inputbox(QWidget*, const QString& prompt, const QString& title,
                                  const QString& defaultText)
{
    records.push_back({DialogRecord::Kind::Input, title, prompt, defaultText, Buttons::Ok, Icon::None, {}, {}});
    if (inputs.empty())
        return defaultText;
    const QString answer = inputs.front();
    inputs.pop_front();
    return answer;
}

QString ScriptedDialogs::openfile(QWidget*, const QString& seed, const QString& filter, const QString&)
{
    records.push_back({DialogRecord::Kind::OpenFile, filter, seed, QString(), Buttons::Ok, Icon::None, {}, {}});
    if (files.empty())
        return seed;
    const QString answer = files.front();
    files.pop_front();
    return answer;
}

void ScriptedDialogs::shellopen(const QString& path)
{
    records.push_back({DialogRecord::Kind::ShellOpen, QString(), path, QString(), Buttons::Ok, Icon::None, {}, {}});
}

Error ScriptedDialogs::startprogram(const std::string& program, const std::vector<std::string>& args)
{
    QString shown;
    for (const std::string& arg : args)
        shown += QLatin1Char(' ') + QString::fromLatin1(arg.data(), static_cast<qsizetype>(arg.size()));
    DialogRecord record{DialogRecord::Kind::Start, QString::fromLatin1(program.data(), static_cast<qsizetype>(program.size())),
                        shown, QString(), Buttons::Ok, Icon::None, QString(), args};
    records.push_back(std::move(record));
    return launch ? Dialogs::startprogram(program, args) : Error{};
}

}  // namespace brindlex::gui
