// How a walk or a run talks to whoever started it: the window, the command
// line or a test. The engine never shows anything itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "engine/core/error.h"
#include "engine/core/walksink.h"
#include "engine/files/files.h"

namespace brindlex {

enum class Answer { Yes, No, Cancel };

// A host answers a walk as its sink: a level's start and end switch the
// controls (and clear the cancel flag), carryon() yields and answers the
// flag, an entry goes to addentry().
class Host : public WalkSink {
public:
    virtual ~Host() = default;

    // The user's request to stop the work in hand. Raised by the host (the
    // Cancel button, Esc, SIGINT) or by the answer Cancel; cleared only when
    // the controls go off at the start of a walk or run.
    bool bCancel = false;

    void enablecontrols(bool bOn)
    {
        if (!bOn)
            bCancel = false;
        showcontrols(bOn);
    }

    // Switches the window's controls for a walk or run (off) and back (on).
    virtual void showcontrols(bool /*bOn*/) {}

    // Lets events in; the host may raise bCancel. The engine calls it at
    // every point where the user may cancel and at least every few
    // milliseconds of a long scan; the host decides how often to really yield.
    virtual void yield() {}

    void entry(const std::string& name, std::int64_t size) final { addentry(name, size); }
    void level(bool begins) final { enablecontrols(!begins); }
    bool carryon() final
    {
        yield();
        return !bCancel;
    }

    // The walk adds a line to the file list.
    virtual void addline(const std::string& /*line*/) {}

    // The walk found a file: its real name relative to the base directory,
    // as bytes, and its size. The list shows list1line(name, size); a host
    // that keeps the name beside the line, to find the file again by it,
    // overrides this.
    virtual void addentry(const std::string& name, std::int64_t size) { addline(list1line(name, size)); }


    // The run clears the hit list at its start.
    virtual void clearhits() {}

    // The run's status line as a text: "none found", a file's path or
    // "more than 1000" (counts come through hitcount).
    virtual void status(const std::string& /*caption*/) {}

    // A count as the status line: the hit count of the file in hand after
    // every return of the scan, and at the end the lines of the hit list.
    // The same as status() with the number in digits.
    // A host that doesn't show it, or shows it only now and then, overrides
    // this so that a run with millions of hits formats no number per hit.
    virtual void hitcount(std::int64_t nHits) { status(std::to_string(nHits)); }

    // A hit: the file's name relative to the base directory and the hit's
    // 1-based position in the file as it was before replacing. Called for
    // every hit; the window keeps the first 1000.
    virtual void hit(const std::string& /*sName*/, std::int64_t /*lPos*/) {}

    // Hits of one file in bulk: `count` positions in the order of the scan,
    // `nHitsBefore` hits of the file having come before them. By default
    // each gets what a single hit gets (hit, hitcount, yield) and the batch
    // stops at a cancel. Returns how many of them were taken: all, or up to
    // the one at whose yield bCancel came up. A host that lists millions of
    // hits overrides this to do its per-hit work in one tight loop.
    virtual std::size_t hits(const std::string& sName, const std::int64_t* lPos, std::size_t count,
                             std::int64_t nHitsBefore)
    {
        for (std::size_t k = 0; k < count; ++k) {
            hit(sName, lPos[k]);
            hitcount(nHitsBefore + static_cast<std::int64_t>(k) + 1);
            yield();
            if (bCancel)
                return k + 1;
        }
        return count;
    }

    // The question at a hit of a replace with asking on: a Yes/No/Cancel box
    // with a question mark icon.
    virtual Answer question(const std::string& /*title*/, const std::string& /*text*/) { return Answer::Yes; }

    // A remark that stops nothing and needs no answer: the command line
    // prints it, the window shows nothing.
    virtual void note(const std::string& /*text*/) {}

    // A message for the user (an OK box titled "brindlex"), with the reason
    // of the failure it reports when the text doesn't hold it already
    // (code 0: none). The window shows the reason as the box's detailed
    // text; the command line prints it as a line "brindlex-cli: FILE: TEXT".
    virtual void message(const std::string& /*text*/, const Error& /*reason*/) {}
    void message(const std::string& text) { message(text, Error{}); }

    // How far a run is, for a host that shows it: once for each file of the
    // list as the run takes it in hand (bBegins, lDone 0, lLen its length,
    // or 0 when it can't be opened), and about once a megabyte of a long
    // scan (lDone bytes of the file's lLen read). Rare, so it costs nothing
    // against the scan.
    virtual void progress(bool /*bBegins*/, std::int64_t /*lDone*/, std::int64_t /*lLen*/) {}

    // Line `index` of the file list was rewritten by a run: its new entry
    // (the size after the rewrite, marked rewritten).
    virtual void lineupdated(std::size_t /*index*/, const FileEntry& /*entry*/) {}
};

}  // namespace brindlex
