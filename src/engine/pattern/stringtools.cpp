#include "engine/pattern/stringtools.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace brindlex {
namespace {

constexpr char kPlaceholder = '\x1f';

bool endswith(const std::string& s, std::string_view tail)
{
    return s.size() >= tail.size() && s.back() == tail.back()
        && std::string_view(s).substr(s.size() - tail.size()) == tail;
}

// Replacing the leftmost occurrence and searching again from the start is the
// same as streaming the text into `out` and replacing whenever `out` comes to
// end in `target`: the occurrence that ends first is the leftmost one, since
// all have one length, and `out` never holds a whole occurrence. The
// replacement goes back in front of the unread input, as it may form a new
// occurrence with what stands on either side of it. Cost is linear as long as
// replacements do not chain; long runs of unread input are searched at once.
void replacerepeated(std::string& text, std::string_view target, std::string_view replacement)
{
    if (text.find(target) == std::string::npos)
        return;
    const std::size_t m = target.size();
    const std::string input = std::move(text);
    std::string_view in = input;
    std::string out;
    out.reserve(in.size());
    std::string pending;  // bytes to be read before `in`, last one first

    auto replaceattail = [&] {
        out.resize(out.size() - m);
        pending.append(replacement.rbegin(), replacement.rend());
    };

    for (;;) {
        if (!pending.empty()) {
            out.push_back(pending.back());
            pending.pop_back();
            if (endswith(out, target))
                replaceattail();
            continue;
        }
        // An occurrence that begins in `out` and ends in `in` ends ahead of
        // any that lies in `in` alone, so it is looked for first.
        const std::size_t kept = out.size() < m - 1 ? out.size() : m - 1;
        std::string seam = out.substr(out.size() - kept);
        seam.append(in.substr(0, m - 1));
        std::size_t take;
        if (const std::size_t k = seam.find(target); k != std::string::npos) {
            take = k + m - kept;
        } else if (const std::size_t q = in.find(target); q != std::string_view::npos) {
            take = q + m;
        } else {
            out.append(in);
            break;
        }
        out.append(in.substr(0, take));
        in.remove_prefix(take);
        replaceattail();
    }
    text = std::move(out);
}

}  // namespace

std::string_view trimblanks(std::string_view s, std::string_view blanks)
{
    const std::size_t first = s.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

std::int64_t leadingnumber(std::string_view text)
{
    constexpr std::int64_t kCeiling = 1'000'000'000'000'000'000;
    text = text.substr(std::min(text.size(), text.find_first_not_of(" \t")));
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    std::int64_t n = 0;
    for (std::size_t i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
        n = n < kCeiling / 10 ? std::min(n * 10 + (text[i] - '0'), kCeiling) : kCeiling;
    return negative ? -n : n;
}

int parsestringforinteger(std::string& s, const std::string& ch)
{
    const std::int64_t value = std::clamp<std::int64_t>(leadingnumber(s), -32768, 32767);
    const std::size_t cut = s.find(ch);
    if (cut == std::string::npos)
        s.clear();
    else
        s.erase(0, cut + ch.size());
    return static_cast<int>(value);
}

std::string zeropadded(std::int64_t n, int width)
{
    std::string digits = std::to_string(n);
    if (digits.size() < static_cast<std::size_t>(width))
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), '0');
    return digits;
}

std::string nexttoken(std::string& source, const std::string& delimiter)
{
    const std::size_t at = delimiter.empty() ? std::string::npos : source.find(delimiter);
    if (at == std::string::npos) {
        std::string token = std::move(source);
        source.clear();
        return token;
    }
    const std::string_view all = source;
    std::string token(trimblanks(all.substr(0, at)));
    source = std::string(trimblanks(all.substr(at + delimiter.size())));
    return token;
}

void replaceall(std::string& text, const std::string& target, const std::string& replacement)
{
    if (target.empty())
        return;
    if (replacement.find(target) == std::string::npos) {
        replacerepeated(text, target, replacement);
        return;
    }
    // Two steps, so that the replacement never meets the target again. A
    // target that is the place-holder itself is already in place, and the
    // second step is one pass, which is all a repeated search could give
    // without running forever.
    if (target != std::string_view(&kPlaceholder, 1))
        replacerepeated(text, target, std::string_view(&kPlaceholder, 1));
    if (text.find(kPlaceholder) == std::string::npos)
        return;
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c == kPlaceholder)
            out += replacement;
        else
            out += c;
    }
    text = std::move(out);
}

}  // namespace brindlex
