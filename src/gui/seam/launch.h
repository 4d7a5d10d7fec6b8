// Starting an outside program: detached, as a program and a list of
// arguments, never through a shell, so that no byte of a file name is ever
// interpreted. Names and arguments are byte strings, passed to the program
// exactly as they are (a name that isn't UTF-8 included).
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "engine/core/error.h"

namespace brindlex::gui {

// The program file that stands for the editor `sEditor`:
//   "vellumix": the file of that name in `exeDir`;
//   "notepad": a program named notepad on PATH if there is one, else
//   $VISUAL when it names one of the usual desktop editors, else the first
//   of those found on PATH, else xdg-open on PATH; else empty, which can't
//   be started (a bare name is never looked up in the current directory).
std::string editorprogram(const std::string& sEditor, const std::filesystem::path& exeDir);

// The name the menu gives the editor: the file name of the program that
// editorprogram() finds ("kate", "xdg-open"), or `sEditor` when none is found.
std::string editorname(const std::string& sEditor, const std::filesystem::path& exeDir);

// Where editorprogram() found nothing: what it looked for, in its order,
// e.g. "notepad, $VISUAL (vi: not a desktop editor), gnome-text-editor, ...
// and xdg-open on PATH" ($VISUAL only when it is set).
std::string editorsearch(const std::string& sEditor, const std::filesystem::path& exeDir);

// The first executable file `name` in a directory of PATH; empty when none.
std::string findonpath(const std::string& name);

// Starts `program` (a path) with `args` in a session of its own and doesn't
// wait for it: it outlives this process and leaves no zombie behind. The
// program's argv[0] is `program`. The error is why it could not be started:
// the errno of the exec (e.g. ENOENT "No such file or directory").
Error startdetached(const std::string& program, const std::vector<std::string>& args);

}  // namespace brindlex::gui
