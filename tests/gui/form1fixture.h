// What the window's tests share: a private world for each test (a current
// directory with the user's files, a work directory and a config directory,
// all temporary), a Form1 started in it with every dialog answered by a
// ScriptedDialogs, and readers for the lists.
#pragma once

#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <string>

#include "mainwindow/form1.h"
#include "mainwindow/windowhost.h"
#include "seam/dialogs.h"

namespace brindlex::gui::test {

inline QStringList lines(const QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        out << list->item(i)->text();
    return out;
}

// Bytes to a file, directories made on the way.
inline QString writefile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

inline QByteArray readfile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// A size as List1 shows it.
inline QString sized(const QString& name, int size)
{
    return name + QLatin1Char('\t') + QStringLiteral("%1").arg(size, 8, 10, QLatin1Char('0'));
}

inline QString hitline(const QString& name, qint64 pos)
{
    return name + QLatin1Char('\t') + QStringLiteral("%1").arg(pos, 9, 10, QLatin1Char('0'));
}

// One test's world. The current directory is `files`; BRINDLEX_TEMP is
// `work` (made by start-up) and XDG_CONFIG_HOME is `config`.
class World {
public:
    World()
    {
        if (!root.isValid())
            qFatal("no temporary directory");
        QDir(root.path()).mkpath(QStringLiteral("files"));
        QDir(root.path()).mkpath(QStringLiteral("config"));
        qputenv("BRINDLEX_TEMP", workdir().toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", (root.path() + QStringLiteral("/config")).toLocal8Bit());
        previous = QDir::currentPath();
        QDir::setCurrent(files());
    }
    ~World() { QDir::setCurrent(previous); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    QString files() const { return root.path() + QStringLiteral("/files"); }
    QString workdir() const { return root.path() + QStringLiteral("/work"); }
    QString logfile() const { return workdir() + QStringLiteral("/brindlex.log.txt"); }
    QString file(const QString& relative) const { return files() + QLatin1Char('/') + relative; }
    QString write(const QString& relative, const QByteArray& bytes) const { return writefile(file(relative), bytes); }

    // A started window. Shown, so that focus and key presses behave as for
    // a user.
    std::unique_ptr<Form1> start(const std::string& sCommand = std::string())
    {
        auto form = std::make_unique<Form1>();
        form->show();
        if (!QTest::qWaitForWindowExposed(form.get()))
            qFatal("window not exposed");
        form->Form_Load(sCommand);
        return form;
    }

    ScriptedDialogs dialogs;

private:
    QTemporaryDir root;
    QString previous;
};

// Lists `mask` through the mask box and the Dir button.
inline void list(Form1& form, const QString& mask, bool subdirs = false)
{
    form.chkIncludeSubs->setChecked(subdirs);
    form.Text1->setText(mask);
    form.cmd_Click(2);
}

// Whether the window is idle: the controls of the walk and run back on.
inline bool idle(const Form1& form)
{
    return form.cmd[0]->isEnabled() && form.cmd[2]->isEnabled() && !form.cmd[3]->isEnabled()
           && form.List1->isEnabled() && form.Text1->isEnabled() && !form.busy();
}

}  // namespace brindlex::gui::test
