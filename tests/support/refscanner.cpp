#include "refscanner.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "engine/batch/runlog.h"
#include "engine/pattern/notation.h"

namespace brindlex::test {
namespace {

const std::string sCRLF = "\r\n";

std::string reflogline(const std::string& sLabel, const std::string& sFile, std::int64_t lPos, const std::string& sText)
{
    std::string line = sLabel + " ";
    if (lPos >= 0) {
        char pos[32];
        std::snprintf(pos, sizeof pos, "%07lld", static_cast<long long>(lPos));
        line += sFile + " " + pos + ": ";
    }
    return line + encodebytes(sText.substr(0, 50), 100, true) + sCRLF;
}

struct Model {
    const std::string& content;
    const RefScan& scan;
    RefResult& r;
    std::size_t nextAnswer = 0;

    // To the next hit or the file's end. lPos in and out: 0 at the start and
    // the end, p after a find's hit (restart p + 1), -p after a replace's
    // (restart p + the pattern's length).
    void findnext(std::int64_t& lPos)
    {
        const std::string& sFind = scan.sFind;
        const auto nFindLen = static_cast<std::int64_t>(sFind.size());
        lPos = lPos < 0 ? nFindLen - lPos : lPos + 1;
        const auto lLen = static_cast<std::int64_t>(content.size());
        while (lPos <= lLen) {
            const std::string sBuf = content.substr(static_cast<std::size_t>(lPos - 1), 1000);
            std::string searched = sBuf;
            if (!scan.bMatchCase)
                uppercase(searched);
            const std::size_t at = searched.find(sFind);
            const std::int64_t nAt = at == std::string::npos ? 0 : static_cast<std::int64_t>(at) + 1;
            std::string sBefore;
            if (nAt != 0) {
                ++r.nHits;
                sBefore = sBuf.substr(0, at);
                if (scan.nLogMode & kLogFinds)
                    r.log += reflogline("found   ", scan.sFile, lPos + nAt - 1, sBuf.substr(at));
            } else if (lPos + 800 < lLen) {
                sBefore = sBuf.substr(0, 800);
            } else {
                sBefore = content.substr(static_cast<std::size_t>(lPos - 1));
            }
            lPos += static_cast<std::int64_t>(sBefore.size());
            if (scan.bReplace)
                r.output += sBefore;
            if (nAt == 0)
                continue;
            if (!scan.bReplace)
                return;

            const std::string sMatch = sBuf.substr(at, sFind.size());
            const std::string sAfter = sBuf.substr(std::min(sBuf.size(), at + sFind.size()));
            Answer answer = Answer::Yes;
            if (scan.bAsk) {
                const std::string title = scan.sFile + " byte " + std::to_string(lPos);
                const std::string last50 = sBefore.size() > 50 ? sBefore.substr(sBefore.size() - 50) : sBefore;
                r.events += questionevent(title, "Replace " + sCRLF + last50 + sCRLF + sCRLF + sFind + "? " +
                                                     sAfter.substr(0, 20));
                if (nextAnswer < scan.answers.size())
                    answer = scan.answers[nextAnswer++];
                if (answer == Answer::Cancel) {
                    r.bCancel = true;
                    return;
                }
            }
            const std::string& text = answer == Answer::No ? sMatch : scan.sReplace;
            r.output += text;
            if ((scan.nLogMode & kLogReplaces) && answer != Answer::No && scan.sReplace != sFind)
                r.log += reflogline("replaced", scan.sFile, lPos, scan.sReplace + sAfter);
            r.lLenChange += static_cast<std::int64_t>(text.size()) - nFindLen;
            lPos = -lPos;
            return;
        }
        lPos = 0;
    }
};

}  // namespace

RefResult refscanfile(const std::string& content, const RefScan& scan)
{
    RefResult r;
    Model m {content, scan, r};
    std::int64_t lPos = 0;
    do {
        m.findnext(lPos);
        if (lPos != 0)
            r.events += hitevent(scan.sName, std::abs(lPos));
        r.events += statusevent(std::to_string(r.nHits));
    } while (lPos != 0 && !r.bCancel);
    return r;
}

}  // namespace brindlex::test
