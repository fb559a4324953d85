#include "platform/terminal.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

bool plat::TerminalShowsColours()
{
    char const * const szTerminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) && szTerminal != nullptr && std::strcmp(szTerminal, "dumb") != 0;
}
