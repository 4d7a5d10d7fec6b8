#include "gui/seam/launch.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brindlex::gui {

namespace {

// The usual graphical text editors of the desktops, most common first.
constexpr std::array<std::string_view, 10> kDesktopEditors{
    "gnome-text-editor", "gedit", "kate", "kwrite", "mousepad", "pluma", "xed", "featherpad", "leafpad", "geany"};

bool isdesktopeditor(const std::string& name)
{
    const std::string base = std::filesystem::path(name).filename().string();
    for (std::string_view editor : kDesktopEditors)
        if (base == editor)
            return true;
    return false;
}

bool executable(const std::string& path)
{
    std::error_code ec;
    return std::filesystem::is_regular_file(path, ec) && ::access(path.c_str(), X_OK) == 0;
}

void writeerrno(int fd, int error)
{
    [[maybe_unused]] const ssize_t r = ::write(fd, &error, sizeof error);
}

}  // namespace

std::string findonpath(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::string_view dirs = path ? path : "";
    while (!dirs.empty() && !name.empty()) {
        const std::size_t colon = dirs.find(':');
        std::string dir(dirs.substr(0, colon));
        dirs = colon == std::string_view::npos ? std::string_view() : dirs.substr(colon + 1);
        const std::string candidate = (dir.empty() ? std::string(".") : dir) + "/" + name;
        if (executable(candidate))
            return candidate;
    }
    return {};
}

std::string editorprogram(const std::string& sEditor, const std::filesystem::path& exeDir)
{
    if (sEditor == "vellumix")
        return (exeDir / sEditor).string();
    if (std::string found = findonpath(sEditor); !found.empty())
        return found;
    if (const char* visual = std::getenv("VISUAL"); visual && isdesktopeditor(visual)) {
        const std::string program = std::string(visual).find('/') != std::string::npos ? visual : findonpath(visual);
        if (executable(program))
            return program;
    }
    for (std::string_view editor : kDesktopEditors)
        if (std::string found = findonpath(std::string(editor)); !found.empty())
            return found;
    if (std::string found = findonpath("xdg-open"); !found.empty())
        return found;
    return {};
}

std::string editorname(const std::string& sEditor, const std::filesystem::path& exeDir)
{
    const std::string program = editorprogram(sEditor, exeDir);
    return program.empty() ? sEditor : std::filesystem::path(program).filename().string();
}

std::string editorsearch(const std::string& sEditor, const std::filesystem::path& exeDir)
{
    if (sEditor == "vellumix")
        return (exeDir / sEditor).string();
    std::string searched = sEditor;
    if (const char* visual = std::getenv("VISUAL"); visual && *visual)
        searched += std::string(", $VISUAL (") + visual + (isdesktopeditor(visual) ? ")" : ": not a desktop editor)");
    for (std::string_view editor : kDesktopEditors)
        searched += ", " + std::string(editor);
    return searched + " and xdg-open on PATH";
}

Error startdetached(const std::string& program, const std::vector<std::string>& args)
{
    // Everything the children need is made before the fork: after it they
    // may only make calls that are safe in a copy of a threaded process.
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    // The exec's errno comes back through a pipe that a successful exec
    // closes without a word.
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        return errorfromerrno(errno, program);
    const pid_t child = ::fork();
    if (child < 0) {
        const int error = errno;
        ::close(report[0]);
        ::close(report[1]);
        return errorfromerrno(error, program);
    }
    if (child == 0) {
        // The grandchild is the program; its parent ends at once, so that
        // it is nobody's child here and never becomes a zombie of ours.
        ::close(report[0]);
        ::setsid();
        const pid_t grandchild = ::fork();
        if (grandchild == 0) {
            ::execv(program.c_str(), argv.data());
            writeerrno(report[1], errno);
            ::_exit(127);
        }
        if (grandchild < 0)
            writeerrno(report[1], errno);
        ::_exit(0);
    }
    ::close(report[1]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    int error = 0;
    ssize_t r = 0;
    do {
        r = ::read(report[0], &error, sizeof error);
    } while (r < 0 && errno == EINTR);
    ::close(report[0]);
    if (r == static_cast<ssize_t>(sizeof error))
        return errorfromerrno(error, program);
    return {};
}

}  // namespace brindlex::gui
