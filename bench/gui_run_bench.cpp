// Times the window's Find All, offscreen, over a tree with a million hits,
// next to `brindlex-cli find` on the same tree. The window's run should cost
// no more than 1.5 times the command line's: the hit list keeps only 1000
// lines and the window yields in time, not per hit.
//
//   gui_run_bench [files [hits-per-file [rounds]]]     (default 200 5000 3)
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "gui/mainwindow/form1.h"

namespace {

int argument(int argc, char** argv, int index, int fallback)
{
    return argc > index ? std::max(1, std::atoi(argv[index])) : fallback;
}

}  // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int files = argument(argc, argv, 1, 200);
    const int perFile = argument(argc, argv, 2, 5000);
    const int rounds = argument(argc, argv, 3, 3);

    QTemporaryDir root;
    if (!root.isValid())
        return 2;
    const QString tree = root.path() + QStringLiteral("/tree");
    QDir().mkpath(tree);
    qputenv("BRINDLEX_TEMP", (root.path() + QStringLiteral("/work")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (root.path() + QStringLiteral("/config")).toLocal8Bit());

    // Each file: `perFile` times "....needle.." and a tail without a hit.
    QByteArray content;
    for (int i = 0; i < perFile; ++i)
        content += "....needle..";
    content += QByteArray(4096, '-');
    for (int f = 0; f < files; ++f) {
        QFile file(tree + QStringLiteral("/f%1.dat").arg(f, 5, 10, QLatin1Char('0')));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            return 2;
    }
    const qint64 hits = qint64(files) * perFile;
    const QString mask = tree + QStringLiteral("/*.*");

    QDir::setCurrent(tree);
    brindlex::gui::Form1 form;
    form.show();
    form.Form_Load(brindlex::gui::fromwidget(mask));
    if (form.List1->count() != files) {
        std::fprintf(stderr, "listed %d of %d files\n", form.List1->count(), files);
        return 1;
    }
    form.Text2->setText(QStringLiteral("needle"));

    qint64 window = -1;
    qint64 cli = -1;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        form.cmd_Click(0);
        const qint64 ms = clock.elapsed();
        window = window < 0 ? ms : std::min(window, ms);
        if (form.List2->count() != 1000 || form.Label5->text() != QStringLiteral("more than 1000")) {
            std::fprintf(stderr, "window run: %d lines, \"%s\"\n", form.List2->count(),
                         qPrintable(form.Label5->text()));
            return 1;
        }

        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        clock.restart();
        process.start(QStringLiteral(BRINDLEX_CLI), {QStringLiteral("find"), QStringLiteral("needle"), mask});
        if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit) {
            std::fprintf(stderr, "brindlex-cli find failed: %s\n", qPrintable(process.errorString()));
            return 1;
        }
        const qint64 cms = clock.elapsed();
        cli = cli < 0 ? cms : std::min(cli, cms);
    }
    std::printf("%d files, %lld hits, best of %d rounds\n", files, static_cast<long long>(hits), rounds);
    std::printf("window Find All   %6lld ms\n", static_cast<long long>(window));
    std::printf("brindlex-cli find %6lld ms\n", static_cast<long long>(cli));
    std::printf("ratio             %6.2f (goal <= 1.50)\n", cli > 0 ? double(window) / double(cli) : 0.0);
    return 0;
}
