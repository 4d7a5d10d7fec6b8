// Where a run (batch/run.h) tells what it does, as typed events: the
// window's host, the command line's, a test's. The run shows nothing and
// writes no text for the user; each front end words the events its own way
// (batch/runmessages.h formats the failures both must word alike).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "engine/core/error.h"

namespace brindlex {

enum class Answer { Yes, No, Cancel };

// What went wrong with a file of the run, or with its log.
enum class FailureKind {
    None,
    Open,     // the file could not be opened
    Read,     // a read under a find's scan failed (code 0: the file ended before its length)
    Length,   // a replace's length check refused the new content: the file keeps its bytes
    Copy,     // putting the new content in place failed
    Log,      // the run log could not be opened or written; the run goes on without it
};

struct Failure {
    FailureKind kind = FailureKind::None;
    std::string sFile;                  // the file's path; the log's for Log
    Error reason;
    std::filesystem::path copiedFrom;   // Copy: where the new content came from

    explicit operator bool() const { return kind != FailureKind::None; }
};

// A remark that stops nothing and needs no answer.
enum class NoteKind {
    SameFile,   // sFile leads to a file this replace rewrote already, as `detail`
    NotKept,    // sFile was rewritten without what `detail` names (its capabilities, say)
};

struct Note {
    NoteKind kind = NoteKind::SameFile;
    std::string sFile;
    std::string detail;
};

// A line of the file list taken in hand: opened (lLength its length) or
// not (`error` says why, lLength 0).
struct FileBegins {
    std::size_t index = 0;   // its line in the list
    const std::string& sName;   // its real name, relative to the base directory
    const std::string& sFile;   // its path
    std::int64_t lLength = 0;
    Error error;
};

// Hits of the file in hand in bulk: `count` 1-based positions (as the file
// was before replacing) in the order of the scan, `nHitsBefore` hits of the
// file having come before them.
struct HitBatch {
    const std::string& sName;
    const std::int64_t* lPos;
    std::size_t count;
    std::int64_t nHitsBefore;
};

// The question at a hit of a replace with asking on. `text` is what the
// user is asked: the bytes ahead of the hit, the pattern and those behind.
struct Question {
    const std::string& sFile;
    std::int64_t lPos;
    const std::string& text;
};

// How a scanned file ended. Not told for a file that couldn't be opened or
// was passed over, nor for one whose scan was cancelled (unless a read
// failed under it).
struct FileDone {
    std::size_t index = 0;
    const std::string& sName;
    const std::string& sFile;
    std::int64_t nHits = 0;
    bool lineChanged = false;   // the line now shows lNewLength and the rewritten mark
    std::int64_t lNewLength = 0;
    Failure failure;            // Read, Length or Copy; None when all went well
};

// How the run ended.
struct RunSummary {
    std::int64_t hits = 0;       // all hits of the run
    std::int64_t listed = 0;     // lines of the hit list: min(hits, the list's limit)
    bool capped = false;         // the hit list is full: there may be more
    bool cancelled = false;      // the user stopped it; the file in hand kept its bytes
};

class RunSink {
public:
    virtual ~RunSink() = default;

    // The run begins: the hit list is emptied. With `works` false (nothing
    // to find) nothing more follows; else the work begins and runfinished()
    // ends it.
    virtual void runbegins(bool /*works*/) {}

    // Asked at every point where the user may stop, at least every few
    // milliseconds of a long scan: lets events in, and answers false when
    // the user asked to stop. The run asks no more once it has a false.
    virtual bool carryon() { return true; }

    virtual void filebegins(const FileBegins& /*file*/) {}

    // Returns how many of the batch were taken: all, or fewer when the user
    // asked to stop at one of them (carryon() then answers false). A sink
    // that lists millions of hits does its per-hit work in one tight loop.
    virtual std::size_t hits(const HitBatch& batch) { return batch.count; }

    // The scan of the file in hand has ended with `nHits` hits; the file's
    // commit, if any, follows.
    virtual void scanned(std::int64_t /*nHits*/) {}

    virtual Answer question(const Question& /*q*/) { return Answer::Yes; }

    virtual void filedone(const FileDone& /*file*/) {}

    // How far the scan of a big file in hand is: about once a megabyte.
    virtual void progress(std::int64_t /*lDone*/, std::int64_t /*lLen*/) {}

    virtual void note(const Note& /*note*/) {}

    // A failure beside the files: the log's, once, behind the file in hand.
    virtual void runfailure(const Failure& /*failure*/) {}

    virtual void runfinished(const RunSummary& /*summary*/) {}
};

}  // namespace brindlex
