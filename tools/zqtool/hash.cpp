// zqtool hash: the library's checksums of files and texts, in the form that sha1sum has, and checks of such lists.
#include "platform/bytes.h"
#include "platform/terminal.h"
#include "platform/text.h"
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/parse.h"
#include "tools/zqtool/text.h"
#include "zqcore/ccrc.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/chash.h"
#include "zqcore/csha1.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

namespace
{
    constexpr std::string_view STANDARD_INPUT = "-";
    constexpr char ALGORITHM_CRC32[] = "crc32";
    constexpr char ALGORITHM_NAME[] = "name";
    constexpr char ALGORITHM_SHA1[] = "sha1";

    struct Options_s
    {
        std::vector<std::string> dFiles;
        std::string sAlgorithm, sList, sText;
        bool bJson = false;
    };

    std::string HexOf(std::uint32_t dwWord)
    {
        char szHex[16];
        std::snprintf(szHex, sizeof szHex, "%08x", static_cast<unsigned>(dwWord));
        return szHex;
    }

    // Returns the CRC-32 or, for any other algorithm, the SHA-1 of a stream as hexadecimal digits. Returns an empty
    // text if the stream can't be read to its end.
    std::string HashOf(std::istream & Stream, std::string const & sAlgorithm)
    {
        std::uint32_t dwCrc = 0;
        SHA1Context Context;
        SHA1Reset(&Context);
        char dChunk[65536];
        while (Stream.read(dChunk, sizeof dChunk) || Stream.gcount() != 0)
        {
            auto const nBytes = static_cast<std::size_t>(Stream.gcount());
            if (sAlgorithm == ALGORITHM_CRC32)
            {
                dwCrc = Crc32(std::as_bytes(std::span(dChunk, nBytes)), dwCrc);
            }
            else
            {
                SHA1Input(&Context, reinterpret_cast<unsigned char const *>(dChunk), nBytes);
            }
        }
        unsigned char dDigest[SHA1_HASH_SIZE];
        if (!Stream.eof() || SHA1Result(&Context, dDigest) != shaSuccess)
        {
            return "";
        }
        if (sAlgorithm == ALGORITHM_CRC32)
        {
            return HexOf(dwCrc);
        }
        std::string sHex;
        for (std::size_t i = 0; i < SHA1_HASH_SIZE; i += sizeof(std::uint32_t))
        {
            sHex += HexOf(plat::WordFromBig(dDigest + i));
        }
        return sHex;
    }

    // Returns the hash of a file, or of standard input for "-". On failure returns an empty text, and why in sWhyNot.
    std::string HashOfFile(std::string const & sFile, std::string const & sAlgorithm, std::string & sWhyNot)
    {
        std::ifstream Stream;
        bool const bStandard = sFile == STANDARD_INPUT;
        sWhyNot = bStandard ? "" : OpenInput(sFile, Stream);
        std::string sHash = sWhyNot.empty() ? HashOf(bStandard ? std::cin : Stream, sAlgorithm) : "";
        sHash = bStandard && std::ferror(stdin) ? "" : sHash;   // std::cin takes an error for the end
        sWhyNot = sHash.empty() && sWhyNot.empty() ? FILE_UNREADABLE : sWhyNot;
        return sHash;
    }

    // Returns a name as a list has it: line ends and backslashes as \n, \r and \\. If a name has any, its line begins
    // with a backslash.
    std::string Escaped(std::string const & sName)
    {
        std::string sOut;
        for (char const c : sName)
        {
            sOut += c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\\' ? "\\\\" : std::string(1, c);
        }
        return sOut;
    }

    // Reverses Escaped. Returns false, and changes nothing, if no `n`, `r` or backslash follows a backslash.
    bool Unescape(std::string & sName)
    {
        std::string sOut;
        for (std::size_t i = 0; i < sName.size(); ++i)
        {
            char const c = sName[i];
            if (c != '\\')
            {
                sOut += c;
                continue;
            }
            char const cNext = i + 1 < sName.size() ? sName[++i] : '\0';
            if (cNext != 'n' && cNext != 'r' && cNext != '\\')
            {
                return false;
            }
            sOut += cNext == 'n' ? '\n' : cNext == 'r' ? '\r' : '\\';
        }
        sName = sOut;
        return true;
    }

