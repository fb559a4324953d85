#include "tools/zqtool/help.h"

#include "tools/zqtool/command.h"
#include "tools/zqtool/text.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace
{
    constexpr std::size_t WIDTH = 80;    // characters of a line
    constexpr std::size_t COLUMN = 24;   // characters before the texts beside names

    // Returns a name and its text in two columns.
    std::string Columns(std::string const & sName, std::string const & sText)
    {
        std::string sOut = "  " + sName;
        sOut += sOut.size() + 2 > COLUMN ? "\n" + std::string(COLUMN, ' ') : std::string(COLUMN - sOut.size(), ' ');
        std::size_t nColumn = COLUMN;
        std::istringstream Words(sText);
        for (std::string sWord; Words >> sWord; nColumn += sWord.size())
        {
            if (nColumn > COLUMN && nColumn + 1 + sWord.size() > WIDTH)
            {
                sOut += "\n" + std::string(COLUMN, ' ');
                nColumn = COLUMN;
            }
            else if (nColumn > COLUMN)
            {
                sOut += ' ';
                ++nColumn;
            }
            sOut += sWord;
        }
        return sOut + '\n';
    }

    // Returns the least number of letters to add, remove, change or swap with the next one: the distance of Damerau
    // (Communications of the ACM, 1964), with no letter edited twice.
    std::size_t Distance(std::string_view sFrom, std::string_view sTo)
    {
        std::vector<std::vector<std::size_t>> dRows(sFrom.size() + 1, std::vector<std::size_t>(sTo.size() + 1));
        for (std::size_t i = 0; i <= sFrom.size(); ++i)
        {
            for (std::size_t j = 0; j <= sTo.size(); ++j)
            {
                if (i == 0 || j == 0)
                {
                    dRows[i][j] = i + j;
                    continue;
                }
                bool const bSame = sFrom[i - 1] == sTo[j - 1];
                dRows[i][j] = std::min({ dRows[i - 1][j] + 1, dRows[i][j - 1] + 1, dRows[i - 1][j - 1] + !bSame });
                if (i > 1 && j > 1 && sFrom[i - 1] == sTo[j - 2] && sFrom[i - 2] == sTo[j - 1])
                {
                    dRows[i][j] = std::min(dRows[i][j], dRows[i - 2][j - 2] + 1);
                }
            }
        }
        return dRows[sFrom.size()][sTo.size()];
    }
}

std::string HelpOption_t::Spelling() const
{
    std::string sOut = dNames[0];
    std::for_each(dNames.begin() + 1, dNames.end(), [&](std::string const & sName) { sOut += ", " + sName; });
    if (bPositional)
    {
        return sOut + (bMany ? "..." : "");
    }
    return sOut + (sValue.empty() ? "" : " " + sValue);
}

std::string HelpCommand_t::Usage() const
{
    if (sName.empty())
    {
        return "zqtool COMMAND [OPTION...] [ARGUMENT...]";
    }
    std::string sOut = "zqtool " + sName + " [OPTION...]";
    for (HelpOption_t const & Option : dOptions)
    {
        if (Option.bPositional)
        {
            sOut += Option.bRequired ? " " + Option.Spelling() : " [" + Option.Spelling() + "]";
        }
    }
    return sOut;
}

std::string HelpCommand_t::Sentence() const
{
    std::string sOut = sPurpose + (sPurpose.ends_with('.') ? "" : ".");
    sOut[0] = CharToUpper(sOut[0]);
    return sOut;
}

std::vector<std::string> OptionNames(HelpCommand_t const & Command)
{
    std::vector<std::string> dNames;
    for (HelpOption_t const & Option : Command.dOptions)
    {
        dNames.insert(dNames.end(), Option.dNames.begin() + Option.bPositional, Option.dNames.end());
    }
    return dNames;
}

std::string HelpText(HelpCommand_t const & Command)
{
    std::string sOut = "Usage: " + Command.Usage() + "\n" + Command.Sentence() + "\n";
    if (!Command.dCommands.empty())
    {
        sOut += "\nCommands:\n";
    }
    for (HelpCommand_t const & Sub : Command.dCommands)
    {
        sOut += Columns(Sub.sName, Sub.sPurpose);
    }
    sOut += '\n';
    for (HelpOption_t const & Option : Command.dOptions)
    {
        sOut += Columns(Option.Spelling(), Option.sPurpose);
    }
    return sOut + (Command.sFooter.empty() ? "" : "\n" + Command.sFooter + "\n");
}

std::string Suggestion(std::string_view sWord, std::vector<std::string> const & dKnown)
{
    auto const Bare = [](std::string_view sText)
    { return sText.substr(std::min(sText.find_first_not_of('-'), sText.size())); };
    std::string_view const sBare = Bare(sWord);
    std::size_t nLeast = std::min<std::size_t>(3, sBare.size() / 2) + 1;   // 3 edits at most, and half the letters
    std::string sNearest;
    for (std::string const & sKnown : dKnown)
    {
        bool const bBegun = sBare.size() > 2 && Bare(sKnown).starts_with(sBare);
        std::size_t const nDistance = bBegun ? 0 : Distance(sBare, Bare(sKnown));
        if (nDistance < nLeast)
        {
            nLeast = nDistance;
            sNearest = sKnown;
        }
    }
    return sNearest.empty() ? "" : "; did you mean " + sNearest + "?";
}

int ReportNoCommand(std::string const & sCommand, std::vector<std::string> const & dKnown)
{
    return ReportMisuse("there is no command " + sCommand + Suggestion(sCommand, dKnown), "");
}

int ReportMisuse(std::string_view sText, std::string_view sCommand)
{
    std::fprintf(stderr, "zqtool: %s (zqtool %s--help has more)\n", Printable(sText).c_str(),
        sCommand.empty() ? "" : (std::string(sCommand) + " ").c_str());
    return EXIT_USAGE;
}
