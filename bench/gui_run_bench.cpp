// Times the window, offscreen, against `brindlex-cli find -c` on the same
// tree: the listing (the Dir button), a Find All and the command line's
// whole run (list, sort, read), with the window's peak resident memory at
// the end (100,000 files listed and 1000 hits shown: goal <= 150 MiB).
// The window's listing should take no longer than the command line's whole
// run, its Find All at most 1.2 times the command line's.
//
//   gui_run_bench                                  4,000, 32,000 and 100,000 files, one hit each
//   gui_run_bench files [hits-per-file [rounds]]   one size (default rounds 3)
//
// Without arguments each size runs in a process of its own, so that each
// peak is its own.
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "gui/mainwindow/form1.h"

namespace {

int argument(int argc, char** argv, int index, int fallback)
{
    return argc > index ? std::max(1, std::atoi(argv[index])) : fallback;
}

// Each file: `perFile` times "....needle.." and a short tail without a hit.
bool maketree(const QString& tree, int files, int perFile)
{
    QByteArray content;
    for (int i = 0; i < perFile; ++i)
        content += "....needle..";
    content += QByteArray(64, '-');
    for (int f = 0; f < files; ++f) {
        const QByteArray path = QFile::encodeName(tree + QStringLiteral("/f%1.dat").arg(f, 6, 10, QLatin1Char('0')));
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const bool ok = fd >= 0 && ::write(fd, content.constData(), static_cast<std::size_t>(content.size())) == content.size();
        if (fd >= 0)
            ::close(fd);
        if (!ok)
            return false;
    }
    return true;
}

template <typename F>
qint64 best(qint64 sofar, F&& work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    const qint64 ms = clock.elapsed();
    return sofar < 0 ? ms : std::min(sofar, ms);
}

int allsizes(const char* self)
{
    for (const char* size : {"4000", "32000", "100000"}) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QString::fromLocal8Bit(self), {QString::fromLatin1(size), QStringLiteral("1"), QStringLiteral("3")});
        if (!child.waitForFinished(-1) || child.exitCode() != 0)
            return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc == 1)
        return allsizes(argv[0]);
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
    if (!maketree(tree, files, perFile))
        return 2;
    const qint64 hits = qint64(files) * perFile;
    const QString mask = tree + QStringLiteral("/*.*");

    QDir::setCurrent(tree);
    brindlex::gui::Form1 form;
    form.show();
    form.Form_Load(brindlex::gui::fromwidget(mask));
    const brindlex::gui::Session& session = form.state();
    if (session.files.size() != static_cast<std::size_t>(files)) {
        std::fprintf(stderr, "listed %zu of %d files\n", session.files.size(), files);
        return 1;
    }
    form.findChild<QLineEdit*>(QStringLiteral("Text2"))->setText(QStringLiteral("needle"));
    QPushButton* findAll = form.findChild<QPushButton*>(QStringLiteral("cmd_0"));
    QPushButton* dir = form.findChild<QPushButton*>(QStringLiteral("cmd_2"));
    const QLabel* status = form.findChild<QLabel*>(QStringLiteral("Label5"));

    qint64 listing = -1, window = -1, cli = -1;
    for (int round = 0; round < rounds; ++round) {
        listing = best(listing, [&] { dir->click(); });
        window = best(window, [&] { findAll->click(); });
        const std::size_t shown = session.hits.size();
        const QString expected = hits >= 1000 ? QStringLiteral("more than 1000") : QString::number(hits);
        if (session.files.size() != static_cast<std::size_t>(files) || shown != std::min<std::size_t>(hits, 1000)
            || status->text() != expected) {
            std::fprintf(stderr, "window: %zu files, %zu hit lines, \"%s\"\n", session.files.size(), shown,
                         qPrintable(status->text()));
            return 1;
        }
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        cli = best(cli, [&] {
            process.start(QStringLiteral(BRINDLEX_CLI), {QStringLiteral("find"), QStringLiteral("-c"),
                                                          QStringLiteral("needle"), mask});
            process.waitForFinished(-1);
        });
        if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            std::fprintf(stderr, "brindlex-cli find failed: %s\n", qPrintable(process.errorString()));
            return 1;
        }
    }
    rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    const double ratio = cli > 0 ? double(window) / double(cli) : 0.0;
    std::printf("%d files, %lld hits, best of %d rounds\n", files, static_cast<long long>(hits), rounds);
    std::printf("  window listing      %6lld ms   (goal <= the CLI's %lld ms)\n", static_cast<long long>(listing),
                static_cast<long long>(cli));
    std::printf("  window Find All     %6lld ms   (%.2f x the CLI, goal <= 1.20)\n", static_cast<long long>(window), ratio);
    std::printf("  brindlex-cli find -c %5lld ms\n", static_cast<long long>(cli));
    std::printf("  window peak RSS     %6ld MiB (goal <= 150)\n", usage.ru_maxrss / 1024);
    std::fflush(stdout);
    return 0;
}
