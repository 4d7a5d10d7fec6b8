#include "engine/batch/runlog.h"

#include <cerrno>

#include <fcntl.h>
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

void RunLog::writelog(std::string_view sLabel, std::string_view sFile, std::int64_t lPos, std::string_view sText)
{
    // A log deleted during the run is made anew by its next line.
    if (fd_.valid()) {
        struct stat st {};
        if (::fstat(fd_.get(), &st) != 0 || st.st_nlink == 0)
            fd_.close();
    }
    if (!fd_.valid()) {
        if (sLogFile_.empty())
            return;
        fd_ = FileHandle(::open(sLogFile_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd_.valid())
            return;
    }
    const std::string line = logline(sLabel, sFile, lPos, sText);
    std::size_t done = 0;
    while (done < line.size()) {
        const ssize_t r = ::write(fd_.get(), line.data() + done, line.size() - done);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return;
        done += static_cast<std::size_t>(r);
    }
}

}  // namespace brindlex
