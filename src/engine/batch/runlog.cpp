#include "engine/batch/runlog.h"

#include "engine/batch/runmessages.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/state.h"
#include "engine/pattern/notation.h"
#include "engine/pattern/stringtools.h"

namespace brindlex {

std::string logline(std::string_view sLabel, std::string_view sFile, std::int64_t lPos, std::string_view sText)
{
    std::string line(sLabel);
    line += ' ';
    if (lPos >= 0) {
        line += sFile;
        line += ' ';
        line += zeropadded(lPos, 7);
        line += ": ";
    }
    line += encodebytes(sText.substr(0, kLogTextBytes), 100, true);
    line += sCRLF;
    return line;
}

bool RunLog::openlog()
{
    // O_NONBLOCK: a FIFO at the name can't hold the run; it is refused below.
    fd_ = FileHandle(::open(sLogFile_.c_str(),
                            O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
    struct stat st {};
    if (!fd_.valid() && errno == ENXIO)   // a FIFO nobody reads, a socket
        failure_ = notregular(sLogFile_);
    else if (!fd_.valid() || ::fstat(fd_.get(), &st) != 0)
        failure_ = errorfromerrno(errno, sLogFile_);
    else if (!S_ISREG(st.st_mode))
        failure_ = notregular(sLogFile_);
    else if (st.st_uid != ::geteuid())
        failure_ = Error{EPERM, "The log belongs to another user", sLogFile_};
    if (failure_)
        fd_.close();
    return !failure_;
}

void RunLog::writelog(std::string_view sLabel, std::string_view sFile, std::int64_t lPos, std::string_view sText)
{
    if (failure_ || sLogFile_.empty())
        return;
    // A log deleted during the run is made anew by its next line.
    if (fd_.valid()) {
        struct stat st {};
        if (::fstat(fd_.get(), &st) != 0 || st.st_nlink == 0)
            fd_.close();
    }
    if (!fd_.valid() && !openlog())
        return;
    const std::string line = logline(sLabel, sFile, lPos, sText);
    std::size_t done = 0;
    while (done < line.size()) {
        const ssize_t r = ::write(fd_.get(), line.data() + done, line.size() - done);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0) {
            failure_ = errorfromerrno(r < 0 ? errno : EIO, sLogFile_);
            fd_.close();
            return;
        }
        done += static_cast<std::size_t>(r);
    }
}

}  // namespace brindlex
