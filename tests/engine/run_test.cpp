// A run over a file list, seen through a host that writes every call down:
// each case compares that transcript, the files afterwards and the log.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "engine/batch/run.h"
#include "engine/files/files.h"
#include "support/recordinghost.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

// Control bytes show as \r \n \t; the temporary directory as "<dir>/".
std::string shown(const std::string& text, const test::TempDir& dir)
{
    std::string out;
    for (char c : dir.shown(text))
        out += c == '\r' ? "\\r" : c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    return out;
}

// A case may act at a moment of the run, after the line is recorded.
using OnEvent = std::function<void(const std::string& line, const std::filesystem::path& base)>;

struct RunCase {
    const char* what {};
    std::map<std::string, std::string> files {};    // name below the base dir -> content
    std::vector<std::string> names {};              // the list, in its order: real names
    std::map<std::string, std::string> links {};    // symbolic link -> its target, below the base dir
    std::vector<bool> selected {};
    std::string sFind {};
    std::string sReplace {};
    bool bReplace = false;
    bool bMatchCase = false;
    bool bAsk = false;
    int nLogMode = 0;
    std::vector<Answer> answers {};
    OnEvent onEvent {};
    std::string transcript {};                      // expected, behind the common start
    std::map<std::string, std::string> after {};    // expected contents; unnamed files keep theirs
    std::string log {};                             // expected log, "<dir>/" for the directory
};

const std::string kStart = "clearhits\nstatus none found\ncontrols off\n";

void checkcase(const RunCase& c)
{
    SCOPED_TRACE(c.what);
    test::TempDir dir;
    const std::string dirs = dir.path().string() + "/";
    std::filesystem::create_directories(dir.path() / "base");
    for (const auto& [name, content] : c.files)
        dir.write("base/" + name, content);
    for (const auto& [name, target] : c.links)
        std::filesystem::create_symlink(target, dir.path() / "base" / name);
    std::vector<FileEntry> entries;
    for (const std::string& name : c.names)
        entries.push_back({name, 3});
    RunRequest r {.sFind = c.sFind, .sReplaceText = c.sReplace, .bReplace = c.bReplace, .bMatchCase = c.bMatchCase,
                  .bAsk = c.bAsk, .nLogMode = c.nLogMode, .sLogFile = dir.path() / "run.log",
                  .sScratch = dir.path() / "scratch", .baseDir = dirs + "base/", .files = entries,
                  .selected = c.selected};
    test::RecordingHost host;
    host.answers = c.answers;
    host.show = [&](const std::string& line) { return shown(line, dir); };
    if (c.onEvent)
        host.onEvent = [&](const std::string& line) { c.onEvent(line, dir.path() / "base"); };
    findinfiles(r, host);
    EXPECT_EQ(host.transcript, c.sFind.empty() ? "clearhits\nstatus none found\n" : kStart + c.transcript);
    for (const auto& [name, content] : c.files) {
        const auto it = c.after.find(name);
        EXPECT_EQ(test::readfile(dir.path() / "base" / name), it == c.after.end() ? content : it->second) << name;
    }
    const bool logged = std::filesystem::exists(r.sLogFile);
    EXPECT_EQ(logged ? shown(test::readfile(r.sLogFile), dir) : "", c.log);
}

