#include "engine/files/files.h"

#include <algorithm>
#include <cstdio>

#include <sys/stat.h>

namespace brindlex {

namespace {

std::string_view trimspaces(std::string_view s)
{
    while (!s.empty() && s.front() == ' ')
        s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ')
        s.remove_suffix(1);
    return s;
}

}  // namespace

std::string filepart(std::string_view path)
{
    std::size_t slash = path.rfind('/');
    std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    std::string out;
    out.reserve(name.size());
    for (char c : name)
        if (c != ' ')
            out += c;
    return out;
}

std::string dirpart(std::string_view path)
{
    path = trimspaces(path);
    std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

std::string expandmask(const std::string& text, const std::filesystem::path& cwd)
{
    std::string mask = text;
    if (mask.find('/') == std::string::npos)
        mask = cwd.string() + "/" + mask;

    std::filesystem::path probe(mask);
    if (probe.is_relative())
        probe = cwd / probe;
    struct stat st {};
    if (::stat(probe.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        mask += "/*.*";

    // Every run of slashes becomes one, the leading pair included.
    std::string clean;
    clean.reserve(mask.size());
    for (char c : mask)
        if (c != '/' || clean.empty() || clean.back() != '/')
            clean += c;
    return clean;
}

std::string basedirfor(const std::string& mask)
{
    return dirpart(mask) + "/";
}

bool wildcardmatch(std::string_view mask, std::string_view name)
{
    if (mask == "*.*")
        return true;
    // Greedy match that remembers only the last "*": on a mismatch the last
    // star takes one byte more. Each byte of the name is passed over at most
    // once per star position, so the work is bounded by the product of the
    // lengths and never grows exponentially.
    std::size_t m = 0, n = 0;
    std::size_t starMask = std::string_view::npos, starName = 0;
    while (n < name.size()) {
        if (m < mask.size() && mask[m] == '*') {
            starMask = m++;
            starName = n;
        } else if (m < mask.size() && (mask[m] == '?' || mask[m] == name[n])) {
            ++m;
            ++n;
        } else if (starMask != std::string_view::npos) {
            m = starMask + 1;
            n = ++starName;
        } else {
            return false;
        }
    }
    while (m < mask.size() && mask[m] == '*')
        ++m;
    return m == mask.size();
}

std::string list1line(std::string_view relname, std::int64_t size, bool rewritten)
{
    char digits[32];
    int len = std::snprintf(digits, sizeof digits, "%08lld", static_cast<long long>(size));
    std::string line;
    line.reserve(relname.size() + 2 + static_cast<std::size_t>(len));
    line.append(relname);
    line += '\t';
    line.append(digits, static_cast<std::size_t>(len));
    if (rewritten)
        line += '*';
    return line;
}

std::string firstfield(const std::string& line)
{
    // nexttoken at the tab: a name ahead of a tab is trimmed of spaces, a
    // line without a tab comes back whole.
    std::size_t tab = line.find('\t');
    if (tab == std::string::npos)
        return line;
    return std::string(trimspaces(std::string_view(line).substr(0, tab)));
}

void sortlist1(std::vector<std::string>& lines)
{
    // std::string compares through char_traits<char>, which orders bytes as
    // unsigned values: a byte above 127 sorts behind "z".
    std::sort(lines.begin(), lines.end());
}

}  // namespace brindlex
