#include "engine/core/error.h"

#include <cerrno>
#include <cstring>

namespace brindlex {

Error errorfromerrno(int code, const std::filesystem::path& path)
{
    return Error{code, code ? std::strerror(code) : std::string(), path};
}

Error notregular(const std::filesystem::path& path)
{
    return Error{EINVAL, "Not a regular file", path};
}

std::string reasontext(const Error& error)
{
    return error.path.empty() ? error.text : error.path.string() + ": " + error.text;
}

}  // namespace brindlex
