// zqtool archive: shows what can be recognised in an archive or a save, and what is damaged.
#include "platform/bytes.h"
#include "platform/text.h"
#include "tools/zqtool/archivescan.h"
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/cachefile.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/parse.h"
#include "tools/zqtool/terminal.h"
#include "tools/zqtool/text.h"
#include "zqcore/ccrc.h"
#include "zqcore/cfilesave_internal.h"
#include "zqcore/cserialize.h"
#include "zqcore/cserialize_internal.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>

namespace
{
    constexpr std::size_t SHOWN_BYTES = 64;        // of a part that is not recognised
    constexpr std::size_t OUTPUT_SIZE = 1 << 20;   // bytes of text that are collected before they are printed

    struct Options_s
    {
        std::vector<std::string> dFiles;
        std::string sNames;                     // path of a list of names; empty: none
        std::optional<std::uint32_t> dwReads;   // newest version that the program reads
        bool bRaw = false, bJson = false;
    };

    template <typename T>
    T ReadAs(std::string_view sBytes, std::size_t nAt)
    {
        return plat::LoadAs<T>(sBytes.data() + nAt);
    }

    std::string Hex(std::uint32_t dwValue)
    {
        return "0x" + HexWord(dwValue);
    }

    // Returns whether an archive is a file system cache. A cache has these marks:
    // - the major version.
    // - a first folder whose text begins with a `\`.
    // - the checksum of that text.
    bool IsCache(std::string_view sArchive)
    {
        constexpr std::size_t TEXT = 4 * ARCHIVE_WORD;
        if (sArchive.size() <= TEXT || !IsCacheVersion(ReadAs<std::uint32_t>(sArchive, 0)))
        {
            return false;
        }
        auto const nText = ReadAs<std::uint32_t>(sArchive, 3 * ARCHIVE_WORD);
        return nText > 0 && nText < sArchive.size() - TEXT && sArchive[TEXT] == '\\'
               && GetCrc32Polynomial(sArchive.data() + TEXT, static_cast<int>(nText))
                      == ReadAs<std::uint32_t>(sArchive, 2 * ARCHIVE_WORD);
    }

    // Returns whether a file has the name of one of these:
    // - a save (".sav").
    // - a previous save (".sav.1").
    // - a save that was put aside (".sav.old", ".sav.old1").
    bool HasSaveName(std::string_view sFile)
    {
        std::size_t const nEnd = sFile.find_last_not_of(plat::DECIMAL_DIGITS) + 1;
        bool const bNumber = nEnd < sFile.size();
        sFile = sFile.substr(0, nEnd);
        return sFile.ends_with(".sav.old") || sFile.ends_with(bNumber ? ".sav." : ".sav");
    }

    // A file and what was found in it.
    struct Archive_s
    {
        std::string sBytes;
        bool bSave = false, bCache = false;   // whether it is a save, or a file system cache
        SaveCheck_t Save;
        std::size_t nArchive = 0;   // bytes without a seal or a checksum
        std::uint32_t dwVersion = 0;
        ArchiveScan_t Scan;
    };

    std::string StateText(FileSave_c::State_e eState)
    {
        constexpr char const * NAMES[] = { "sound", "absent", "unreadable", "damaged", "newer", "older" };
        return NAMES[eState];
    }

    std::string KindText(Archive_s const & Archive)
    {
        return Archive.bCache ? "cache" : Archive.bSave ? "save" : "archive";
    }

    bool IsSound(Archive_s const & Archive)
    {
        return Archive.Scan.dProblems.empty() && (!Archive.bSave || Archive.Save.eState == FileSave_c::WHOLE);
    }

