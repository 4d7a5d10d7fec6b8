#include "engine/batch/runsetup.h"

#include <system_error>

#include "engine/core/workdir.h"

namespace brindlex {
namespace {

// Takes the walk's entries and hands the rest to the front end's sink.
class Gatherer final : public WalkSink {
public:
    Gatherer(WalkSink& sink, std::vector<FileEntry>& entries) : sink_(sink), entries_(entries) {}
    void entry(const std::string& name, std::int64_t size) override { entries_.push_back(FileEntry{name, size, false}); }
    void unreadable(const std::string& path, int code) override { sink_.unreadable(path, code); }
    bool wantsizes() const override { return sink_.wantsizes(); }
    void level(bool begins) override { sink_.level(begins); }
    bool carryon() override { return sink_.carryon(); }
    bool parallelwalk() const override { return sink_.parallelwalk(); }

private:
    WalkSink& sink_;
    std::vector<FileEntry>& entries_;
};

}  // namespace

MaskPlace placemask(const std::string& typed)
{
    std::error_code ec;
    const std::filesystem::path cwd = std::filesystem::current_path(ec);
    MaskPlace place;
    place.mask = expandmask(typed, cwd);
    place.baseDir = basedirfor(place.mask);
    return place;
}

std::shared_ptr<const FileHandle> listmask(const MaskPlace& place, bool bIncludeSubs, WalkSink& sink,
                                           std::vector<FileEntry>& entries)
{
    Gatherer gatherer(sink, entries);
    FileHandle base;
    listfiles(place.mask, bIncludeSubs, place.baseDir, gatherer, &base);
    sortlist1(entries);
    return std::make_shared<const FileHandle>(std::move(base));
}

RunPaths runpaths(bool bWorkDir, const std::optional<std::filesystem::path>& log)
{
    RunPaths paths;
    const std::optional<std::filesystem::path> workdir = bWorkDir ? preparedworkdir() : std::nullopt;
    if (log)
        paths.sLogFile = *log;
    else if (workdir)
        paths.sLogFile = logfilepath();
    if (workdir)
        paths.sScratch = scratchfilepath();
    return paths;
}

}  // namespace brindlex
