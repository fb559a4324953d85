#include "saves.h"

#include "world.h"

#include "zqcore/ccrc.h"
#include "zqcore/cfile.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cserialize.h"
#include "zqcore/ctimer.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace
{
    constexpr std::uint32_t SAVE_VERSION = 0x00010000;
    constexpr int SEAL_SIZE = 4;

    std::uint32_t ReadWord(unsigned char const * pData)
    {
        std::uint32_t dwWord;
        std::memcpy(&dwWord, pData, sizeof dwWord);
        return dwWord;
    }

    // Says what keeps a file from being a save of this host.
    std::string Check(File_c const & File)
    {
        int const nArchive = File.iLength - SEAL_SIZE;
        if (nArchive < static_cast<int>(sizeof SAVE_VERSION))
        {
            return "it is damaged";
        }
        std::uint32_t const dwVersion = ReadWord(File.pData);
        if (dwVersion != SAVE_VERSION)
        {
            return Va("it is of version %u.%u, and this host reads %u.%u", dwVersion >> 16, dwVersion & 0xFFFF,
                SAVE_VERSION >> 16, SAVE_VERSION & 0xFFFF);
        }
        bool const bSealed =
            ReadWord(File.pData + nArchive) == GetCrc32Polynomial(reinterpret_cast<char *>(File.pData), nArchive);
        return bSealed ? "" : "it is damaged";
    }

    // All that is stored, in both directions. What is wrong with it.
    std::string Serialize(Serializeable_c & Archive, std::string const & sGame, ModuleWorld_c & World)
    {
        String_T<64> sOfGame = sGame.c_str();
        Archive.SerializeString(sOfGame);
        if (sOfGame != sGame.c_str())
        {
            Archive.Fail();
            return std::string("it is of the game ") + static_cast<char const *>(sOfGame);
        }
        MemCategoryScope_c const Scope(mem::GameWorld);
        return static_cast<char const *>(BaySerialize(Archive, World.GetBay()));
    }

    // Reads an open save and closes it.
    std::string LoadOpen(File_c & File, std::string const & sGame, ModuleWorld_c & World)
    {
        std::string sWhyNot = Check(File);
        if (!sWhyNot.empty())
        {
            FileClose(&File);
            return sWhyNot;
        }
        Readable_c Archive(&File, SAVE_VERSION);   // which closes the file
        Archive.Open();
        sWhyNot = Serialize(Archive, sGame, World);
        return sWhyNot.empty() && Archive.IsFailed() ? "it is not whole" : sWhyNot;
    }

    std::string Load(std::string const & sFile, std::string const & sGame, ModuleWorld_c & World)
    {
        std::error_code Error;
        if (std::filesystem::is_empty(sFile, Error) || Error)   // the library takes an empty file for a fault
        {
            return Error ? "it can't be read" : "it is empty";
        }
        char const * const szBare = PathFileName(sFile.c_str());
        File_c * const pFile = FileAddOneFile(sFile.c_str()) ? FileOpen(szBare) : nullptr;
        if (!pFile)
        {
            return "it can't be read";
        }
        std::string const sWhyNot = LoadOpen(*pFile, sGame, World);
        FileKill(pFile);   // a save is no part of the media
        return sWhyNot;
    }

    // The seal of a file that was just written; false if the disk did not take all.
    bool Seal(std::string const & sFile)
    {
        std::ifstream Stream(sFile, std::ios::binary);
        std::string const sBytes{ std::istreambuf_iterator<char>(Stream), std::istreambuf_iterator<char>() };
        std::uint32_t const dwSeal = GetCrc32Polynomial(sBytes.data(), static_cast<int>(sBytes.size()));
        std::ofstream End(sFile, std::ios::binary | std::ios::app);
        End.write(reinterpret_cast<char const *>(&dwSeal), sizeof dwSeal);
        End.close();
        return !Stream.fail() && !End.fail();
    }

    std::string Store(std::string const & sFile, std::string const & sGame, ModuleWorld_c & World)
    {
        FileReplacement_c Replacement(sFile.c_str());
        BufferedWriteable_c Archive(Replacement.GetBeside(), SAVE_VERSION);
        std::string const sWhyNot = Archive.Open() ? Serialize(Archive, sGame, World) : "";
        bool const bWhole = Archive.Close() && !Archive.IsFailed() && Seal(Replacement.GetBeside());
        return bWhole && Replacement.Commit() ? "" : sWhyNot.empty() ? "the file can't be written" : sWhyNot;
    }

    long long FileSize(std::string const & sFile)
    {
        std::error_code Error;
        std::uintmax_t const nBytes = std::filesystem::file_size(sFile, Error);
        return Error ? 0 : static_cast<long long>(nBytes);
    }

    // Where the file went, under a name that nothing has; empty if it can't be moved.
    std::string PutAside(std::string const & sFile)
    {
        constexpr int MAX_KEPT = 100;
        std::error_code Error;
        for (int i = 0; i < MAX_KEPT; ++i)
        {
            std::string const sTo = sFile + ".old" + (i > 0 ? std::to_string(i) : "");
            if (!std::filesystem::exists(std::filesystem::symlink_status(sTo, Error)))
            {
                std::filesystem::rename(sFile, sTo, Error);
                return Error ? "" : sTo;
            }
        }
        return "";
    }
}

SaveResult_s SaveLoad(std::string const & sFile, std::string const & sGame, ModuleWorld_c & World)
{
    SaveResult_s Result;
    std::error_code Error;
    if (!std::filesystem::exists(sFile, Error))
    {
        Result.sWhyNot = "there is no save yet";
        return Result;
    }
    if (!std::filesystem::is_regular_file(sFile, Error))
    {
        Result.sWhyNot = "it is no regular file";
        Result.bInTheWay = true;
        return Result;
    }
    double const tStart = longTimeGet();
    Result.sWhyNot = Load(sFile, sGame, World);
    Result.tTaken = longTimeGet() - tStart;
    Result.nBytes = FileSize(sFile);
    if (!Result.sWhyNot.empty())
    {
        World.Begin();
        Result.sKept = PutAside(sFile);
        Result.bInTheWay = Result.sKept.empty();
    }
    return Result;
}

SaveResult_s SaveStore(std::string const & sFile, std::string const & sGame, ModuleWorld_c & World)
{
    SaveResult_s Result;
    double const tStart = longTimeGet();
    Result.sWhyNot = Store(sFile, sGame, World);
    Result.tTaken = longTimeGet() - tStart;
    Result.nBytes = FileSize(sFile);
    return Result;
}
