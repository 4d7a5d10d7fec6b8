#include "engine/replacements/profile.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include "engine/core/saferewrite.h"
#include "engine/core/workdir.h"
#include "engine/pattern/notation.h"
#include "engine/pattern/stringtools.h"

namespace brindlex {
namespace {

struct Line {
    std::string text;   // without its line end
    std::string end;    // "\r\n", "\n", or "" for a last line without one
};

enum class LineKind { Other, Section, Comment, Key };

struct Parsed {
    LineKind kind = LineKind::Other;
    std::string name;    // of the section or the key
    std::string value;   // of a key
};

std::string trimmed(std::string_view s)
{
    return std::string(trimblanks(s, " \t"));
}

bool sameletters(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (uppercasebyte(static_cast<unsigned char>(a[i])) != uppercasebyte(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

Parsed parse(const std::string& text)
{
    Parsed p;
    std::string t = trimmed(text);
    std::size_t eq = t.find('=');
    if (t.size() >= 2 && t.front() == '[' && t.back() == ']' && eq == std::string::npos) {
        p.kind = LineKind::Section;
        p.name = trimmed(std::string_view(t).substr(1, t.size() - 2));
    } else if (!t.empty() && t.front() == ';') {
        p.kind = LineKind::Comment;
    } else if (eq != std::string::npos && eq > 0) {
        p.kind = LineKind::Key;
        p.name = trimmed(std::string_view(t).substr(0, eq));
        p.value = trimmed(std::string_view(t).substr(eq + 1));
    }
    return p;
}

std::vector<Line> splitlines(std::string_view bytes)
{
    std::vector<Line> lines;
    std::size_t start = 0;
    while (start < bytes.size()) {
        std::size_t lf = bytes.find('\n', start);
        if (lf == std::string_view::npos) {
            lines.push_back({std::string(bytes.substr(start)), ""});
            break;
        }
        std::size_t textend = (lf > start && bytes[lf - 1] == '\r') ? lf - 1 : lf;
        lines.push_back({std::string(bytes.substr(start, textend - start)),
                         std::string(bytes.substr(textend, lf + 1 - textend))});
        start = lf + 1;
    }
    return lines;
}

// The whole file, or an error; a missing file is an error too (ENOENT).
Error readall(const std::filesystem::path& file, std::string& bytes)
{
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errorfromerrno(errno, file);
    bytes.clear();
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            Error error = errorfromerrno(errno, file);
            ::close(fd);
            return error;
        }
        if (n == 0)
            break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return {};
}

std::vector<Line> readlines(const std::filesystem::path& file)
{
    std::string bytes;
    if (readall(file, bytes))
        return {};
    return splitlines(bytes);
}

// Calls `visit(parsed)` for each key line of `section`, in file order.
template <typename Visit>
void forkeys(const std::vector<Line>& lines, std::string_view section, Visit visit)
{
    bool inside = false;
    for (const Line& line : lines) {
        Parsed p = parse(line.text);
        if (p.kind == LineKind::Section)
            inside = sameletters(p.name, section);
        else if (inside && p.kind == LineKind::Key)
            visit(p);
    }
}

std::string joined(const std::vector<Line>& lines)
{
    std::string bytes;
    for (const Line& line : lines)
        bytes += line.text + line.end;
    return bytes;
}

std::filesystem::path scratchfile()
{
    return preparedworkdir() ? scratchfilepath() : std::filesystem::path();
}

}  // namespace

std::vector<std::string> profilekeys(const std::filesystem::path& file, std::string_view section)
{
    std::vector<std::string> keys;
    forkeys(readlines(file), section, [&](const Parsed& p) {
        for (const std::string& k : keys) {
            if (sameletters(k, p.name))
                return;
        }
        keys.push_back(p.name);
    });
    return keys;
}

std::optional<std::string> profilevalue(const std::filesystem::path& file, std::string_view section,
                                        std::string_view key)
{
    std::optional<std::string> value;
    std::string name = trimmed(key);
    forkeys(readlines(file), section, [&](const Parsed& p) {
        if (!value && sameletters(p.name, name))
            value = p.value;
    });
    return value;
}

namespace {

// Puts `name` = `v` into `lines`: over the key's own line, else behind the
// last key line (or the header) of `section`, else in a new section at the
// end, behind a blank line.
void setkeyline(std::vector<Line>& lines, std::string_view section, const std::string& name, const std::string& v)
{
    const std::string eol = !lines.empty() && !lines.front().end.empty() ? lines.front().end : "\r\n";
    std::optional<std::size_t> anchor;    // the last key line or header of the section
    bool inside = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        Parsed p = parse(lines[i].text);
        if (p.kind == LineKind::Section) {
            inside = sameletters(p.name, section);
            if (inside)
                anchor = i;
        } else if (inside && p.kind == LineKind::Key) {
            anchor = i;
            if (sameletters(p.name, name)) {
                lines[i].text = p.name + "=" + v;
                return;
            }
        }
    }
    const Line newline{name + "=" + v, eol};
    if (anchor) {
        if (lines[*anchor].end.empty())
            lines[*anchor].end = eol;
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(*anchor) + 1, newline);
        return;
    }
    if (!lines.empty()) {
        if (lines.back().end.empty())
            lines.back().end = eol;
        if (!trimmed(lines.back().text).empty())
            lines.push_back({"", eol});
    }
    lines.push_back({"[" + trimmed(section) + "]", eol});
    lines.push_back(newline);
}

}  // namespace

Error writeprofilestring(const std::filesystem::path& file, std::string_view section, std::string_view key,
                         std::string_view value)
{
    std::string name = trimmed(key);
    if (name.empty())
        return Error{EINVAL, "empty key", file};

    std::string bytes;
    if (Error error = readall(file, bytes); error && error.code != ENOENT)
        return error;
    std::vector<Line> lines = splitlines(bytes);
    setkeyline(lines, section, name, trimmed(value));
    std::string updated = joined(lines);
    if (updated == bytes)
        return {};
    if (file.has_parent_path()) {
        std::error_code ec;
        std::filesystem::create_directories(file.parent_path(), ec);
        if (ec)
            return errorfromerrno(ec.value(), file.parent_path());
    }
    return replacefilecontent(file, updated, scratchfile());
}

std::string profilestring(int nMode, const std::string& sRepList, const std::filesystem::path& sIniFile)
{
    std::string copy = sRepList;
    std::string section = nexttoken(copy, "|");
    std::string key = nexttoken(copy, "=");
    const std::string& value = copy;

    switch (nMode) {
    case 0: {
        std::string list;
        for (const std::string& name : profilekeys(sIniFile, section))
            list += name + '\0';
        // Two NULs close the platform's list, so 998 bytes of it fit.
        return list.substr(0, kProfileBuffer - 2);
    }
    case 1:
        return profilevalue(sIniFile, section, key).value_or(value).substr(0, kProfileBuffer - 1);
    case 2:
        writeprofilestring(sIniFile, section, key, value);
        return {};
    default:
        return {};
    }
}

bool isdefaultfile(const std::string& sIniFile) { return sIniFile.find("brindlex.ini") != std::string::npos; }

std::filesystem::path defaultinifile()
{
    std::filesystem::path config;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg == '/') {
        config = xdg;
    } else {
        const char* home = std::getenv("HOME");
        if (!home || !*home) {
            const passwd* pw = ::getpwuid(::getuid());
            home = pw ? pw->pw_dir : "/";
        }
        config = std::filesystem::path(home) / ".config";
    }
    return config / "brindlex" / "brindlex.ini";
}

}  // namespace brindlex
