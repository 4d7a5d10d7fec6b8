#include "engine/batch/runmessages.h"

#include "engine/core/rewrite.h"
#include "engine/core/openbinary.h"
#include "engine/core/state.h"

namespace brindlex {

RunMessage failuremessage(const Failure& failure)
{
    const std::string crlf(sCRLF);
    switch (failure.kind) {
    case FailureKind::Open: return {openerrormessage(failure.sFile, failure.reason), {}};
    case FailureKind::Read:
        return {"Error reading " + failure.sFile + ":" + crlf +
                    (failure.reason.code != 0 ? failure.reason.text : "The file became shorter while it was read"),
                {}};
    case FailureKind::Length:
    case FailureKind::Copy: {
        const bool length = failure.kind == FailureKind::Length;
        Rewrite rewrite;
        rewrite.failure = length ? RewriteFailure::Length : RewriteFailure::Copy;
        rewrite.reason = failure.reason;
        rewrite.copiedfrom = failure.copiedFrom;
        return {rewritemessage(rewrite, failure.sFile), length ? failure.reason : Error{}};
    }
    case FailureKind::Log: return {"Error writing log " + failure.sFile + ":" + crlf + failure.reason.text, {}};
    case FailureKind::None: break;
    }
    return {};
}

std::string questiontitle(const Question& question)
{
    return question.sFile + " byte " + std::to_string(question.lPos);
}

std::string notetext(const Note& note)
{
    if (note.kind == NoteKind::SameFile)
        return note.sFile + ": the same file as " + note.detail + ", rewritten once";
    return note.sFile + ": " + note.detail;
}

}  // namespace brindlex
