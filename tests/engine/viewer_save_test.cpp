// Saving an edited page: the splice of before, page and after, kept in step
// for a second save, and the refusals that keep a byte from being lost.
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <random>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/faultinject.h"
#include "engine/core/openbinary.h"
#include "engine/viewer/page.h"
#include "engine/viewer/save.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

const std::string kFile = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// The viewer's page state from a read to a save.
struct Viewer {
    fs::path file, scratch;
    int nMode, nFormat = kFormatDecimal;
    Page page {};
    std::string sViewText {};

    void show(std::int64_t lPos, std::int64_t nBlock)
    {
        page = readpage(file, lPos, nBlock, 4, nMode, nFormat);
        sViewText = pagebytes(page.sText, nMode);
    }
    // Saves `text` as the page box's text; "" when saved, else why not.
    std::string save(const std::string& text)
    {
        const SavedPage r =
            saveeditedpage({file, page.lPos, page.lViewLen, sViewText, page.stamp, text, nMode, nFormat, scratch});
        return r.error ? r.error.text : r.changed ? "" : "unchanged";
    }
};

// `content` in a file below a path longer than PATH_MAX in `dir`.
fs::path deepfile(const test::TempDir& dir, const std::string& content)
{
    const std::string level(200, 'd');
    fs::path p = dir.path();
    FileHandle at(::open(p.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int depth = 0; depth < 24; ++depth, p /= level) {
        ::mkdirat(at.get(), level.c_str(), 0755);
        at = FileHandle(::openat(at.get(), level.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    FileHandle f(::openat(at.get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    EXPECT_EQ(::write(f.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
    return p / "f";
}

// A file of any path, whole.
std::string readlong(const fs::path& p)
{
    OpenedFile file;
    std::string bytes;
    return openbinary(p, file) || !readblock(file.fd.get(), 0, file.size(), bytes) ? "unreadable" : bytes;
}

TEST(ViewerSave, SplicesTheEditedPageIntoTheFile)
{
    const struct {
        const char* what;
        int nMode;
        std::int64_t lPos, nBlock;
        std::string from, to;   // replaced in the page text
        std::string after;      // the file afterwards
    } rows[] = {
        {"a changed cell", 0, 5, 8, "<34>", "<7E>", "0123~56789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"a deleted row", 0, 5, 8, "000009: <38> <39> <41> <42> ", "", "01234567CDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"an added cell", 1, 5, 8, "  4 ", "  4  <0D> ", "01234\r56789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"typed characters", 1, 1, 8, "000001:", "000001: ab", "ab0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"the last page", 0, 33, 8, "<59> <5A>", "<00>", "0123456789ABCDEFGHIJKLMNOPQRSTUVWX\0"s},
        {"a change in a position column only", 0, 5, 8, "000009", "000010", kFile},
        {"an emptied byte page", 0, 5, 8, "", "", kFile},
        {"a text page", 2, 3, 4, "2345", "a\r\nb\rc\n", "01a\r\nb\rc\n6789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"Full Text", 3, 9, 4, kFile, "all\n", "all\n"},
    };
    for (bool deep : {false, true}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.what + std::string(deep ? ", below a path over PATH_MAX" : ""));
            test::TempDir dir;
            Viewer v{deep ? deepfile(dir, kFile) : dir.write("f", kFile), dir.path() / "brindlex.tmp", row.nMode};
            v.show(row.lPos, row.nBlock);
            std::string text = row.from.empty() ? "" : v.page.sText.replace(v.page.sText.find(row.from), row.from.size(), row.to);
            EXPECT_EQ(v.save(text), row.after == kFile ? "unchanged" : "");
            EXPECT_EQ(readlong(v.file), row.after);
        }
    }
}

// An unedited byte page gives back exactly the bytes it shows, or every
// save would change what the user never touched.
TEST(ViewerSave, AnUneditedBytePageReadsBackAsItsBytes)
{
    std::mt19937 rng(5);
    for (int round = 0; round < 300; ++round) {
        std::string block(rng() % 300, '\0');
        for (char& c : block)
            c = static_cast<char>(rng() % 4 == 0 ? "<>: \r\n"[rng() % 6] : rng());
        const int nMode = static_cast<int>(rng() % 2), nFormat = static_cast<int>(rng() % 3);
        const std::string text = formatpage(block, 1 + rng() % 100000, 1 + static_cast<int>(rng() % 40), nMode, nFormat);
        ASSERT_EQ(pagebytes(text, nMode), block) << text;
    }
}

// Every way a save can't be done right leaves the file as it was, with the reason.
TEST(ViewerSave, LeavesTheFileAsItWasWithTheReason)
{
    const std::string meta = "ab\x03\0\0\0\x21\x15\x09\0"s;
    const struct {
        const char* what;
        std::string content;
        int nMode, nFormat;
        std::function<void(const fs::path&)> meanwhile;   // after the read, before the save
        std::string reason;
    } rows[] = {
        {"records that pass bytes over", meta, 1, kFormatMeta, nullptr, "metafile records"},
        {"a text page with a NUL", "a\0b"s, 2, kFormatDecimal, nullptr, "NUL"},
        {"a file changed since its page was read", kFile, 2, kFormatDecimal,
         [](const fs::path& f) { std::ofstream(f, std::ios::app) << "more"; }, "changed by another program"},
        {"a write in place that sets the mtime back", kFile, 2, kFormatDecimal,
         [](const fs::path& f) {
             struct stat st {};
             ::stat(f.c_str(), &st);
             ::usleep(20000);
             std::fstream(f, std::ios::in | std::ios::out | std::ios::binary) << "theirs";
             const timespec times[2] = {st.st_atim, st.st_mtim};
             ::utimensat(AT_FDCWD, f.c_str(), times, 0);
         },
         "changed by another program"},
        {"a failing write", kFile, 2, kFormatDecimal,
         [](const fs::path&) { faultinject::arm({0, 0, "write", ENOSPC}); }, "No space left on device"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        Viewer v(dir.write("f", row.content), dir.path() / "brindlex.tmp", row.nMode, row.nFormat);
        v.show(1, 64);
        if (row.meanwhile)
            row.meanwhile(v.file);
        const std::string before = test::readfile(v.file);
        const std::string edited = row.nMode < 2 ? v.page.sText.replace(v.page.sText.find("<09>"), 4, "<41>") : "typed";
        const std::string why = v.save(edited);
        faultinject::disarm();
        EXPECT_NE(why.find(row.reason), std::string::npos) << why;
        EXPECT_EQ(test::readfile(v.file), before);
    }
    test::TempDir dir;
    const SavedPage gone = saveeditedpage({dir.path() / "none", 1, 3, "old", FileStamp{}, "new", 2, 0, dir.path() / "brindlex.tmp"});
    EXPECT_FALSE(gone.opened);
    EXPECT_FALSE(fs::exists(dir.path() / "none"));
}

}  // namespace
}  // namespace brindlex
