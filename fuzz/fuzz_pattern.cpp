// The pattern notation on arbitrary text: no decoder may crash, hang or grow
// its input; bytes rendered as cells, alone or as viewer rows, must decode
// back to themselves; replaceall must agree with its literal definition.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "engine/pattern/notation.h"
#include "engine/pattern/stringtools.h"

namespace {

using namespace brindlex;

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// A decoder either shortens the text or hands it back: tokens only lose
// separators and escapes only shrink.
void decodersdonotgrow(const std::string& text)
{
    check(decodepattern(text, true).size() <= text.size());
    check(decodepattern(text, false).size() <= text.size());
    check(decodeangle(text).size() <= text.size());
    check(decodepage(text).size() <= text.size());
}

void roundtrip(const std::string& bytes, int width, bool showtext)
{
    const std::string cells = encodebytes(bytes, width, showtext);
    check(cells.size() == bytes.size() * 5 + bytes.size() / static_cast<std::size_t>(width) * 2);
    check(decodeangle(cells) == bytes);

    std::string page;
    for (std::size_t at = 0; at < bytes.size(); at += static_cast<std::size_t>(width)) {
        const std::string row = bytes.substr(at, static_cast<std::size_t>(width));
        page += std::to_string(at) + ": " + encodebytes(row, static_cast<int>(row.size()), showtext);
    }
    check(decodepage(page) == bytes);
}

void referencereplace(std::string& text, const std::string& target, const std::string& replacement)
{
    for (std::size_t i = text.find(target); i != std::string::npos; i = text.find(target))
        text = text.substr(0, i) + replacement + text.substr(i + target.size());
}

// Only a replacement shorter than its target, where the literal definition
// surely ends.
void replacelikethedefinition(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return;
    const std::size_t t = 1 + (data[0] & 3);
    const std::size_t r = (data[0] >> 2) & 3;
    if (r >= t || size < 1 + t + r || size > 300)
        return;
    const char* p = reinterpret_cast<const char*>(data) + 1;
    const std::string target(p, t);
    const std::string replacement(p + t, r);
    if (replacement.find(target) != std::string::npos)
        return;
    std::string text(p + t + r, size - 1 - t - r);
    std::string expected = text;
    referencereplace(expected, target, replacement);
    replaceall(text, target, replacement);
    check(text == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    decodersdonotgrow(text);
    const int width = size > 0 ? 1 + data[0] % 200 : 16;
    const bool showtext = size > 0 && (data[size - 1] & 1) != 0;
    roundtrip(text, width, showtext);
    replacelikethedefinition(data, size);
    return 0;
}
