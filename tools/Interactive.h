#pragma once

#include "tools/Session.h"

namespace cli {

/// What :help prints and --help repeats: the rules for a line and the session's commands.
extern const char* const kLineHelp;
extern const char* const kCommandHelp;

/// Reads lines at the prompt "kalvos> " until :quit or the end of input, with line editing
/// and history where the build has libedit. A failing line is reported and the session goes on.
void RunInteractive(Session& session);

}  // namespace cli
