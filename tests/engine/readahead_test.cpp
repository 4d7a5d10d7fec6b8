// A run that reads ahead on worker threads against the same run on one
// thread: over many small files, files that can't be opened and a file with
// more hits than a worker keeps, the host must see the same calls in the
// same order, the files must end the same, and a Cancel must stop both at
// the same hit.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "engine/batch/readahead.h"
#include "engine/batch/run.h"
#include "support/recordinghost.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

// 200 files of up to 3000 bytes over a few letters, so that "ab" is found
// by chance in every other one, one file of more hits than a worker keeps,
// and names that can't be opened: one gone, one a directory.
std::vector<std::string> makefiles(const test::TempDir& dir)
{
    std::mt19937_64 rng(2026);
    std::vector<std::string> names;
    for (int i = 0; i < 200; ++i) {
        std::string content(rng() % 3000, '\0');
        for (char& c : content)
            c = "aAxy\rb"[rng() % (i % 2 ? 6 : 5)];
        names.push_back("f" + std::to_string(1000 + i));
        dir.write("base/" + names.back(), content);
    }
    std::string many;
    for (std::size_t i = 0; i < ReadAhead::kAheadHits + 10; ++i)
        many += "xab";
    dir.write("base/many", many);
    std::filesystem::create_directory(dir.path() / "base" / "dir");
    names.insert(names.begin() + 3, "many");
    names.insert(names.begin() + 5, "gone");
    names.insert(names.begin() + 9, "dir");
    return names;
}

struct Outcome {
    std::string transcript;
    RunResult result;
    std::vector<std::string> contents;
};

Outcome runover(const test::TempDir& temp, bool bReplace, bool bReadAhead, std::int64_t cancelAtHit)
{
    const std::filesystem::path& dir = temp.path();
    std::filesystem::remove_all(dir / "base");
    std::filesystem::create_directories(dir / "base");
    RunRequest request;
    request.sFind = "ab";
    request.sReplaceText = "%0D%0A";
    request.bReplace = bReplace;
    request.sScratch = dir / "brindlex.tmp";
    request.baseDir = (dir / "base").string() + "/";
    request.bReadAhead = bReadAhead;
    std::vector<FileEntry> entries;
    for (const std::string& name : makefiles(temp))
        entries.push_back({name, 1});
    request.files = entries;
    test::RecordingHost host;
    host.cancelAtHit = cancelAtHit;
    Outcome out;
    out.result = findinfiles(request, host);
    out.transcript = host.transcript;
    for (const FileEntry& entry : entries) {
        const auto path = dir / "base" / entry.name;
        out.contents.push_back(std::filesystem::is_regular_file(path) ? test::readfile(path) : "-");
    }
    return out;
}

TEST(ReadAhead, TellsTheHostWhatTheSerialRunTells)
{
    test::TempDir dir;
    struct Row {
        const char* what;
        bool bReplace;
        std::int64_t cancelAtHit;   // -1: never
    };
    // Behind the file of many hits, in the files the workers have done.
    const auto later = static_cast<std::int64_t>(ReadAhead::kAheadHits) + 500;
    for (const Row& row : {Row {"find", false, -1}, Row {"replace", true, -1}, Row {"find cancelled", false, later},
                           Row {"replace cancelled", true, later}}) {
        SCOPED_TRACE(row.what);
        const Outcome serial = runover(dir, row.bReplace, false, row.cancelAtHit);
        const Outcome ahead = runover(dir, row.bReplace, true, row.cancelAtHit);
        EXPECT_EQ(ahead.transcript, serial.transcript);
        EXPECT_EQ(ahead.contents, serial.contents);
        EXPECT_EQ(ahead.result.hits, serial.result.hits);
        EXPECT_EQ(ahead.result.cancelled, row.cancelAtHit >= 0);
        EXPECT_EQ(ahead.result.failures, serial.result.failures);
        // The rows must reach what they are about.
        EXPECT_GT(serial.result.hits, static_cast<std::int64_t>(ReadAhead::kAheadHits));
        EXPECT_NE(serial.transcript.find("message Error opening"), std::string::npos);
    }
}

}  // namespace
}  // namespace brindlex
