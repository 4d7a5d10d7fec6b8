#include "engine/dump/dump.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/alignedbuffer.h"
#include "engine/core/openbinary.h"
#include "engine/core/workdir.h"
#include "engine/pattern/stringtools.h"

namespace brindlex {

namespace {

// What the dump reads and writes at a time: large enough that the system
// calls cost nothing beside the formatting, small enough that a yield comes
// every few milliseconds.
constexpr std::size_t kInBlock = 1 << 20;
constexpr std::size_t kOutBlock = 1 << 18;
// The most one value or row head adds to the sheet: a tab and "-2147483648",
// or " 9223372036854775807 ".
constexpr std::size_t kMaxPiece = 24;

// The input, read sequentially in blocks. Once it meets the file's end it
// holds every byte there is, and `left` counts what is not yet taken.
class Input {
public:
    explicit Input(int fd) : fd_(fd), buf_(kInBlock + 8) {}

    // Makes at least `want` bytes ready unless the file ends first; false
    // after a failed read, with errno set.
    bool fill(std::size_t want)
    {
        while (end_ - at_ < want && !eof_) {
            if (at_ > 0) {
                std::memmove(buf_.data(), buf_.data() + at_, end_ - at_);
                end_ -= at_;
                at_ = 0;
            }
            const ssize_t r = ::read(fd_, buf_.data() + end_, buf_.size() - end_);
            if (r < 0 && errno == EINTR)
                continue;
            if (r < 0)
                return false;
            eof_ = r == 0;
            end_ += static_cast<std::size_t>(r);
            ++reads_;
        }
        return true;
    }

    std::size_t ready() const { return end_ - at_; }
    bool ended() const { return eof_; }
    const unsigned char* data() const { return buf_.data() + at_; }
    void take(std::size_t n) { at_ += std::min(n, ready()); }
    std::uint64_t reads() const { return reads_; }

private:
    int fd_;
    AlignedBuffer<> buf_;
    std::size_t at_ = 0, end_ = 0;
    bool eof_ = false;
    std::uint64_t reads_ = 0;
};

// The sheet, gathered in blocks; the first failed write is kept and ends
// the writing.
class Output {
public:
    explicit Output(int fd) : fd_(fd), buf_(kOutBlock + kMaxPiece * 2) {}

    // Room for one more piece; false once a write failed.
    bool room()
    {
        if (used_ + kMaxPiece > kOutBlock)
            return flush();
        return error_ == 0;
    }
    char* at() { return buf_.data() + used_; }
    void advance(char* to) { used_ = static_cast<std::size_t>(to - buf_.data()); }

    bool flush()
    {
        std::size_t done = 0;
        while (done < used_ && error_ == 0) {
            const ssize_t r = ::write(fd_, buf_.data() + done, used_ - done);
            if (r < 0 && errno == EINTR)
                continue;
            if (r <= 0)
                error_ = r < 0 ? errno : EIO;
            else
                done += static_cast<std::size_t>(r);
        }
        used_ = 0;
        return error_ == 0;
    }
    int error() const { return error_; }

private:
    int fd_;
    AlignedBuffer<char> buf_;
    std::size_t used_ = 0;
    int error_ = 0;
};

// One value: `have` of its `nBytes` bytes are in the file (the rest are
// missing, as the header tells).
char* putvalue(char* p, const unsigned char* b, std::size_t have, std::size_t nBytes)
{
    *p++ = '\t';
    if (have == 0)
        return p;
    std::uint32_t u = 0;
    for (std::size_t i = 0; i < have; ++i)
        u |= static_cast<std::uint32_t>(b[i]) << (8 * i);
    const std::int64_t v = have < nBytes ? std::int64_t{u}
                           : nBytes == 2 ? std::int64_t{static_cast<std::int16_t>(u)}
                                         : std::int64_t{static_cast<std::int32_t>(u)};
    return std::to_chars(p, p + kMaxPiece, v).ptr;
}

char* putrowhead(char* p, std::int64_t row)
{
    *p++ = ' ';
    p = std::to_chars(p, p + kMaxPiece, row).ptr;
    *p++ = ' ';
    return p;
}

// The rows of the dump; the sink is asked carryon() with every block read.
void writerows(std::size_t nBytes, int nCols, Input& in, Output& out, std::int64_t& lPos, DumpSink& sink,
               DumpResult& result, int& error)
{
    std::uint64_t yieldedAt = 0;
    for (;;) {
        if (!in.fill(1)) {
            error = errno;
            return;
        }
        if (in.ready() == 0)
            return;
        if (in.reads() != yieldedAt) {
            yieldedAt = in.reads();
            if (!sink.carryon()) {
                result.cancelled = true;
                return;
            }
        }
        if (!out.room())
            return;
        out.advance(putrowhead(out.at(), ++result.rows));
        for (int c = 0; c < nCols; ++c) {
            if (!in.fill(nBytes)) {
                error = errno;
                break;
            }
            if (!out.room())
                return;
            const std::size_t have = std::min(nBytes, in.ready());
            out.advance(putvalue(out.at(), in.data(), have, nBytes));
            in.take(have);
            lPos += static_cast<std::int64_t>(nBytes);
        }
        if (!out.room())
            return;
        char* p = out.at();
        *p++ = '\r';
        *p++ = '\n';
        out.advance(p);
        if (error != 0)
            return;
    }
}

}  // namespace

WorkSheet::~WorkSheet()
{
    if (fd_ >= 0)
        ::close(fd_);
}

Error WorkSheet::open()
{
    if (!preparedworkdir())
        return Error{EACCES, "The work directory " + workdirpath().string() + " can't be used", sOut_};
    fd_ = ::open(sOut_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd_ >= 0)
        return {};
    if (errno != EEXIST)
        return errorfromerrno(errno, sOut_);
    fd_ = ::open(sOut_.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd_ < 0)
        return errorfromerrno(errno, sOut_);
    struct stat st {};
    if (::fstat(fd_, &st) != 0)
        return errorfromerrno(errno, sOut_);
    if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid() || st.st_nlink != 1)
        return Error{EEXIST, "Another file has taken the name", sOut_};
    if (::ftruncate(fd_, 0) != 0)
        return errorfromerrno(errno, sOut_);
    return {};
}