    // Returns whether a file is probably no archive: its major version is above MAX_MAJOR, and nothing in it but texts
    // is recognised. Returns false for a save.
    bool IsForeign(Archive_s const & Archive)
    {
        constexpr int MAX_MAJOR = 255;
        auto const & dParts = Archive.Scan.dParts;
        return !Archive.bSave && VersionMajor(Archive.dwVersion) > MAX_MAJOR
               && std::all_of(dParts.begin(), dParts.end(),
                   [](ArchivePart_t const & Part)
                   { return Part.eKind == ArchivePart_e::Bytes || Part.eKind == ArchivePart_e::Text; });
    }

    // Fills the other members of Archive from its bytes and the file's name.
    void Analyse(
        Archive_s & Archive, std::string const & sFile, ArchiveNames_c const & Names, Options_s const & Options)
    {
        std::string const & sBytes = Archive.sBytes;
        Archive.nArchive = sBytes.size();
        if (sBytes.size() >= ARCHIVE_WORD)
        {
            Archive.dwVersion = ReadAs<std::uint32_t>(sBytes, 0);
        }
        Archive.Save = SaveCheck(reinterpret_cast<unsigned char const *>(sBytes.data()), sBytes.size(),
            Options.dwReads.value_or(Archive.dwVersion));
        Archive.bSave = Archive.Save.bMark || Archive.Save.bChecksum || HasSaveName(sFile);
        if (Archive.Save.bMark)
        {
            Archive.nArchive -= SAVE_SEAL_SIZE;
        }
        else if (Archive.Save.bChecksum)
        {
            Archive.nArchive -= ARCHIVE_WORD;
        }
        std::string_view const sArchive = std::string_view(sBytes).substr(0, Archive.nArchive);
        Archive.bCache = !Archive.bSave && IsCache(sArchive);
        if (sArchive.size() < ARCHIVE_WORD)
        {
            Archive.Scan.dProblems.push_back({ sArchive.size(), "the archive ends before its version" });
        }
        else if (!Archive.bCache)
        {
            Archive.Scan = ScanArchive(sArchive, Names);
            if (IsForeign(Archive))
            {
                Archive.Scan.dProblems.push_back(
                    { 0, "this seems to be no archive: nothing in it but texts is recognised" });
            }
        }
    }

    std::string Identifier(std::int64_t iObject)
    {
        return iObject == -1 ? "null" : "#" + std::to_string(iObject);
    }

    // Returns what a recognised part is, without its offset and indentation.
    std::string Describe(ArchivePart_t const & Part)
    {
        std::string const sQuoted = "\"" + Printable(Part.sName) + "\"";
        switch (Part.eKind)
        {
        case ArchivePart_e::Label:
            return "label " + sQuoted;
        case ArchivePart_e::Chunk:
            return "chunk " + (Part.sName.empty() ? Hex(Part.dwName) : sQuoted) + ", " + std::to_string(Part.iValue)
                   + " bytes";
        case ArchivePart_e::Text:
            return "text " + sQuoted;
        case ArchivePart_e::Pass:
            return "object graph";
        case ArchivePart_e::Statics:
            return "static objects: " + std::to_string(Part.iValue);
        case ArchivePart_e::Object:
            return "object " + Identifier(Part.iValue) + " of class " + sQuoted;
        case ArchivePart_e::ObjectEnd:
            return "end of " + sQuoted;
        case ArchivePart_e::Pointer:
            return "pointer " + Identifier(Part.iValue);
        case ArchivePart_e::Registered:
            return "address " + Identifier(Part.iValue);
        default:
            return "";
        }
    }

    // Appends the offset and the indentation of a line.
    void AppendHead(std::string & sOut, std::size_t nAt, int nDepth)
    {
        char szOffset[24];
        std::snprintf(szOffset, sizeof szOffset, "%08zX  ", nAt);
        constexpr int MAX_INDENT = 32;
        sOut.append(szOffset).append(static_cast<std::size_t>(std::min(nDepth, MAX_INDENT)) * 2, ' ');
    }

