#include "engine/core/filestamp.h"

#include <cerrno>
#include <string>

#include "engine/core/openbinary.h"

namespace brindlex {

FileStamp filestamp(const struct stat& st)
{
    return FileStamp{st.st_dev, st.st_ino, static_cast<std::int64_t>(st.st_size),
                     static_cast<std::int64_t>(st.st_mtim.tv_sec), static_cast<std::int64_t>(st.st_mtim.tv_nsec),
                     static_cast<std::int64_t>(st.st_ctim.tv_sec), static_cast<std::int64_t>(st.st_ctim.tv_nsec)};
}

Error filechanged(const std::filesystem::path& file, std::string_view when)
{
    return Error{ESTALE, "File changed by another program " + std::string(when), file};
}

Error checkstamp(const std::filesystem::path& file, const FileStamp& stamp, std::string_view when)
{
    struct stat st {};
    if (statlong(file, st) == 0 && filestamp(st) == stamp)
        return {};
    return filechanged(file, when);
}

}  // namespace brindlex
