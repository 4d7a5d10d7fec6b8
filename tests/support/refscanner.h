// A literal model of the block scan, for checking the fast scanner: each
// step reads 1000 bytes at lPos, searches them (upper-cased when case is
// folded) and moves on by 800 without a hit; a replace streams what the
// steps pass. Slow and plain on purpose.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/core/runsink.h"

namespace brindlex::test {

struct RefScan {
    std::string sFile {};      // full path, for titles and log lines
    std::string sName {};      // name of the hit lines
    std::string sFind {};      // prepared: upper-cased unless bMatchCase; never empty
    std::string sReplace {};
    bool bMatchCase = true;
    bool bReplace = false;
    bool bAsk = false;
    int nLogMode = 0;
    std::vector<Answer> answers {};   // to the questions in turn; Yes behind the last
};

struct RefResult {
    // "hit NAME POS", "status N" and "question TITLE|TEXT" lines, in order.
    std::string events;
    std::string log;          // the log lines, CR LF and all
    std::string output;       // what a replace streamed out
    std::int64_t nHits = 0;
    std::int64_t lLenChange = 0;
    bool bCancel = false;
    bool bWriteFailed = false;   // the output refuses further writes
};

RefResult refscanfile(const std::string& content, const RefScan& scan);

// The event lines of the model, for a host that records the fast scanner.
inline std::string hitevent(const std::string& sName, std::int64_t lPos) { return "hit " + sName + " " + std::to_string(lPos) + "\n"; }
inline std::string statusevent(const std::string& caption) { return "status " + caption + "\n"; }
inline std::string questionevent(const std::string& title, const std::string& text) { return "question " + title + "|" + text + "\n"; }

}  // namespace brindlex::test