    void AppendHex(std::string & sOut, char cByte)
    {
        sOut += plat::HEX_DIGITS[static_cast<unsigned char>(cByte) >> 4];
        sOut += plat::HEX_DIGITS[static_cast<unsigned char>(cByte) & 0xF];
    }

    // Appends bytes as lines of hexadecimal digits and characters.
    void AppendDump(std::string & sOut, std::string_view sBytes, std::size_t nAt, int nDepth)
    {
        constexpr std::size_t LINE = 16;   // bytes
        while (!sBytes.empty())
        {
            AppendHead(sOut, nAt, nDepth);
            std::string sCharacters;
            for (std::size_t i = 0; i < LINE; ++i)
            {
                if (i >= sBytes.size())
                {
                    sOut += "   ";
                    continue;
                }
                AppendHex(sOut, sBytes[i]);
                sOut += ' ';
                sCharacters += sBytes[i] >= ' ' && sBytes[i] < 0x7F ? sBytes[i] : '.';
            }
            sOut += ' ' + sCharacters + '\n';
            sBytes.remove_prefix(std::min(LINE, sBytes.size()));
            nAt += LINE;
        }
    }

    class Viewer_c
    {
    public:
        explicit Viewer_c(Options_s const & Options)
            : m_Options(Options)
        {}

        int Run()
        {
            if (!m_Options.sNames.empty() && !ReadNames())
            {
                return EXIT_FOUND;
            }
            bool bSound = true;
            for (std::string const & sFile : m_Options.dFiles)
            {
                Archive_s Archive;
                if (std::string const sWhyNot = ReadInput(sFile, Archive.sBytes); !sWhyNot.empty())
                {
                    PrintProblem(sFile, sWhyNot);
                    m_Files.push_back(
                        { { "file", sFile }, { "problems", { { { "offset", 0 }, { "text", sWhyNot } } } } });
                    bSound = false;
                    continue;
                }
                Analyse(Archive, sFile, m_Names, m_Options);
                bSound = IsSound(Archive) && bSound;
                if (m_Options.bJson)
                {
                    m_Files.push_back(JsonOf(sFile, Archive));
                }
                else
                {
                    Show(sFile, Archive);
                }
            }
            if (m_Options.bJson)
            {
                PrintJson({ { "files", m_Files } });
            }
            return bSound ? EXIT_DONE : EXIT_FOUND;
        }

    private:
        // Reads a list of names, one a line. A line that begins with # is a comment. Returns false, and prints why, if
        // the list can't be read.
        bool ReadNames()
        {
            std::string sBytes;
            if (std::string const sWhyNot = ReadInput(m_Options.sNames, sBytes); !sWhyNot.empty())
            {
                PrintProblem(m_Options.sNames, sWhyNot);
                return false;
            }
            std::istringstream Lines(sBytes);
            for (std::string sLine; std::getline(Lines, sLine);)
            {
                sLine.erase(sLine.find_last_not_of(" \t\r") + 1);
                sLine.erase(0, sLine.find_first_not_of(" \t"));
                if (!sLine.empty() && sLine[0] != '#')
                {
                    m_Names.Add(sLine);
                }
            }
            return true;
        }

        void Show(std::string const & sFile, Archive_s const & Archive)
        {
            std::size_t const nBytes = Archive.sBytes.size();
            std::printf("%s: %s, %zu bytes, version %s", Printable(sFile).c_str(), KindText(Archive).c_str(), nBytes,
                ArchiveVersionText(Archive.dwVersion).c_str());
            if (Archive.bSave)
            {
                bool const bWhole = Archive.Save.eState == FileSave_c::WHOLE;
                std::printf(
                    ": %s", Painted(StateText(Archive.Save.eState), bWhole ? Colour_e::Good : Colour_e::Bad).c_str());
            }
            std::puts("");
            if (Archive.bCache)
            {
                std::printf("This is a cache of the file system: zqtool cache %s\n", Printable(sFile).c_str());
            }
            std::string sOut;
            for (ArchivePart_t const & Part : Archive.Scan.dParts)
            {
                Append(sOut, Part, Archive.sBytes);
                if (sOut.size() > OUTPUT_SIZE)
                {
                    std::fwrite(sOut.data(), 1, sOut.size(), stdout);
                    sOut.clear();
                }
            }
            std::fwrite(sOut.data(), 1, sOut.size(), stdout);
            ShowSeal(Archive);
            ShowProblems(sFile, Archive);
        }

