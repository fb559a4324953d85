// terminal.h: facts about the terminal that the process writes to.
#pragma once

namespace plat
{
    /// Returns whether standard output is a terminal.
    bool TerminalIsOutput();

    /// Returns whether standard output is a terminal that shows colours by escape sequences.
    bool TerminalShowsColours();

    /// Returns the number of characters in a line of the terminal. Returns 0 if standard output is not a terminal, or
    /// if the number is unknown.
    int TerminalColumns();
}
