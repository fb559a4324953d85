#include "platform/terminal.h"

#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

bool plat::TerminalIsOutput()
{
    return isatty(STDOUT_FILENO);
}

bool plat::TerminalShowsColours()
{
    char const * const szTerminal = std::getenv("TERM");
    return TerminalIsOutput() && szTerminal != nullptr && std::strcmp(szTerminal, "dumb") != 0;
}

int plat::TerminalColumns()
{
    winsize Size = {};
    return TerminalIsOutput() && ioctl(STDOUT_FILENO, TIOCGWINSZ, &Size) == 0 ? Size.ws_col : 0;
}
