// Runs brindlex-cli for the command tests, without a shell: the arguments go
// to execv as they are, so no character of a name is ever interpreted.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace brindlex::clitest {

struct CliResult {
    int exitstatus = -1;  // -1 when a signal ended it
    int termsignal = 0;
    std::string out, err;
    std::string failure;  // what could not be set up, empty when it ran

    bool exited(int status) const { return failure.empty() && termsignal == 0 && exitstatus == status; }
};

// Starts the CLI in `cwd` with stdin `input`, stdout and stderr in work/cli.out
// and work/cli.err and BRINDLEX_TEMP at `work` (made when missing); callers
// kill it or watch it.
pid_t startcli(const std::vector<std::string>& args, const std::filesystem::path& cwd,
               const std::filesystem::path& work, int input);

// Runs the CLI to its end with `input` on stdin. With `interrupt`, SIGINT
// comes while the CLI still waits for its stdin, once it has taken the
// signal as Cancel.
CliResult runcli(const std::vector<std::string>& args, const std::filesystem::path& cwd,
                 const std::filesystem::path& work, const std::string& input = "", bool interrupt = false);

// Runs the CLI to its end as startcli does, with no input, and gives its peak
// memory in KiB, read while it runs (a child's rusage counts its parent's).
CliResult runclipeak(const std::vector<std::string>& args, const std::filesystem::path& dir,
                     unsigned long long& peakKiB);

// Memory stays bounded whatever a file's size; the sanitizers carry their own.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr unsigned long long kMaxRssKiB = 96 * 1024;
#else
inline constexpr unsigned long long kMaxRssKiB = 32 * 1024;
#endif

// Kills runs at random moments spread over the time of a whole run, which
// the first run, left to its end, measures.
class KillClock {
public:
    explicit KillClock(std::uint64_t seed) : rng_(seed) {}
    // Waits for the CLI started as `pid` and gives its wait status; unless
    // `measure`, kills it by `sig` first, at a random moment.
    int end(pid_t pid, bool measure, int sig);

private:
    std::mt19937_64 rng_;
    std::chrono::steady_clock::duration full_ {};
};

}  // namespace brindlex::clitest
