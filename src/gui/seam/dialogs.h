// Every dialog of the window goes through this one seam: message boxes,
// input boxes, the open-file dialog, handing a document to the desktop, and
// starting an outside program.
// The program shows the real Qt dialogs; a test installs a ScriptedDialogs
// that records each request and answers from a script, so no test ever
// waits for a person.
//
// Texts are passed as the program builds them (CR LF included); the real
// dialogs show CR LF as one line break.
#pragma once

#include <QString>
#include <QStringList>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "engine/core/error.h"

class QWidget;

namespace brindlex::gui {

enum class Buttons { Ok, YesNo, YesNoCancel };
enum class Icon { None, Question };
enum class Reply { Ok, Yes, No, Cancel };

class Dialogs {
public:
    virtual ~Dialogs() = default;

    // `detail`, when not empty, is the box's detailed text: the reason of
    // the failure that `text` reports.
    virtual Reply messagebox(QWidget* parent, const QString& text, Buttons buttons, Icon icon,
                             const QString& title, const QString& detail = {}) = 0;

    // The answer typed; Cancel gives "".
    virtual QString inputbox(QWidget* parent, const QString& prompt, const QString& title,
                             const QString& defaultText) = 0;

    // The chosen file; Cancel gives back `seed`. `filter` is e.g. "*.ini",
    // `defaultExtension` is added to a typed name without one ("ini").
    virtual QString openfile(QWidget* parent, const QString& seed, const QString& filter,
                             const QString& defaultExtension) = 0;

    // Opens a document with the desktop's program for it; failure is ignored.
    virtual void shellopen(const QString& path) = 0;

    // Starts the program file `program` detached with `args`, byte strings
    // as they are (see launch.h); the error says why it could not start.
    virtual Error startprogram(const std::string& program, const std::vector<std::string>& args);
};

// The dialogs in use: the real ones unless a test installed others.
Dialogs& dialogs();

// Installs `replacement` (not owned); nullptr restores the real dialogs.
void installdialogs(Dialogs* replacement);

// The real dialogs.
class QtDialogs final : public Dialogs {
public:
    Reply messagebox(QWidget* parent, const QString& text, Buttons buttons, Icon icon,
                     const QString& title, const QString& detail = {}) override;
    QString inputbox(QWidget* parent, const QString& prompt, const QString& title,
                     const QString& defaultText) override;
    QString openfile(QWidget* parent, const QString& seed, const QString& filter,
                     const QString& defaultExtension) override;
    void shellopen(const QString& path) override;
};

// A dialog as a ScriptedDialogs saw it.
struct DialogRecord {
    enum class Kind { Message, Input, OpenFile, ShellOpen, Start };
    Kind kind = Kind::Message;
    QString title;    // message and input box; for OpenFile the filter; for Start the program
    QString text;     // message text, input prompt, open-file seed, document; for Start the
                      // arguments, each behind a blank (ISO-8859-1)
    QString defaultText;  // input box
    Buttons buttons = Buttons::Ok;
    Icon icon = Icon::None;
    QString detail {};   // message box
    std::vector<std::string> args {};  // Start: the arguments as bytes
};

// Answers dialogs from queues, in order, and records every request. A
// message box with no scripted reply answers Ok (or Yes); an input box with
// none answers its default; an open-file dialog with none answers its seed.
// `onmessage`, if set, runs when a message box is asked, before it answers:
// a test uses it to act at exactly that moment of a run. A program start is
// only recorded, unless `launch` is set: then it really starts.
class ScriptedDialogs final : public Dialogs {
public:
    ScriptedDialogs() { installdialogs(this); }
    ~ScriptedDialogs() override { installdialogs(nullptr); }
    ScriptedDialogs(const ScriptedDialogs&) = delete;
    ScriptedDialogs& operator=(const ScriptedDialogs&) = delete;

    std::deque<Reply> replies;
    std::deque<QString> inputs;
    std::deque<QString> files;
    std::function<void(const DialogRecord&)> onmessage;
    bool launch = false;

    std::vector<DialogRecord> records;

    // The records of one kind, as "title|text" lines, "title|text|detail"
    // for a message box with a detailed text.
    QStringList seen(DialogRecord::Kind kind) const;

    Reply messagebox(QWidget* parent, const QString& text, Buttons buttons, Icon icon,
                     const QString& title, const QString& detail = {}) override;
    QString inputbox(QWidget* parent, const QString& prompt, const QString& title,
                     const QString& defaultText) override;
    QString openfile(QWidget* parent, const QString& seed, const QString& filter,
                     const QString& defaultExtension) override;
    void shellopen(const QString& path) override;
    Error startprogram(const std::string& program, const std::vector<std::string>& args) override;
};

}  // namespace brindlex::gui
