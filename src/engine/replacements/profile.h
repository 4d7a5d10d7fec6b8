// The replacement store: a private-profile ini file with the section
// "Replacements", one line a set: key "=" find "==>" replace.
#pragma once

#include <filesystem>
#include <string>

namespace brindlex {

// One request to the ini file, in the form section "|" key "=" value.
// Mode 0 lists the keys of the section (each followed by a NUL, within a
// 1000-byte buffer), mode 1 reads a key (the request's value is the default),
// mode 2 writes a key. Never reports a failure.
std::string profilestring(int nMode, const std::string& sRepList, const std::filesystem::path& sIniFile);

// The default file is in use when the path holds "brindlex.ini", anywhere.
bool isdefaultfile(const std::string& sIniFile);

// ${XDG_CONFIG_HOME:-~/.config}/brindlex/brindlex.ini
std::filesystem::path defaultinifile();

}  // namespace brindlex
