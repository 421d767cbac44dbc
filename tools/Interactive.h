#pragma once

#include "tools/Session.h"

namespace cli {

/// What :help prints and --help repeats: the rules for a line and the session's commands.
extern const char* const kLineHelp;
extern const char* const kCommandHelp;

/// Reads lines at the prompt "kalvos> " until :quit or the end of input, with line editing,
/// completion and a history kept between sessions where the build has libedit. A failing
/// line is reported and the session goes on; Ctrl-C abandons the line being typed. Returns
/// the system's error number when the input could not be read, else 0.
int RunInteractive(Session& session);

}  // namespace cli
