// What the commands that run batches (find, replace, sets) share: their
// options, the host that prints hits and messages and asks on the terminal,
// and the setting up of a run from a mask or a list of files.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/batch/run.h"
#include "engine/core/runsink.h"
#include "engine/core/walksink.h"
#include "cli/hitlines.h"
#include "cli/interrupt.h"
#include "cli/progress.h"

namespace brindlex::cli {

// The option lines of every run command's help, and its exit statuses.
extern const char* const kRunOptionsHelp;
extern const char* const kRunExitHelp;

struct RunOptions {
    bool bIncludeSubs = false;
    bool bMatchCase = false;
    bool bAsk = false;
    bool bConvertHex = true;
    bool bProgress = true;
    bool bDryRun = false;   // replace only
    int nLogMode = 0;
    std::optional<std::string> log;
    std::optional<std::string> filesFrom;
    bool filesNul = false;    // --files0-from: the list's names end with NUL
    bool nullAfterName = false;   // -0: NUL between name and position
    std::vector<std::string> operands;
};

// Parses the run options of command `name`; the rest are operands (all
// behind "--"). An empty answer means "stop here with `status`": --help
// (which prints `help`) or a usage error (already reported).
std::optional<RunOptions> parserunoptions(const std::vector<std::string>& args, const std::string& name,
                                          const std::string& help, int& status);

// Prints every hit as the window's hit list line (real name, tab, position
// of 9 digits or more; with -0 a NUL instead of the tab), messages one a
// line on stderr, each with its reason on a line "brindlex-cli: FILE: TEXT"
// behind it, notes and directories it could not open as such lines too, and
// asks at a hit on the terminal. A SIGINT is its Cancel: carryon() answers
// false from then on.
class CliHost : public RunSink, public WalkSink {
public:
    CliHost();
    ~CliHost() override;
    CliHost(const CliHost&) = delete;
    CliHost& operator=(const CliHost&) = delete;

    // Opens /dev/tty for the questions of --ask; false with errno set.
    bool openterminal();

    // The walk's side.
    void entry(const std::string& name, std::int64_t size) override;
    void unreadable(const std::string& path, int code) override;
    // The command line never shows a List1 size.
    bool wantsizes() const override { return false; }
    void level(bool begins) override { showcontrols(!begins); }
    // A SIGINT stops the walk for good.
    bool carryon() override;
    bool parallelwalk() const override { return true; }

    // The run's side.
    void runbegins(bool works) override;
    void filebegins(const FileBegins& file) override;
    // The lines of a batch one behind the other.
    std::size_t hits(const HitBatch& batch) override;
    Answer question(const Question& q) override;
    void filedone(const FileDone& file) override;
    void progress(std::int64_t lDone, std::int64_t lLen) override;
    void note(const Note& note) override;
    void runfailure(const Failure& failure) override;
    void runfinished(const RunSummary& summary) override;

    // A line "brindlex-cli: TEXT" on stderr.
    void note(const std::string& text);
    // What could not be searched, told as "brindlex-cli: PATH: REASON": trouble.
    void notsearched(const Error& why);

    std::vector<FileEntry> entries;   // what the walk found; the run's file list
    bool trouble = false;   // something could not be searched
    // The progress line; on when preparerun finds it wanted and stderr a terminal.
    ProgressMeter meter{false};
    std::size_t nFiles = 0;   // of the list each run goes over
    // A dry run: the names of the files that had hits, in the run's order.
    bool bDryRun = false;
    std::vector<std::string> wouldRewrite;

private:
    void showcontrols(bool bOn);
    void message(const std::string& text, const Error& reason);
    // Hit lines go to stdout in large pieces; all of them before any
    // message or question, and when the run ends (the controls come on).
    void flushhits();

    int tty_ = -1;

public:
    HitLines lines;   // declared last: its thread goes first
};

// Fills `request` from the options and the work directory (flags, log,
// scratch file), opens the terminal for --ask in a replace, makes SIGINT the
// Cancel, and lists the files with their real names: from --files-from or
// --files0-from, else by walking `mask`, sorted as the window's file list.
// A mask that leads nowhere (its directory, or the one file it names
// without a wildcard, doesn't exist) is told on stderr and is trouble.
// Returns 0, or the status of a usage error.
int preparerun(const RunOptions& o, bool bReplace, const std::string& mask, const std::string& name,
               CliHost& host, RunRequest& request);

// Block-buffers stdout for the hit lines of the runs that follow.
void bufferstdout();

// "12 hits in 3 of 40 files, 3 files rewritten" and LF, on stderr; "1 hit",
// "1 file", and ", interrupted" at the end after a SIGINT. A find's summary
// (`rewrites` false) ends behind the files: "12 hits in 3 of 40 files".
void printsummary(const RunResult& result, std::size_t files, const std::string& prefix = {}, bool rewrites = true);

// Flushes stdout; a failed write is told on stderr (once) and gives false.
bool flushstdout();

// The exit status of one or more runs: 130 interrupted, 2 a failure, a
// failed stdout or what the host could not search, 0 any hit, else 1.
int exitstatus(const CliHost& host, bool cancelled, bool failures, bool wrote, bool hits);

}  // namespace brindlex::cli
