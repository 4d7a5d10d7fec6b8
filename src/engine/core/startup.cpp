#include "engine/core/startup.h"

#include <algorithm>

#include "engine/core/inplace.h"
#include "engine/core/saferewrite.h"
#include "engine/core/workdir.h"

namespace brindlex {

std::vector<std::string> recoveratstart()
{
    std::vector<std::string> told;
    for (const std::string& line : {workdirnote(), finishinterruptedcopy(scratchfilepath())})
        if (!line.empty())
            told.push_back(line);
    const std::string undone = rollbackinplaceedits(workdirpath());
    for (std::size_t at = 0, end; at < undone.size(); at = end + 1) {
        end = std::min(undone.find('\n', at), undone.size());
        told.push_back(undone.substr(at, end - at));
    }
    return told;
}

}  // namespace brindlex
