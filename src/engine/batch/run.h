// One run: a find or a replace over the files of the list.
//
// For each selected line of the list (all lines when none is selected) the
// file at baseDir + its real name (the line's first field only for a line
// without one) is opened, below baseDir without following a link on the way
// (see baseDirFd), and scanned in blocks of 1000 bytes
// that advance by 800 when they hold no hit, so a pattern of up to 201 bytes
// is found wherever it lies, one of 202..1000 bytes only where it fits in a
// block as the scan reads them, and a longer one never. A find restarts one
// byte behind a hit, so "AA" in "AAAA" is found at 1, 2 and 3; a replace
// restarts behind the matched bytes: 1 and 3. A replace streams the file into
// a scratch file with the replacement at each accepted hit, checks its length
// and puts it in place through SafeReplace, which refuses a file that is no
// longer the one opened and read. A replace rewrites each file (device and
// inode) once: a later line that leads to a file rewritten by this run, the
// same through a link or a second hard link, is passed over with a note; a
// find searches every line.
//
// What the sink (core/runsink.h) hears, in order: runbegins(works), and
// for an empty find text nothing more. Otherwise the head log lines are
// written, and for each file filebegins (once the file is opened, or has
// failed to be), its hits in batches with a carryon() behind each, scanned()
// and carryon(), then filedone (the rewritten line, a failure of its read,
// length check or commit; rewrite.h). A replace notes a name that leads to a
// file it rewrote already, and a file rewritten without what it could not
// keep. A log that can't be opened or written (runlog.h) is a runfailure,
// once, behind the file in hand; the run goes on without it. At the end
// runfinished with the summary. A cancel (carryon() answering false, or the
// answer Cancel) leaves the file in hand untouched and ends the run at once.
// The caller keeps sLastFind. A dry run (bDryRun) goes through a replace's
// steps, questions and restarts included, and writes no file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "engine/core/openbinary.h"
#include "engine/core/runsink.h"
#include "engine/files/files.h"

namespace brindlex {

struct RunRequest {
    std::string sFind;          // the find text as typed (Text2)
    std::string sReplaceText;   // the replace text as typed (Text3)
    bool bReplace = false;
    bool bDryRun = false;       // a replace that lists its hits and writes no file
    bool bMatchCase = false;    // chkCase
    bool bAsk = false;          // chkAsk
    bool bConvertHex = true;
    int nLogMode = 0;           // kLogFinds | kLogReplaces (runlog.h)
    std::filesystem::path sLogFile;   // the run log; empty: no log can be written
    std::filesystem::path sScratch;   // the work directory's scratch file; empty: none
    std::string baseDir;        // lblDir's caption, with its trailing "/"
    // The file list (List1), in its order; the caller keeps it alive for
    // the run.
    std::span<const FileEntry> files;
    std::vector<bool> selected;       // selection of the lines; none selected: all count
    // Files may be opened and scanned ahead on worker threads (ReadAhead);
    // the host sees the same events in the same order either way.
    bool bReadAhead = false;
    // The names come from a walk of this process moments ago, which saw
    // each as a regular file: they are opened without a look first
    // (openbinary's bSeenRegular).
    bool bWalkedNow = false;
    // The base directory as the walk opened it, when the names come from a
    // walk of this process; else the run opens baseDir itself once. Either
    // way each name is opened below it without following a link on its
    // way (openbelow.h), so a directory swapped for a link since the listing
    // is refused, never followed. An empty baseDir (names that are paths of
    // their own) opens each name as a path.
    std::shared_ptr<const FileHandle> baseDirFd {};
};

// What the run did. The hit list holds min(hits, kListLimit) lines.
struct RunResult {
    bool cancelled = false;
    std::int64_t hits = 0;            // all hits of the run
    std::int64_t filesWithHits = 0;
    std::int64_t filesRewritten = 0;
    bool failures = false;            // a file could not be opened, read, checked or rewritten,
                                      // or the log could not be written
};

// The longest pattern found wherever it lies; a longer one only where it
// fits one 1000-byte block of the scan.
inline constexpr std::size_t kLongestEverywhere = 201;

// The hit list holds at most this many lines.
inline constexpr std::int64_t kListLimit = 1000;

RunResult findinfiles(const RunRequest& request, RunSink& sink);

}  // namespace brindlex
