// Values shared by every part of the program.
#pragma once

#include <string_view>

namespace brindlex {

// The line end of message texts and internal lists: CR LF.
inline constexpr std::string_view sCRLF = "\r\n";

// The program's title, on every message box that has no title of its own.
inline constexpr std::string_view sTitle = "brindlex";

inline constexpr std::string_view sCaption = "Brindlex";
inline constexpr std::string_view sVersion = "2.0h";

}  // namespace brindlex
