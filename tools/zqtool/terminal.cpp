#include "tools/zqtool/terminal.h"

#include "platform/terminal.h"

#include <cstdlib>

bool HasColours()
{
    char const * const szNoColour = std::getenv("NO_COLOR");
    return plat::TerminalShowsColours() && (szNoColour == nullptr || *szNoColour == '\0');
}

std::string Painted(std::string_view sText, Colour_e eColour)
{
    std::string const sPrintable = Printable(sText);
    return HasColours() ? Coloured(sPrintable, eColour) : sPrintable;
}
