#include "engine/viewer/detect.h"

#include <string>

#include "engine/core/openbinary.h"
#include "engine/viewer/page.h"

namespace brindlex {
namespace {

struct Head {
    bool opened = false;
    bool binary = false;
    std::int64_t length = 0;
};

Head readhead(const std::filesystem::path& sFile)
{
    Head head;
    OpenedFile file;
    if (openbinary(sFile, file))
        return head;
    head.opened = true;
    head.length = file.size();
    std::string bytes;
    readblock(file.fd.get(), 0, kBinaryTestBytes, bytes);
    head.binary = bytes.find('\0') != std::string::npos;
    return head;
}

}  // namespace

bool isbinaryfile(const std::filesystem::path& sFile)
{
    return readhead(sFile).binary;
}

int autodetectmode(bool binary, std::int64_t fileLength, AutoDetectAt where)
{
    if (binary)
        return kModeBinaryText;
    if (where == AutoDetectAt::ComboClick && fileLength > kAutoDetectLimit)
        return kModeFullText;
    return kModePureText;
}

int autodetect(const std::filesystem::path& sFile, AutoDetectAt where)
{
    const Head head = readhead(sFile);
    return autodetectmode(head.binary, head.length, where);
}

}  // namespace brindlex
