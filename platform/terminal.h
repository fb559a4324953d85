// terminal.h: facts about the terminal that the process writes to.
#pragma once

namespace plat
{
    /// Returns whether standard output is a terminal that shows colours by escape sequences.
    bool TerminalShowsColours();
}