TEST(Run, OneCasePerBehaviour)
{
    const std::string digits60 = "012345678901234567890123456789012345678901234567890123456789";
    // Long enough to be read ahead on threads of its own, with hits at both
    // ends; the first hit cuts it to 1000 bytes.
    const std::string kLong = "xax" + std::string(17 << 20, 'x') + "a";
    const OnEvent cutshort = [](const std::string& line, const std::filesystem::path& base) {
        if (line == "hit a 2")
            std::filesystem::resize_file(base / "a", 1000);
    };
    const std::string kChanged = "message Cannot replace! ERROR in file lengths for <dir>/base/a"
                                 " | <dir>/base/a: File changed by another program since it was read\n";
    const RunCase cases[] = {
        {.what = "an empty find text only clears", .files = {{"a", "abc"}}, .names = {"a"}, .sFind = ""},
        {.what = "a folded find restarts one byte on; a missing file is reported and skipped",
         .files = {{"a", "aAAb aa"}, {"b", "none"}}, .names = {"a", "gone", "b"}, .sFind = "aa",
         .transcript = "status <dir>/base/a\nhit a 1\nstatus 1\nhit a 2\nstatus 2\nhit a 6\nstatus 3\nstatus 3\n"
                       "status <dir>/base/gone\nmessage Error opening <dir>/base/gone:\\r\\nNo such file or directory\n"
                       "status <dir>/base/b\nstatus 0\nstatus 3\ncontrols on\n"},
        {.what = "a longer replacement restarts behind the match; a file without hits is not rewritten",
         .files = {{"a", "AAAA-A"}, {"b", "none"}}, .names = {"a", "b"}, .sFind = "aa", .sReplace = "xyz", .bReplace = true,
         .transcript = "status <dir>/base/a\nhit a 1\nstatus 1\nhit a 3\nstatus 2\nstatus 2\nline 0 a\\t00000008*\n"
                       "status <dir>/base/b\nstatus 0\nstatus 2\ncontrols on\n",
         .after = {{"a", "xyzxyz-A"}}},
        {.what = "an empty replacement deletes; a code in the pattern makes it match case",
         .files = {{"a", "ab\rAB\r"}}, .names = {"a"}, .sFind = "AB<0D>", .sReplace = "", .bReplace = true,
         .transcript = "status <dir>/base/a\nhit a 4\nstatus 1\nstatus 1\nline 0 a\\t00000003*\nstatus 1\ncontrols on\n",
         .after = {{"a", "ab\r"}}},
        {.what = "a shorter replacement, logged: the heads, found with the file's bytes, replaced",
         .files = {{"a", "x ab"}}, .names = {"a"}, .sFind = "ab", .sReplace = "Z", .bReplace = true, .nLogMode = 3,
         .transcript = "status <dir>/base/a\nhit a 3\nstatus 1\nstatus 1\nline 0 a\\t00000003*\nstatus 1\ncontrols on\n",
         .after = {{"a", "x Z"}},
         .log = "find      A    B  \\r\\nreplace with     Z  \\r\\n"
                "found    <dir>/base/a 0000003:   a    b  \\r\\nreplaced <dir>/base/a 0000003:   Z  \\r\\n"},
        // The question shows the last 50 bytes before the hit, the prepared
        // pattern and 20 bytes behind it.
        {.what = "asking: Yes and No rewrite a; Cancel leaves b as it was and c unscanned",
         .files = {{"a", digits60 + "qq" + std::string(25, '-')}, {"b", "1q2q"}, {"c", "q"}}, .names = {"a", "b", "c"},
         .sFind = "q", .sReplace = "R", .bReplace = true, .bAsk = true,
         .answers = {Answer::Yes, Answer::No, Answer::Yes, Answer::Cancel},
         .transcript = "status <dir>/base/a\nquestion <dir>/base/a byte 61|Replace \\r\\n" + digits60.substr(10) +
                       "\\r\\n\\r\\nQ? q-------------------\nhit a 61\nstatus 1\n"
                       "question <dir>/base/a byte 62|Replace \\r\\n\\r\\n\\r\\nQ? --------------------\n"
                       "hit a 62\nstatus 2\nstatus 2\nline 0 a\\t00000087*\nstatus <dir>/base/b\n"
                       "question <dir>/base/b byte 2|Replace \\r\\n1\\r\\n\\r\\nQ? 2q\nhit b 2\nstatus 1\n"
                       "question <dir>/base/b byte 4|Replace \\r\\n2\\r\\n\\r\\nQ? \nhit b 4\nstatus 2\ncontrols on\n",
         .after = {{"a", digits60 + "Rq" + std::string(25, '-')}}},
        {.what = "a file that grows after its hit fails the length check and keeps its bytes",
         .files = {{"a", "xax"}, {"b", "a"}}, .names = {"a", "b"}, .sFind = "a", .sReplace = "b", .bReplace = true,
         .onEvent = [](const std::string& line, const std::filesystem::path& base) {
             if (line == "hit a 2")
                 std::ofstream(base / "a", std::ios::app) << "more";
         },
         .transcript = "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\n" + kChanged +
                       "status <dir>/base/b\nhit b 1\nstatus 1\nstatus 1\nline 1 b\\t00000001*\nstatus 2\ncontrols on\n",
         .after = {{"a", "xaxmore"}, {"b", "b"}}},
        {.what = "a long file cut short under a find is reported",
         .files = {{"a", kLong}}, .names = {"a"}, .sFind = "a", .onEvent = cutshort,
         .transcript = "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\nmessage Error reading <dir>/base/a:\\r\\n"
                       "The file became shorter while it was read\nstatus 1\ncontrols on\n",
         .after = {{"a", kLong.substr(0, 1000)}}},
        {.what = "a long file cut short under a replace keeps the bytes left",
         .files = {{"a", kLong}}, .names = {"a"}, .sFind = "a", .sReplace = "b", .bReplace = true, .onEvent = cutshort,
         .transcript = "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\n" + kChanged + "status 1\ncontrols on\n",
         .after = {{"a", kLong.substr(0, 1000)}}},
        {.what = "a file renamed over the one read before the first byte is written keeps its content",
         .files = {{"a", "HIT"}, {"o", "HAT"}}, .names = {"a"}, .sFind = "hit", .sReplace = "HOT", .bReplace = true,
         .bAsk = true,
         .onEvent = [](const std::string& line, const std::filesystem::path& base) {
             if (line.starts_with("question"))
                 std::filesystem::rename(base / "o", base / "a");
         },
         .transcript = "status <dir>/base/a\nquestion <dir>/base/a byte 1|Replace \\r\\n\\r\\n\\r\\nHIT? \n"
                       "hit a 1\nstatus 1\nstatus 1\n" + kChanged + "status 1\ncontrols on\n",
         .after = {{"a", "HAT"}, {"o", ""}}},
        {.what = "real names are taken as they are; a file is rewritten once whichever name leads to it",
         .files = {{" lead", "hit"}, {"x\ty", "hit"}, {"x", "-"}, {"t", "xhitx"}},
         .names = {" lead", "l1", "l2", "t", "x", "x\ty"}, .links = {{"l1", "t"}, {"l2", "t"}},
         .sFind = "hit", .sReplace = "hitx", .bReplace = true,
         .transcript = "status <dir>/base/ lead\nhit  lead 1\nstatus 1\nstatus 1\nline 0  lead\\t00000004*\n"
                       "status <dir>/base/l1\nhit l1 2\nstatus 1\nstatus 1\nline 1 l1\\t00000006*\n"
                       "status <dir>/base/l2\nnote <dir>/base/l2: the same file as <dir>/base/l1, rewritten once\n"
                       "status <dir>/base/t\nnote <dir>/base/t: the same file as <dir>/base/l1, rewritten once\n"
                       "status <dir>/base/x\nstatus 0\n"
                       "status <dir>/base/x\\ty\nhit x\\ty 1\nstatus 1\nstatus 1\nline 5 x\\ty\\t00000004*\n"
                       "status 3\ncontrols on\n",
         .after = {{" lead", "hitx"}, {"x\ty", "hitx"}, {"t", "xhitxx"}}},
        {.what = "a directory swapped for a link after the listing is refused, never followed",
         .files = {{"a", "hit"}, {"sub/s", "hit"}, {"victim/s", "hit"}}, .names = {"a", "sub/s"}, .sFind = "hit",
         .sReplace = "HOT", .bReplace = true, .bMatchCase = true,
         .onEvent = [](const std::string& line, const std::filesystem::path& base) {
             if (line == "hit a 1") {
                 std::filesystem::rename(base / "sub", base / "sub.old");
                 std::filesystem::create_directory_symlink(base / "victim", base / "sub");
             }
         },
         .transcript = "status <dir>/base/a\nhit a 1\nstatus 1\nstatus 1\nline 0 a\\t00000003*\n"
                       "status <dir>/base/sub/s\nmessage Error opening <dir>/base/sub/s:\\r\\n"
                       "A directory on its path is a symbolic link now: not followed\nstatus 1\ncontrols on\n",
         .after = {{"a", "HOT"}}},
    };
    for (const RunCase& c : cases)
        checkcase(c);
}

}  // namespace
}  // namespace brindlex
