// The window program: Form1, started with the program's arguments joined by
// single blanks as its one mask (see gui/commandline.h).
#include <QApplication>

#include <csignal>
#include <cstdio>
#include <string>

#include "engine/core/state.h"
#include "gui/commandline.h"
#include "gui/mainwindow/form1.h"

int main(int argc, char** argv)
{
    using namespace brindlex::gui;
    CommandLine line = readcommandline(argc, argv);
    if (line.action == CommandLine::Action::Help)
        return std::fputs(kWindowHelp, stdout) < 0 ? 1 : 0;
    if (line.action == CommandLine::Action::Version)
        return std::printf("brindlex %s\n", std::string(brindlex::sVersion).c_str()) < 0 ? 1 : 0;

    // A file larger than the size limit fails its write (EFBIG) and is
    // reported, instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    int toolkitArgc = static_cast<int>(line.toolkitArgs.size()) - 1;
    QApplication app(toolkitArgc, line.toolkitArgs.data());   // takes Qt's own options out
    const std::string sCommand = joinmask(toolkitArgc, line.toolkitArgs.data(), line.maskArgs);
    Form1 form;
    form.show();
    form.Form_Load(sCommand);
    return app.exec();
}