        // Returns the number of bytes to show of a part that is not recognised.
        std::size_t CountShown(ArchivePart_t const & Part) const
        {
            return m_Options.bRaw ? Part.nBytes : std::min(Part.nBytes, SHOWN_BYTES);
        }

        void Append(std::string & sOut, ArchivePart_t const & Part, std::string_view sBytes) const
        {
            if (Part.eKind != ArchivePart_e::Bytes)
            {
                AppendHead(sOut, Part.nAt, Part.nDepth);
                sOut += Describe(Part) + '\n';
                return;
            }
            std::size_t const nShown = CountShown(Part);
            AppendDump(sOut, sBytes.substr(Part.nAt, nShown), Part.nAt, Part.nDepth);
            if (nShown < Part.nBytes)
            {
                AppendHead(sOut, Part.nAt + nShown, Part.nDepth);
                sOut += std::to_string(Part.nBytes - nShown) + " more bytes (--raw)\n";
            }
        }

        static void ShowSeal(Archive_s const & Archive)
        {
            if (!Archive.Save.bMark)
            {
                return;
            }
            std::string const & sBytes = Archive.sBytes;
            auto const nLength = ReadAs<std::uint64_t>(sBytes, Archive.nArchive + ARCHIVE_WORD);
            auto const dwCrc = ReadAs<std::uint32_t>(sBytes, sBytes.size() - ARCHIVE_WORD);
            auto const dwFound = GetCrc32Polynomial(sBytes.data(), static_cast<int>(sBytes.size() - ARCHIVE_WORD));
            std::printf("%08zX  seal, version %c, %" PRIu64 " bytes%s, CRC-32 %s%s\n", Archive.nArchive,
                sBytes[Archive.nArchive + SAVE_SEAL_VERSION_AT], nLength,
                nLength == Archive.nArchive ? "" : (" of " + std::to_string(Archive.nArchive)).c_str(),
                Hex(dwCrc).c_str(), dwCrc == dwFound ? "" : (", found " + Hex(dwFound)).c_str());
        }

        static void ShowProblems(std::string const & sFile, Archive_s const & Archive)
        {
            for (ArchiveProblem_t const & Problem : Archive.Scan.dProblems)
            {
                char szOffset[32];
                std::snprintf(szOffset, sizeof szOffset, "byte 0x%zX: ", Problem.nAt);
                PrintProblem(sFile, szOffset + Problem.sText);
            }
            if (Archive.bSave && Archive.Save.eState != FileSave_c::WHOLE)
            {
                PrintProblem(sFile, StateText(Archive.Save.eState) + ": " + Archive.Save.sWhyNot.CStr());
            }
        }

        Json_t JsonOf(std::string const & sFile, Archive_s const & Archive) const
        {
            Json_t Json = { { "file", sFile }, { "kind", KindText(Archive) }, { "bytes", Archive.sBytes.size() },
                { "version", ArchiveVersionText(Archive.dwVersion) } };
            if (Archive.bSave)
            {
                Json["state"] = StateText(Archive.Save.eState);
                Json["why_not"] = Archive.Save.sWhyNot.CStr();
            }
            Json_t Parts = Json_t::array(), Problems = Json_t::array();
            for (ArchivePart_t const & Part : Archive.Scan.dParts)
            {
                Parts.push_back(JsonOf(Part, Archive.sBytes));
            }
            for (ArchiveProblem_t const & Problem : Archive.Scan.dProblems)
            {
                Problems.push_back({ { "offset", Problem.nAt }, { "text", Problem.sText } });
            }
            Json["parts"] = std::move(Parts);
            Json["problems"] = std::move(Problems);
            return Json;
        }

