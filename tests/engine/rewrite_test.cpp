// The check and commit that ends a batch rewrite and the viewer's save: each
// outcome with its reason, its message and what the file holds afterwards.
#include "engine/core/rewrite.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "engine/core/faultinject.h"
#include "engine/core/saferewrite.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

TEST(CommitRewrite, EachOutcomeWithItsReasonAndMessage)
{
    const struct {
        const char* what;
        std::int64_t lLenChange;
        faultinject::Plan plan;
        bool begins;
        std::string outcome;   // failure, length, "<dir>/" for the directory; then the message
        std::string after;
    } rows[] = {
        {"in place", 1, {}, true, "0 4 |", "xbcx"},
        {"a change the edits don't account for", 0, {}, true,
         "1 -1 f: File changed by another program since it was read|Cannot replace! ERROR in file lengths for <dir>/f",
         "xax"},
        {"a full disk", 1, {.alwaysStep = "write", .alwaysCode = ENOSPC}, true,
         "1 -1 f: " + std::string(std::strerror(ENOSPC)) + "|Cannot replace! ERROR in file lengths for <dir>/f", "xax"},
        {"a SafeReplace that could not begin", 1, {}, false,
         "1 -1 scratch: in use|Cannot replace! ERROR in file lengths for <dir>/f", "xax"},
        // The usual route copies from the new file beside the user's, by the
        // hidden name it had when the swap failed.
        {"the swap fails", 1, {.alwaysStep = "rename", .alwaysCode = EIO}, true,
         "2 3 f: " + std::string(std::strerror(EIO)) + "|" + std::strerror(EIO) + " copying <dir>/.f", "xax"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        const std::string f = dir.write("f", "xax").string();
        faultinject::arm(row.plan);
        Error begun{EBUSY, "in use", "scratch"};
        std::unique_ptr<SafeReplace> replace = row.begins ? SafeReplace::begin(f, dir.path() / "scratch", begun) : nullptr;
        if (replace)
            replace->write("xbcx");
        const Rewrite r = commitrewrite(replace.get(), begun, f, row.lLenChange);
        faultinject::disarm();
        std::string message = dir.shown(rewritemessage(r, f));
        // A hidden name ends in a unique tag: only its head is compared.
        if (const std::size_t at = message.find("/.f."); at != std::string::npos)
            message.resize(at + 3);
        const std::string reason = r.reason ? r.reason.path.filename().string() + ": " + r.reason.text : "";
        EXPECT_EQ(std::to_string(static_cast<int>(r.failure)) + " " + std::to_string(r.lLength) + " " + reason + "|" + message,
                  row.outcome);
        EXPECT_EQ(test::readfile(f), row.after);
    }
}

}  // namespace
}  // namespace brindlex
