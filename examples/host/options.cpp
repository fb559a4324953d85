#include "options.h"

#include "bay.h"
#include "paths.h"
#include "saves.h"

#include "zqcore/cstring.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace
{
    constexpr int MAX_FRAMES = 1000000;

    // The values of options, as given.
    struct Texts_s
    {
        std::string sMedia, sConfig, sGame, sFrames, sLog, sSave, sStats, sCacheFile;
    };

    // An option that a value follows.
    struct ValueOption_s
    {
        char const * szName;
        std::string Texts_s::*pText;
        char const * szHelp;
    };

    constexpr ValueOption_s VALUE_OPTIONS[] = {
        { "--media", &Texts_s::sMedia, "FOLDER   the media root; without it the library looks for one" },
        { "--config", &Texts_s::sConfig, "NAME    the folder of media/_configdependeddata to use" },
        { "--game", &Texts_s::sGame, "NAME      the folder of gamedata to use, in lower case (pqx)" },
        { "--frames", &Texts_s::sFrames, "N       frames to run, one hour of the world each (480)" },
        { "--log", &Texts_s::sLog, "FOLDER     where the logs go (logs)" },
        { "--save", &Texts_s::sSave, "FILE      the save to load and to replace (GAME.sav beside the logs)" },
        { "--stats", &Texts_s::sStats, "FILE     a file for the profiler's times of every frame" },
        { "--cache-file", &Texts_s::sCacheFile, "FILE the file of --cache, for media that may not be written" },
    };

    // An option without a value.
    struct FlagOption_s
    {
        char const * szName;
        bool Options_s::*pFlag;
        char const * szHelp;
    };

    constexpr FlagOption_s FLAG_OPTIONS[] = {
        { "--new", &Options_s::bNew, "            start a new world; the old save is kept beside the new one" },
        { "--cache", &Options_s::bCache,
            "          start from filesystemcache.bin in the media root; the first such run writes it, and a run "
            "after a folder has changed scans again" },
        { "--watch", &Options_s::bWatch,
            "          run until interrupted, without regard to --frames, and reload changed tables" },
        { "--allocations", &Options_s::bAllocations,
            "    list the live memory in allocations.csv in the log folder after the last frame" },
        { "--silent", &Options_s::bSilent,
            "         show no dialogs; a broken precondition then ends the run with its text and status 1" },
        { "--help", &Options_s::bHelp, "           this text" },
    };

    // Returns the option of this name, or null.
    template <typename OPTION, int N>
    OPTION const * FindOption(OPTION const (&dOptions)[N], char const * szArgument)
    {
        for (OPTION const & Option : dOptions)
        {
            if (std::strcmp(szArgument, Option.szName) == 0)
            {
                return &Option;
            }
        }
        return nullptr;
    }

    std::string Quoted(std::string const & sText)
    {
        return "\"" + sText + "\"";
    }

    // Splits the arguments into values and flags. Returns a message if something is wrong, else an empty text.
    std::string Collect(int nArguments, char ** dArguments, Texts_s & Texts, Options_s & Options)
    {
        for (int i = 1; i < nArguments; ++i)
        {
            std::string const sArgument = dArguments[i];
            if (FlagOption_s const * const pFlag = FindOption(FLAG_OPTIONS, dArguments[i]))
            {
                Options.*pFlag->pFlag = true;
                continue;
            }
            ValueOption_s const * const pOption = FindOption(VALUE_OPTIONS, dArguments[i]);
            if (!pOption)
            {
                return "unknown option " + Quoted(sArgument);
            }
            std::string & sValue = Texts.*pOption->pText;
            if (!sValue.empty())
            {
                return sArgument + " is given twice";
            }
            if (++i == nArguments || !dArguments[i][0] || std::strncmp(dArguments[i], "--", 2) == 0)
            {
                return sArgument + " needs a value";
            }
            sValue = dArguments[i];
        }
        return "";
    }

    // Reads the number of frames. Returns a message if it is wrong, else an empty text.
    std::string ReadFrames(std::string const & sText, int & nFrames)
    {
        char const * const pEnd = sText.data() + sText.size();
        auto const [pRead, eError] = std::from_chars(sText.data(), pEnd, nFrames);
        bool const bGood = eError == std::errc() && pRead == pEnd && nFrames >= 0 && nFrames <= MAX_FRAMES;
        return bGood ? ""
                     : "--frames takes a number from 0 to " + std::to_string(MAX_FRAMES) + ", not " + Quoted(sText);
    }

    // Returns why a text is no bare name of a folder, or an empty text. The name has lower case and no blank, because
    // the library compares folders in lower case and splits the command line at blanks.
    std::string CheckGame(std::string const & sGame)
    {
        bool const bGood = sGame.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ /\\\t") == std::string::npos && sGame != "."
                           && sGame != ".." && sGame.size() < sizeof(Name_t);
        return bGood ? ""
                     : "--game takes a bare name in lower case of at most " + std::to_string(sizeof(Name_t) - 1)
                           + " bytes, not " + Quoted(sGame);
    }

    // Makes a path absolute, without a separator at the end unless it is `/`. Returns a message on failure, else an
    // empty text.
    std::string MakeAbsolute(std::string const & sPath, std::string & sAbsolute)
    {
        try
        {
            std::string sText = std::filesystem::absolute(sPath).string();
            std::replace(sText.begin(), sText.end(), '\\', '/');   // as the library reads it
            std::filesystem::path const Path = std::filesystem::path(sText).lexically_normal();
            static_cast<void>(WideFromPath(Path.string()));   // throws if a name is not UTF-8
            sAbsolute = Path.string();
        }
        catch (std::exception const &)
        {
            return "can't make sense of the path " + Quoted(sPath);
        }
        while (sAbsolute.size() > 1 && sAbsolute.back() == '/')
        {
            sAbsolute.pop_back();
        }
        return "";
    }

    // Returns a message if a path is too long, else an empty text. The library keeps a location in 255 characters and a
    // bare name in 127. It writes a new save next to the old one, under a longer name.
    std::string CheckLength(char const * szWhat, std::string const & sPath)
    {
        constexpr std::size_t PATH_LIMIT = 240, NAME_LIMIT = 120;   // with room for the longer name
        bool const bGood =
            sPath.size() < PATH_LIMIT && std::filesystem::path(sPath).filename().string().size() < NAME_LIMIT;
        return bGood ? "" : std::string("the path of the ") + szWhat + " is too long: " + Quoted(sPath);
    }

    // Returns a message if a path names anything but a regular file, else an empty text. The host never replaces a
    // folder, pipe or device.
    std::string CheckKind(char const * szWhat, std::string const & sPath)
    {
        std::error_code Error;
        bool const bGood = !std::filesystem::exists(sPath, Error) || std::filesystem::is_regular_file(sPath, Error);
        return bGood ? "" : std::string("the ") + szWhat + " is no regular file: " + Quoted(sPath);
    }

    // Returns a message if a file that the host writes is one of its other files too, else an empty text.
    std::string CheckApart(Options_s const & Options)
    {
        std::vector<std::pair<std::string, std::string>> dFiles = { { "the save", Options.sSave },
            { "the stats", Options.sStats }, { "the cache", Options.sCacheFile } };
        auto const nChosen = static_cast<std::ptrdiff_t>(dFiles.size());
        for (char const * const szName : { LOG_NAME, HARBOUR_LOG, "allocations.csv", "uncategorized.csv" })
        {
            dFiles.emplace_back(szName, Options.sLogFolder + "/" + szName);
        }
        for (int i = 1; i <= PREVIOUS_SAVES; ++i)
        {
            dFiles.emplace_back("a previous save", Options.sSave + "." + std::to_string(i));
        }
        for (auto itFile = dFiles.begin(); itFile != dFiles.begin() + nChosen; ++itFile)
        {
            auto const IsSame = [&](auto const & Other)
            { return !itFile->second.empty() && !Other.second.empty() && IsSameFile(itFile->second, Other.second); };
            // A rotation that was cut off may leave one file under the names of the save and a previous one.
            auto const itEnd = dFiles.end() - (itFile == dFiles.begin() ? PREVIOUS_SAVES : 0);
            auto const itOther = std::find_if(itFile + 1, itEnd, IsSame);
            if (itOther != itEnd)
            {
                return itFile->first + " and " + itOther->first + " are one file: " + Quoted(itFile->second);
            }
        }
        return "";
    }

    // Converts the values to options. Returns a message if something is wrong, else an empty text.
    std::string Convert(Texts_s const & Texts, Options_s & Options)
    {
        Options.sConfig = Texts.sConfig;
        Options.bGameGiven = !Texts.sGame.empty();
        Options.sGame = Options.bGameGiven ? Texts.sGame : Options.sGame;
        std::string sMessage = CheckGame(Texts.sGame);
        if (sMessage.empty() && !Texts.sFrames.empty())
        {
            sMessage = ReadFrames(Texts.sFrames, Options.nFrames);
        }
        if (sMessage.empty() && !Texts.sMedia.empty())
        {
            sMessage = MakeAbsolute(Texts.sMedia, Options.sMedia);
        }
        if (sMessage.empty())
        {
            sMessage = MakeAbsolute(Texts.sLog.empty() ? "logs" : Texts.sLog, Options.sLogFolder);
        }
        if (sMessage.empty())
        {
            std::string const sDefault = Options.sLogFolder + "/" + Options.sGame + ".sav";
            sMessage = MakeAbsolute(Texts.sSave.empty() ? sDefault : Texts.sSave, Options.sSave);
        }
        if (sMessage.empty() && !Texts.sStats.empty())
        {
            sMessage = MakeAbsolute(Texts.sStats, Options.sStats);
        }
        if (sMessage.empty() && !Texts.sCacheFile.empty())
        {
            sMessage = MakeAbsolute(Texts.sCacheFile, Options.sCacheFile);
        }
        for (auto const & [szWhat, sPath] : { std::pair("save", Options.sSave), std::pair("stats", Options.sStats),
                 std::pair("cache", Options.sCacheFile) })
        {
            sMessage = sMessage.empty() ? CheckLength(szWhat, sPath) : sMessage;
            sMessage = sMessage.empty() ? CheckKind(szWhat, sPath) : sMessage;
        }
        return sMessage.empty() ? CheckApart(Options) : sMessage;
    }
}

bool OptionsRead(int nArguments, char ** dArguments, Options_s & Options, std::string & sMessage)
{
    Texts_s Texts;
    sMessage = Collect(nArguments, dArguments, Texts, Options);
    if (sMessage.empty() && !Options.bHelp)
    {
        sMessage = Convert(Texts, Options);
    }
    return sMessage.empty();
}

std::string OptionsHelp()
{
    std::string sHelp = "zqhost: a small game loop over a media tree.\n\n";
    auto const Add = [&](auto const & Option) { sHelp += Va("  %s %s\n", Option.szName, Option.szHelp); };
    std::for_each(std::begin(VALUE_OPTIONS), std::end(VALUE_OPTIONS), Add);
    std::for_each(std::begin(FLAG_OPTIONS), std::end(FLAG_OPTIONS), Add);
    sHelp += "\nExit status: 0 done, 1 a complaint or crash ended a silent run, 2 bad command line, 3 no such media,\n"
             "4 not loaded or saved, 5 stats not written, 6 a service did not start, 7 the media can't be watched,\n"
             "8 the report was not written whole, 9 the live memory was not listed. Standard error has the reason.\n";
    return sHelp;
}
