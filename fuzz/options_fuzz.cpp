// options_fuzz.cpp: command lines of the host, split as its help describes.
//
// Checks that one which is accepted means the same when it is written out in full. Arguments end at zeros. An argument
// of a single byte is the option of that number, from 1, in the order of the options' names, if there is one.
#include "examples/host/options.h"
#include "fuzz/fuzz_support.h"

#include <iterator>
#include <map>
#include <sstream>
#include <vector>

namespace
{
    using Arguments_t = std::vector<std::string>;

    // Returns the options of the help, and whether they take a value.
    std::map<std::string, bool> const & HelpOptions()
    {
        static auto & s_dOptions = *new std::map<std::string, bool>;
        std::istringstream Help(s_dOptions.empty() ? OptionsHelp() : "");
        for (std::string sLine; std::getline(Help, sLine);)
        {
            std::size_t const iEnd = sLine.find(' ', 2);
            if (sLine.starts_with("  --"))
            {
                s_dOptions[sLine.substr(2, iEnd - 2)] = sLine[iEnd + 1] != ' ';
            }
        }
        return s_dOptions;
    }

    // Splits arguments into options and values. Returns false if they are no options with their values, or if an option
    // has two values.
    bool Split(Arguments_t const & dArguments, std::map<std::string, std::string> & dValues)
    {
        bool bGood = true;
        for (std::size_t i = 0; i < dArguments.size() && bGood; ++i)
        {
            std::string const & sName = dArguments[i];
            bGood = HelpOptions().contains(sName);
            if (bGood && HelpOptions().at(sName))
            {
                bGood = ++i < dArguments.size() && !dArguments[i].empty() && !dArguments[i].starts_with("--")
                        && dValues.emplace(sName, dArguments[i]).second;
            }
        }
        return bGood;
    }

    // Reads a command line. Returns whether it is accepted.
    bool Read(Arguments_t dArguments, Options_s & Options)
    {
        std::string sProgram, sMessage;
        std::vector<char *> dPointers{ sProgram.data() };
        std::ranges::transform(dArguments, std::back_inserter(dPointers), [](std::string & s) { return s.data(); });
        bool const bRead = OptionsRead(static_cast<int>(dPointers.size()), dPointers.data(), Options, sMessage);
        Require(bRead == sMessage.empty());
        return bRead;
    }

    // Returns a command line that has each option that is set, by its name.
    Arguments_t InFull(Options_s const & Options)
    {
        Arguments_t dFull{ "--frames", std::to_string(Options.nFrames) };
        for (auto const & [szName, sValue] : { std::pair("--media", Options.sMedia), { "--config", Options.sConfig },
                 { "--game", Options.bGameGiven ? Options.sGame : "" }, { "--log", Options.sLogFolder },
                 { "--save", Options.sSave }, { "--stats", Options.sStats }, { "--cache-file", Options.sCacheFile },
                 { "--new", Options.bNew ? "--new" : "" }, { "--cache", Options.bCache ? "--cache" : "" },
                 { "--allocations", Options.bAllocations ? "--allocations" : "" },
                 { "--watch", Options.bWatch ? "--watch" : "" }, { "--silent", Options.bSilent ? "--silent" : "" } })
        {
            if (!sValue.empty())
            {
                dFull.push_back(szName);
            }
            if (!sValue.empty() && sValue != szName)
            {
                dFull.push_back(sValue);
            }
        }
        return dFull;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Arguments_t dArguments;
    std::istringstream Stream(std::string(pData, pData + nSize));
    for (std::string sArgument; std::getline(Stream, sArgument, '\0');)
    {
        bool const bOption = sArgument.size() == 1 && static_cast<unsigned char>(sArgument[0]) <= HelpOptions().size();
        dArguments.push_back(bOption ? std::next(HelpOptions().begin(), sArgument[0] - 1)->first : sArgument);
    }
    std::map<std::string, std::string> dValues;
    Options_s Options, Again;
    bool const bSplit = Split(dArguments, dValues);
    bool const bRead = Read(dArguments, Options);
    Require(bSplit || !bRead);
    if (!bRead || Options.bHelp)
    {
        return 0;
    }
    for (std::string const & sPath :
        { Options.sMedia, Options.sLogFolder, Options.sSave, Options.sStats, Options.sCacheFile })
    {
        Require(sPath.empty() || sPath[0] == '/');
        Require(sPath.size() < 2 || sPath.back() != '/');
    }
    Require(Options.sConfig == dValues["--config"]);
    Require(Options.bGameGiven == dValues.contains("--game"));
    Require(Read(InFull(Options), Again));
    Require(InFull(Again) == InFull(Options));
    return 0;
}
