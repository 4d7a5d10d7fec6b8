// Where a directory walk (files/walk.cpp) tells what it finds: the window's
// host, the command line's, a test's. The walk shows nothing itself.
#pragma once

#include <cstdint>
#include <string>

namespace brindlex {

class WalkSink {
public:
    virtual ~WalkSink() = default;

    // A regular file (or a link to one): its real name relative to the base
    // directory, as bytes, and its size (0 when sizes aren't wanted). A
    // listing (batch/runsetup.h) gathers these itself.
    virtual void entry(const std::string& /*name*/, std::int64_t /*size*/) {}

    // The directory at `path` could not be opened (errno `code`): the
    // mask's own directory, or a subdirectory the walk passes over.
    virtual void unreadable(const std::string& /*path*/, int /*code*/) {}

    // Whether the entries need their true sizes; without, a regular file
    // is taken as its directory entry gives it, with no stat of its own.
    virtual bool wantsizes() const { return true; }

    // A directory's listing begins (true) or ends (false).
    virtual void level(bool /*begins*/) {}

    // Called before each file and each directory entry: lets events in,
    // and answers false when the user asked to stop, which ends the listing
    // of the directory in hand.
    virtual bool carryon() { return true; }

    // Whether the subdirectories of the first directory may be walked by
    // other threads beside the walk's own, what they find kept and told
    // here from the walk's thread in the order of a walk by one thread.
    // Only for a host whose carryon() answers false for good once it has,
    // and which need not be asked while the walk waits for those threads.
    virtual bool parallelwalk() const { return false; }
};

}  // namespace brindlex
