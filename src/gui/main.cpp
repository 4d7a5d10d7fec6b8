// The window program: Form1, started with the program's arguments joined by
// single blanks as its one mask.
#include <QApplication>

#include <csignal>
#include <string>

#include "gui/mainwindow/form1.h"

int main(int argc, char** argv)
{
    // A file larger than the size limit fails its write (EFBIG) and is
    // reported, instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    QApplication app(argc, argv);  // takes Qt's own options out of argv
    std::string sCommand;
    for (int i = 1; i < argc; ++i) {
        if (i > 1)
            sCommand += ' ';
        sCommand += argv[i];
    }
    brindlex::gui::Form1 form;
    form.show();
    form.Form_Load(sCommand);
    return app.exec();
}