Error WorkSheet::close(bool)
{
    const int fd = fd_;
    fd_ = -1;
    if (fd >= 0 && ::close(fd) != 0)
        return errorfromerrno(errno, sOut_);
    return {};
}

std::string sheetname(int nDumpCount)
{
    return zeropadded(nDumpCount, 3) + ".xls";
}

int dumpanswer(std::string_view answer)
{
    std::size_t at = answer.find_first_not_of(" \t");
    if (at == std::string_view::npos)
        return 0;
    const bool negative = answer[at] == '-';
    if (answer[at] == '-' || answer[at] == '+')
        ++at;
    double value = 0;
    for (; at < answer.size() && answer[at] >= '0' && answer[at] <= '9'; ++at)
        value = std::min(value * 10 + (answer[at] - '0'), 1e9);
    if (at < answer.size() && answer[at] == '.') {
        double scale = 0.1;
        for (++at; at < answer.size() && answer[at] >= '0' && answer[at] <= '9'; ++at, scale /= 10)
            value += (answer[at] - '0') * scale;
    }
    const double rounded = std::nearbyint(negative ? -value : value);
    return rounded < -32768 || rounded > 32767 ? 0 : static_cast<int>(rounded);
}

std::string createdmessage(const std::string& sOut)
{
    return "File " + sOut + " was created.";
}

DumpResult dumpints(int nSize, int nCols, const std::filesystem::path& sIn, SheetOutput& out,
                    const std::string& sOut, std::int64_t& lPos, DumpSink& sink)
{
    DumpResult result;
    if (nCols < 1) {
        sink.message("The number of columns must be 1 or more.");
        result.failed = true;
        return result;
    }
    OpenedFile input;
    Error error = openbinary(sIn, input);
    if (!error)
        error = out.open();
    if (error) {
        sink.message(error.text);
        result.failed = true;
        return result;
    }
    lPos = std::max<std::int64_t>(lPos, 1);
    int failure = 0;
    if (lPos > 1 && ::lseek(input.fd.get(), lPos - 1, SEEK_SET) < 0)
        failure = errno;
    Input in(input.fd.get());
    Output sheet(out.fd());
    if (failure == 0)
        writerows(nSize == 2 ? 2 : 4, nCols, in, sheet, lPos, sink, result, failure);
    sheet.flush();
    if (failure == 0)
        failure = sheet.error();
    input.fd.close();
    if (Error closed = out.close(failure == 0 && !result.cancelled); closed && failure == 0)
        failure = closed.code;
    if (failure != 0) {
        result.failed = true;
        sink.message(std::to_string(failure));
    }
    sink.message(createdmessage(sOut));
    return result;
}

DumpResult dumpints(int nSize, int nCols, const std::filesystem::path& sIn, const std::filesystem::path& sOut,
                    std::int64_t& lPos, DumpSink& sink)
{
    WorkSheet sheet(sOut);
    return dumpints(nSize, nCols, sIn, sheet, sOut.string(), lPos, sink);
}

}  // namespace brindlex
