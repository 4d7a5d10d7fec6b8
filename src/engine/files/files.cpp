#include "engine/files/files.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

#include "engine/pattern/stringtools.h"

namespace brindlex {

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
    path = trimblanks(path);
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
    std::string line(relname);
    line += '\t';
    line += zeropadded(size, 8);
    if (rewritten)
        line += '*';
    return line;
}

namespace {

// The part of an entry's line behind its name: tab, size digits, "*".
struct LineTail {
    explicit LineTail(const FileEntry& e)
    {
        const std::string t = list1line(std::string_view(), e.size, e.rewritten);
        size = t.size();
        std::memcpy(bytes, t.data(), size);
    }
    char bytes[32] = {};
    std::size_t size = 0;
};

// Byte i of an entry's line, as unsigned; i below the line's length.
inline unsigned char lineat(const FileEntry& e, const LineTail& tail, std::size_t i)
{
    return static_cast<unsigned char>(i < e.name.size() ? e.name[i] : tail.bytes[i - e.name.size()]);
}

bool lineless(const FileEntry& a, const FileEntry& b)
{
    const std::size_t common = std::min(a.name.size(), b.name.size());
    if (const int c = std::string_view(a.name).substr(0, common).compare(std::string_view(b.name).substr(0, common)))
        return c < 0;
    const LineTail ta(a), tb(b);
    const std::size_t la = a.name.size() + ta.size, lb = b.name.size() + tb.size;
    for (std::size_t i = common; i < std::min(la, lb); ++i) {
        const unsigned char x = lineat(a, ta, i), y = lineat(b, tb, i);
        if (x != y)
            return x < y;
    }
    return la < lb;
}

// The first eight bytes of an entry's line as a big-endian number: integer
// order is then byte order.
std::uint64_t linekey(const FileEntry& e)
{
    std::uint64_t key = 0;
    std::size_t k = 0;
    for (; k < 8 && k < e.name.size(); ++k)
        key = key << 8 | static_cast<unsigned char>(e.name[k]);
    if (k < 8) {
        const LineTail tail(e);
        for (std::size_t t = 0; k < 8; ++k, ++t)
            key = key << 8 | (t < tail.size ? static_cast<unsigned char>(tail.bytes[t]) : 0);
    }
    return key;
}

}  // namespace

void sortlist1(std::vector<FileEntry>& entries)
{
    struct Keyed {
        std::uint64_t key;
        std::size_t index;
    };
    std::vector<Keyed> order(entries.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = {linekey(entries[i]), i};
    std::stable_sort(order.begin(), order.end(), [&](const Keyed& a, const Keyed& b) {
        return a.key != b.key ? a.key < b.key : lineless(entries[a.index], entries[b.index]);
    });
    std::vector<FileEntry> sorted;
    sorted.reserve(entries.size());
    for (const Keyed& k : order)
        sorted.push_back(std::move(entries[k.index]));
    entries = std::move(sorted);
}

namespace {

// Two digits a step: a run with millions of hits writes millions of lines.
constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The two digits of v % 100 at `out`.
inline void putpair(char* out, std::uint64_t v)
{
    std::memcpy(out, kPairs + 2 * (v % 100), 2);
}

}  // namespace

char* putlist2tail(char* out, std::int64_t lPos)
{
    auto v = static_cast<std::uint64_t>(lPos < 0 ? -lPos : lPos);
    if (v < 1000000000) [[likely]] {
        // Positions in a file under 1 GB: always tab and nine digits, each
        // at a place of its own, with no copy of varying length. The digits
        // come from v / 10^8 as a fraction with 57 bits behind the point,
        // two at a time by multiplying by 100: no division. (Exact for every
        // v below 10^9: the error of the rounded-up factor stays under one
        // unit of the last place.)
        constexpr std::uint64_t kFraction = (std::uint64_t {1} << 57) - 1;
        std::uint64_t t = v * 1441151881u;   // 2^57 / 10^8, rounded up
        out[0] = '\t';
        out[1] = static_cast<char>('0' + (t >> 57));
        for (int at = 2; at < 10; at += 2) {
            t = (t & kFraction) * 100;
            std::memcpy(out + at, kPairs + 2 * (t >> 57), 2);
        }
        return out + 10;
    }
    char digits[kList2Tail];
    char* const end = digits + sizeof digits;
    char* p = end;
    while (v >= 100) {
        p -= 2;
        putpair(p, v);
        v /= 100;
    }
    if (v >= 10) {
        p -= 2;
        putpair(p, v);
    } else {
        *--p = static_cast<char>('0' + v);
    }
    *--p = '\t';
    std::memcpy(out, p, static_cast<std::size_t>(end - p));
    return out + (end - p);
}

std::string list2line(std::string_view sName, std::int64_t lPos)
{
    char tail[kList2Tail];
    std::string line(sName);
    line.append(tail, static_cast<std::size_t>(putlist2tail(tail, lPos) - tail));
    return line;
}

}  // namespace brindlex
