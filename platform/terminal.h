// terminal.h: facts about the terminal that the process writes to.
#pragma once

namespace plat
{
    /// Returns whether standard output is a terminal.
    bool TerminalIsOutput();

    /// Returns whether standard output is a terminal that shows colours by escape sequences.
    bool TerminalShowsColours();

    /// Returns the characters of a line of the terminal that standard output is, or 0 if it is none or does not say.
    int TerminalColumns();
}