    // Prints a line. On a terminal the name is printable. Elsewhere it keeps its bytes, so that --check finds the file.
    void PrintLine(std::string const & sBefore, std::string const & sName, std::string const & sAfter)
    {
        std::string const sEscaped = Escaped(sName);
        std::puts(((sEscaped == sName ? "" : "\\") + sBefore
                   + (plat::TerminalIsOutput() ? Printable(sEscaped) : sEscaped) + sAfter)
                      .c_str());
    }

    int HashFiles(Options_s const & Options)
    {
        int iStatus = EXIT_DONE;
        std::string const sAlgorithm = Options.sAlgorithm.empty() ? ALGORITHM_SHA1 : Options.sAlgorithm;
        Json_t Files = Json_t::array();
        for (std::string const & sFile : Options.dFiles)
        {
            std::string sWhyNot;
            std::string const sHash = HashOfFile(sFile, sAlgorithm, sWhyNot);
            if (sHash.empty())
            {
                PrintProblem(sFile, sWhyNot);
                iStatus = EXIT_FOUND;
            }
            else if (!Options.bJson)
            {
                PrintLine(sHash + "  ", sFile, "");
            }
            Files.push_back({ { "file", sFile }, { "algorithm", sAlgorithm },
                { "hash", sHash.empty() ? Json_t() : Json_t(sHash) } });
        }
        if (Options.bJson)
        {
            PrintJson({ { "files", Files } });
        }
        return iStatus;
    }

    struct Line_t
    {
        std::string sHash, sFile, sAlgorithm;
    };

    // Reads "HASH  FILE" or "HASH *FILE", or either after a backslash, which means an escaped name. Returns false for
    // any other line.
    bool ReadLine(std::string sLine, Line_t & Line)
    {
        bool const bEscaped = sLine.starts_with('\\');
        sLine.erase(0, bEscaped);
        std::size_t const nDigits = sLine.find_first_not_of(plat::ALL_HEX_DIGITS);
        if (nDigits == std::string::npos || sLine.size() < nDigits + 3 || sLine[nDigits] != ' '
            || (sLine[nDigits + 1] != ' ' && sLine[nDigits + 1] != '*'))
        {
            return false;
        }
        bool const bCrc = nDigits == 2 * sizeof(std::uint32_t);
        Line = { Lower(sLine.substr(0, nDigits)), sLine.substr(nDigits + 2), bCrc ? ALGORITHM_CRC32 : ALGORITHM_SHA1 };
        bool const bName = Line.sFile.find('\0') == std::string::npos;   // no file has a zero in its name
        return bName && (bCrc || nDigits == 2 * SHA1_HASH_SIZE) && (!bEscaped || Unescape(Line.sFile));
    }

