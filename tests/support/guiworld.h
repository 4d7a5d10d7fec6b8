// The world of a window test: the user's files in the current directory,
// the work and configuration directories beside them, so that nothing of
// the real user's is touched; every dialog is answered by `dialogs`, so
// that no test waits for a person.
#pragma once

#include <QtTest>
#include <QtWidgets>

#include <array>
#include <filesystem>
#include <initializer_list>
#include <type_traits>
#include <memory>
#include <string>
#include <utility>

#include "gui/mainwindow/form1.h"
#include "gui/seam/dialogs.h"

namespace brindlex::gui::test {

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

// The lines a list view shows, and its rows by number, as the user sees them.
inline QStringList lines(const QAbstractItemView* list)
{
    QStringList out;
    for (int i = 0; i < list->model()->rowCount(); ++i)
        out << list->model()->index(i, 0).data().toString();
    return out;
}
inline int rows(const QAbstractItemView* list) { return list->model()->rowCount(); }
inline int currentrow(const QAbstractItemView* list) { return list->currentIndex().isValid() ? list->currentIndex().row() : -1; }
inline void setcurrentrow(QAbstractItemView* list, int row) { list->setCurrentIndex(list->model()->index(row, 0)); }
// The first row whose line begins with `start`, or -1.
inline int findrow(const QAbstractItemView* list, const QString& start)
{
    const QStringList shown = lines(list);
    for (int i = 0; i < shown.size(); ++i)
        if (shown[i].startsWith(start))
            return i;
    return -1;
}

// The main window's controls, found by their program names.
struct Controls {
    explicit Controls(const QWidget& form)
    {
        auto w = [&](auto*& into, const char* name) {
            into = form.findChild<std::remove_reference_t<decltype(*into)>*>(QLatin1String(name));
            if (!into)
                qFatal("no control %s", name);
        };
        w(Text1, "Text1"), w(Text2, "Text2"), w(Text3, "Text3"), w(Label5, "Label5"), w(lblDir, "lblDir");
        w(chkIncludeSubs, "chkIncludeSubs"), w(chkCase, "chkCase"), w(chkAsk, "chkAsk");
        w(List1, "List1"), w(List2, "List2"), w(prgWork, "prgWork");
        w(mnuFile, "mnuFile"), w(mnuopt, "mnuopt"), w(mnuRepl, "mnuRepl");
        w(mnuOpenRepFile, "mnuOpenRepFile"), w(mnuEdit, "mnuEdit"), w(mnuEdit2, "mnuEdit2"), w(mnuExit, "mnuExit");
        w(mnuDumpInt4, "mnuDumpInt4"), w(mnuConvertHex, "mnuConvertHex"), w(mnuoptKillLog, "mnuoptKillLog");
        w(mnuOptLog[0], "mnuOptLog0"), w(mnuOptLog[1], "mnuOptLog1");
        for (int i = 0; i < 4; ++i)
            w(cmd[std::size_t(i)], QByteArray("cmd_" + QByteArray::number(i)).constData());
    }

    QLineEdit *Text1, *Text2, *Text3;
    QLabel *Label5, *lblDir;
    QCheckBox *chkIncludeSubs, *chkCase, *chkAsk;
    QListView *List1, *List2;
    QProgressBar* prgWork;
    QMenu *mnuFile, *mnuopt, *mnuRepl;
    QAction *mnuOpenRepFile, *mnuEdit, *mnuEdit2, *mnuExit, *mnuDumpInt4, *mnuConvertHex, *mnuoptKillLog;
    std::array<QAction*, 2> mnuOptLog;
    std::array<QPushButton*, 4> cmd;
};
inline Controls ui(const QWidget& form) { return Controls(form); }

class World {
public:
    explicit World(std::initializer_list<std::pair<QString, QByteArray>> tree = {})
    {
        QDir(root.path()).mkpath("files");
        qputenv("BRINDLEX_TEMP", at("work").toLocal8Bit());
        qputenv("XDG_CONFIG_HOME", at("config").toLocal8Bit());
        QDir::setCurrent(at("files"));
        for (const auto& [name, bytes] : tree)
            write(name, bytes);
    }
    ~World() { QDir::setCurrent(previous); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    QString at(const QString& relative) const { return root.path() + '/' + relative; }
    QString file(const QString& relative) const { return at("files/" + relative); }
    QString write(const QString& relative, const QByteArray& bytes) const { return writefile(file(relative), bytes); }

    // Shown and active before it loads, so that focus and keys behave as for
    // a user and a test can watch the start-up itself.
    static std::unique_ptr<Form1> start(bool load = true, const std::string& command = {}, std::filesystem::path exe = {})
    {
        auto form = std::make_unique<Form1>(std::move(exe));
        form->show();
        if (!QTest::qWaitForWindowActive(form.get()))
            qFatal("window not active");
        if (load)
            form->Form_Load(command);
        return form;
    }

    ScriptedDialogs dialogs;

private:
    QTemporaryDir root;
    QString previous = QDir::currentPath();
};

}  // namespace brindlex::gui::test