        Json_t JsonOf(ArchivePart_t const & Part, std::string_view sBytes) const
        {
            constexpr char const * KINDS[] = { "bytes", "label", "chunk", "text", "graph", "statics", "object",
                "object_end", "pointer", "address" };
            Json_t Json;   // an initialiser list copies each value, and there may be very many parts
            Json["offset"] = Part.nAt;
            Json["bytes"] = Part.nBytes;
            Json["depth"] = Part.nDepth;
            Json["kind"] = KINDS[static_cast<int>(Part.eKind)];
            switch (Part.eKind)
            {
            case ArchivePart_e::Bytes:
                Json["hex"] = HexOf(sBytes.substr(Part.nAt, CountShown(Part)));
                break;
            case ArchivePart_e::Chunk:
                Json["name"] = Part.sName.empty() ? Json_t() : Json_t(std::string(Part.sName));
                Json["crc"] = Part.dwName;
                Json["payload"] = Part.iValue;
                break;
            case ArchivePart_e::Statics:
                Json["count"] = Part.iValue;
                break;
            case ArchivePart_e::Text:
                Json["text"] = std::string(Part.sName);
                break;
            case ArchivePart_e::Label:
            case ArchivePart_e::ObjectEnd:
                Json["name"] = std::string(Part.sName);
                break;
            case ArchivePart_e::Object:
                Json["name"] = std::string(Part.sName);
                [[fallthrough]];
            case ArchivePart_e::Pointer:
            case ArchivePart_e::Registered:
                Json["identifier"] = Part.iValue;
                break;
            default:
                break;
            }
            return Json;
        }

        static std::string HexOf(std::string_view sBytes)
        {
            std::string sHex;
            for (char const cByte : sBytes)
            {
                AppendHex(sHex, cByte);
            }
            return sHex;
        }

        Options_s const & m_Options;
        ArchiveNames_c m_Names;
        Json_t m_Files = Json_t::array();
    };

    // Reads a version such as "2.29". Returns what is wrong with it, or an empty text.
    std::string ReadVersion(std::string const & sText, std::uint32_t & dwVersion)
    {
        constexpr std::uint64_t MAX_NUMBER = 0xFFFF;
        std::string_view sRest = sText;
        std::uint64_t const nMajor = TakeNumber(sRest, 10).value_or(MAX_NUMBER + 1);
        std::uint64_t const nMinor =
            TakeStart(sRest, ".") ? TakeNumber(sRest, 10).value_or(MAX_NUMBER + 1) : MAX_NUMBER + 1;
        bool const bGood = sRest.empty() && nMajor <= MAX_NUMBER && nMinor <= MAX_NUMBER;
        dwVersion = static_cast<std::uint32_t>(nMajor << 16 | (nMinor & MAX_NUMBER));
        return bGood ? "" : sText + " is not a version such as 2.29";
    }
}

CommandRun_t PrepareArchive(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments.AddTexts("FILE", "", pOptions->dFiles, "archives and saves").SetRequired();
    Arguments.AddText(
        "--names", "FILE", pOptions->sNames, "names of chunks and labels, one a line; archives hold only their hashes");
    Arguments.AddRead("--reads", "VERSION", "newest version that the program reads, for the state of a save")
        .SetReader([pOptions](std::string const & sText) { return ReadVersion(sText, pOptions->dwReads.emplace()); });
    Arguments.AddFlag(
        "--raw", pOptions->bRaw, "print all bytes that are not recognised, not only the first of each part");
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool archive --names names.txt saves/one.sav");
    return [pOptions] { return Viewer_c(*pOptions).Run(); };
}