    int CheckList(Options_s const & Options)
    {
        std::ifstream File;
        bool const bStandard = Options.sList == STANDARD_INPUT;
        std::istream & List = bStandard ? std::cin : File;
        if (std::string const sWhyNot = bStandard ? "" : OpenInput(Options.sList, File); !sWhyNot.empty())
        {
            PrintProblem(Options.sList, sWhyNot);
            return EXIT_FOUND;
        }
        int iStatus = EXIT_DONE, iLine = 0;
        Json_t Files = Json_t::array();
        for (std::string sLine; std::getline(List, sLine);)
        {
            ++iLine;
            Line_t Line;
            sLine.erase(sLine.size() - sLine.ends_with('\r'));
            bool const bLine = ReadLine(sLine, Line);
            if (!bLine || (!Options.sAlgorithm.empty() && Options.sAlgorithm != Line.sAlgorithm))
            {
                PrintProblem(Options.sList, iLine,
                    bLine ? "a hash of another algorithm than --algorithm names"
                          : "not a hash of 8 or 40 digits, two blanks or a blank and *, and a file");
                iStatus = EXIT_FOUND;
                continue;
            }
            std::string sWhyNot;
            std::string const sHash = HashOfFile(Line.sFile, Line.sAlgorithm, sWhyNot);
            bool const bSame = sHash == Line.sHash;
            iStatus = bSame ? iStatus : EXIT_FOUND;
            if (!Options.bJson)
            {
                PrintLine("", Line.sFile, bSame ? ": OK" : ": FAILED" + (sHash.empty() ? ", " + sWhyNot : ""));
            }
            Files.push_back({ { "file", Line.sFile }, { "algorithm", Line.sAlgorithm }, { "expected", Line.sHash },
                { "hash", sHash.empty() ? Json_t() : Json_t(sHash) }, { "ok", bSame } });
        }
        bool const bRead = List.eof() && !(bStandard && std::ferror(stdin));
        if (!bRead || iLine == 0)
        {
            PrintProblem(Options.sList, bRead ? "the list is empty" : FILE_UNREADABLE);
            iStatus = EXIT_FOUND;
        }
        if (Options.bJson)
        {
            PrintJson({ { "files", Files } });
        }
        return iStatus;
    }

    int HashText(Options_s const & Options)
    {
        Json_t Json = { { "text", Options.sText } };
        for (char const * szAlgorithm : { ALGORITHM_CRC32, ALGORITHM_NAME, ALGORITHM_SHA1 })
        {
            if (!Options.sAlgorithm.empty() && Options.sAlgorithm != szAlgorithm)
            {
                continue;
            }
            std::istringstream Stream(Options.sText);
            std::string const sHash = szAlgorithm == std::string(ALGORITHM_NAME)
                                          ? HexOf(StringHashOf(Options.sText.c_str()))
                                          : HashOf(Stream, szAlgorithm);
            Json[szAlgorithm] = sHash;
            if (!Options.bJson)
            {
                std::printf("%s  %s\n", sHash.c_str(), szAlgorithm);
            }
        }
        if (Options.bJson)
        {
            PrintJson(Json);
        }
        return EXIT_DONE;
    }
}

CommandRun_t PrepareHash(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Argument_c const Files = Arguments.AddTexts("FILE", "", pOptions->dFiles, "files; - is standard input");
    Arguments
        .AddText("--algorithm", "", pOptions->sAlgorithm,
            "crc32 or sha1; of a text also name; default: sha1 of files, all of a text, of a list what each line has")
        .SetChoices({ ALGORITHM_CRC32, ALGORITHM_NAME, ALGORITHM_SHA1 });
    Argument_c const List =
        Arguments
            .AddText("--check", "LIST", pOptions->sList,
                "check the files that a list names, of this command, of sha1sum or of a tool with the same form; - is "
                "standard input")
            .SetExcludes(Files);
    Argument_c const Text =
        Arguments
            .AddText("--text", "TEXT", pOptions->sText,
                "hash a text: crc32, which labels of chunks and ids of timers are, name, the hash of a StringHash_T, "
                "and sha1")
            .SetExcludes(Files)
            .SetExcludes(List);
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool hash *.csv >list; zqtool hash --check list");
    Arguments.SetCheck(
        [pOptions, Files, List, Text]() -> std::string
        {
            if (!Files.IsGiven() && !List.IsGiven() && !Text.IsGiven())
            {
                return "FILE, --check LIST or --text TEXT is required";
            }
            return pOptions->sAlgorithm == ALGORITHM_NAME && !Text.IsGiven() ? "--algorithm name is for --text" : "";
        });
    return [pOptions, List, Text] {
        return Text.IsGiven() ? HashText(*pOptions) : List.IsGiven() ? CheckList(*pOptions) : HashFiles(*pOptions);
    };
}
