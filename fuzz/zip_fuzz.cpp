// zip_fuzz.cpp: archives of any bytes. What mounts is read in each way, and has the contents that libzip reads.
#include "fuzz/fuzz_support.h"
#include "zqcore/czip.h"

#include <fstream>
#include <zip.h>

namespace
{
    // Returns whether libzip reads these contents from an entry of this name.
    bool HasEntry(zip_t * pZip, std::string const & sName, std::string_view sContents)
    {
        for (zip_int64_t i = 0; i < zip_get_num_entries(pZip, 0); ++i)
        {
            auto const iEntry = static_cast<zip_uint64_t>(i);
            char const * const szName = zip_get_name(pZip, iEntry, 0);
            zip_file_t * const pFile = szName && sName == szName ? zip_fopen_index(pZip, iEntry, 0) : nullptr;
            if (pFile)
            {
                std::string sRead(sContents.size() + 1, '?');
                zip_int64_t const nRead = zip_fread(pFile, sRead.data(), sRead.size());
                zip_fclose(pFile);
                if (nRead >= 0 && sRead.substr(0, static_cast<std::size_t>(nRead)) == sContents)
                {
                    return true;
                }
            }
        }
        return false;
    }

    // Returns the contents of a file, read as a stream, or nothing if no stream opens.
    std::string Streamed(File_c & File)
    {
        std::string sRead;
        if (FileStored_c * const pStream = File.OpenStored())
        {
            char dPiece[1000];
            while (std::size_t const nRead = pStream->ReadStored(dPiece, 1, sizeof dPiece))
            {
                sRead.append(dPiece, nRead);
            }
            pStream->CloseStored();
        }
        return sRead;
    }

    // Checks the key of a mounted file, and its contents in each way of reading.
    void Check(File_c & File, zip_t * pZip, std::string const & sArchive)
    {
        std::string_view const sKey = File.sName;
        bool const bLeaves = ("\\" + std::string(sKey) + "\\").find("\\..\\") != std::string::npos;
        Require(!sKey.empty());
        Require(!bLeaves);
        Require(sKey[0] != '\\');
        Require(File.iLength >= 0);
        if (!FileOpen(&File))
        {
            Require(!File.pData);
            Require(File.GetOpensCount() == 0);
            Require(File.GetWhyNot() != "");
            Streamed(File);
            return;
        }
        std::string const sContents(File.pData, File.pData + File.iLength);
        FileClose(&File);
        Require(Streamed(File) == sContents);
        std::string const sPath(File.GetFullPath());
        // A path of 255 bytes may be cut.
        Require(sPath.size() >= 255 || HasEntry(pZip, sPath.substr(sArchive.size() + 1), sContents));
        if (sContents.size() > 2)
        {
            auto nBytes = static_cast<std::uint32_t>(sContents.size() / 2);
            std::uint32_t const nAt = nBytes / 2;
            std::string sRead(nBytes, '?');
            Require(File.Load(nAt, reinterpret_cast<unsigned char *>(sRead.data()), nBytes));
            Require(sRead == sContents.substr(nAt, nBytes));
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static std::string const & s_sArchive = *new std::string(MakeFuzzFolder() + "/fuzz.zip");
    FileSetEmptyAllowed(true);
    std::ofstream(s_sArchive, std::ios::binary).write(reinterpret_cast<char const *>(pData), static_cast<long>(nSize));
    if (FileZipMount(s_sArchive.c_str(), ZipOrder_e::Over, nSize % 2 != 0))
    {
        zip_t * const pZip = zip_open(s_sArchive.c_str(), ZIP_RDONLY, nullptr);
        Require(pZip != nullptr);
        for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
        {
            Check(*pSlot->pObject, pZip, s_sArchive);
        }
        zip_discard(pZip);
        Require(FileZipUnmount(s_sArchive.c_str()));
    }
    else
    {
        Require(FileZipGetWhyNot() != "");
    }
    Require(!g_sFileObjects.First());
    return 0;
}
