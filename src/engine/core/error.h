// Errors are values: the platform's error number, its text and the path it
// concerns. Nothing in the engine throws across modules.
#pragma once

#include <filesystem>
#include <string>

namespace brindlex {

struct Error {
    int code = 0;                  // errno, 0 for none
    std::string text;              // strerror(code), or the engine's own words
    std::filesystem::path path;

    explicit operator bool() const { return code != 0; }
};

// The error for errno value `code` on `path`, with the platform's text.
Error errorfromerrno(int code, const std::filesystem::path& path = {});

// The error for something at `path` that is no regular file (a FIFO, a
// device, a directory), which is never read or written as one.
Error notregular(const std::filesystem::path& path);

// The reason as a user reads it: "path: text", or the text alone without a
// path: "/data/a.txt: No space left on device".
std::string reasontext(const Error& error);

}  // namespace brindlex
