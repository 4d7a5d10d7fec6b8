#include "cli/progress.h"

#include <cstdio>
#include <ctime>

#include <sys/ioctl.h>
#include <unistd.h>

namespace brindlex::cli {
namespace {

constexpr std::int64_t kQuietMs = 500;    // a shorter run shows nothing
constexpr std::int64_t kRedrawMs = 100;

// The coarse clock is read in a few nanoseconds, cheap enough per file.
std::int64_t nowms()
{
    timespec t {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

std::string bytes(double n)
{
    static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    while (n >= 1024 && unit < 4) {
        n /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", n, kUnits[unit]);
    return text;
}

}  // namespace

bool writeall(int fd, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t r = ::write(fd, text.data() + done, text.size() - done);
        if (r <= 0)
            return false;
        done += static_cast<std::size_t>(r);
    }
    return true;
}

ProgressMeter::ProgressMeter(bool wanted, int fd) : on_(wanted && ::isatty(fd) == 1), fd_(fd) {}

void ProgressMeter::begin(std::size_t nFiles)
{
    nFiles_ = nFiles;
    nBegun_ = 0;
    lBefore_ = lLen_ = lDone_ = 0;
    start_ = nowms();
    lastDraw_ = 0;
}

void ProgressMeter::filebegins(const std::string& sName, std::int64_t lLen)
{
    if (!on_)
        return;
    lBefore_ += lLen_;
    lLen_ = lLen;
    lDone_ = 0;
    ++nBegun_;
    sName_ = sName;
    maybedraw();
}

void ProgressMeter::filepart(std::int64_t lDone)
{
    if (!on_)
        return;
    lDone_ = lDone;
    maybedraw();
}

void ProgressMeter::maybedraw()
{
    const std::int64_t now = nowms();
    if (now - start_ < kQuietMs || now - lastDraw_ < kRedrawMs)
        return;
    lastDraw_ = now;
    writeall(fd_, "\r\033[K" + line());
    shown_ = true;
}

std::string ProgressMeter::line() const
{
    const std::int64_t lRead = lBefore_ + lDone_;
    const double seconds = static_cast<double>(nowms() - start_) / 1000;
    std::string text = std::to_string(nBegun_ > 0 ? nBegun_ - 1 : 0) + "/" + std::to_string(nFiles_) + " files  " +
                       bytes(static_cast<double>(lRead)) + "  " +
                       bytes(seconds > 0 ? static_cast<double>(lRead) / seconds : 0) + "/s  " + sName_;
    if (lLen_ >= (std::int64_t{1} << 24))
        text += " (" + std::to_string(lDone_ * 100 / lLen_) + "%)";
    // One line, or the next draw would not go back to its start.
    winsize size {};
    const std::size_t width = ::ioctl(fd_, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1u : 79u;
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '?';
    }
    if (text.size() > width) {
        std::size_t cut = width;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
            --cut;   // not inside a UTF-8 character
        text.resize(cut);
    }
    return text;
}

void ProgressMeter::erase()
{
    if (!shown_)
        return;
    writeall(fd_, "\r\033[K");
    shown_ = false;
}

}  // namespace brindlex::cli
