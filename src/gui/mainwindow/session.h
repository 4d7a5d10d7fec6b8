// The main window's state, out of its widgets: the file list with each
// file's real name, size and rewritten mark, the hits of the last run, the
// options of a run and the work and log paths. List1 and List2 are views of
// it (listmodel.h); a run takes its files and options from here, never from
// what a widget shows. Plain C++: a test or another front end can fill it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/batch/run.h"
#include "engine/files/files.h"

namespace brindlex::gui {

struct Session {
    std::string baseDir;                 // lblDir's caption, with its "/"
    std::vector<FileEntry> files;        // List1, in its order (sortlist1)
    std::vector<List2Hit> hits;          // List2: the first kListLimit hits

    std::string sFind, sReplace;         // Text2, Text3
    bool bIncludeSubs = false;           // chkIncludeSubs
    bool bMatchCase = false;             // chkCase
    bool bAsk = false;                   // chkAsk
    bool bConvertHex = true;             // mnuConvertHex
    int nLogMode = 0;                    // kLogFinds | kLogReplaces (runlog.h)
    std::filesystem::path sLogFile;      // empty when the work directory can't be used
    std::filesystem::path sScratch;      // likewise
    std::string sLastFind;               // the find text of the last run

    // A run of `sFind` over the files, narrowed to `selected` rows when any
    // is selected. The request refers to `files`, which must stay as they
    // are (but for the marks a run sets) until the run ends.
    RunRequest request(const std::string& find, bool bReplace, std::vector<bool> selected) const
    {
        RunRequest r;
        r.sFind = find;
        r.sReplaceText = sReplace;
        r.bReplace = bReplace;
        r.bMatchCase = bMatchCase;
        r.bAsk = bAsk;
        r.bConvertHex = bConvertHex;
        r.nLogMode = nLogMode;
        r.sLogFile = sLogFile;
        r.sScratch = sScratch;
        r.baseDir = baseDir;
        r.files = files;
        r.selected = std::move(selected);
        r.bReadAhead = true;
        return r;
    }
};

}  // namespace brindlex::gui
