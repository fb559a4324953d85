#include "survey.h"

#include "zqcore/cfile.h"
#include "zqcore/cfilepath.h"
#include "zqcore/ctimer.h"
#include "zqcore/cwarehouse.h"

#include <algorithm>
#include <cstring>

namespace
{
    constexpr std::uint32_t HEADER_REACH = 65536;    // bytes at a file's start that may hold a table's header line
    constexpr std::uint32_t WHOLE_LIMIT = 1 << 20;   // bytes up to which a frame reads a whole file
    constexpr std::size_t PIECE_SIZE = 65536;        // bytes that a frame reads of a bigger file

    // Returns whether the first HEADER_REACH bytes of a resident file have the word that begins a table's header line.
    bool HasHeaderWord(File_c const & File)
    {
        auto const * pText = reinterpret_cast<char const *>(File.pData);
        char const * const pEnd = pText + std::min(SizeOf(File), HEADER_REACH);
        auto const nWord = static_cast<std::ptrdiff_t>(std::strlen(WAREHOUSE_HEADER));
        while (pEnd - pText >= nWord)
        {
            pText = static_cast<char const *>(
                std::memchr(pText, WAREHOUSE_HEADER[0], static_cast<std::size_t>(pEnd - pText)));
            if (!pText || pEnd - pText < nWord)
            {
                return false;
            }
            if (StrCompareNoCase(pText, WAREHOUSE_HEADER, static_cast<std::size_t>(nWord)) == 0)
            {
                return true;
            }
            ++pText;
        }
        return false;
    }

    int CountRows(Warehouse_c & Table)
    {
        int nRows = 0;
        String_T<256> sIdent;
        for (Table.StartIdent(); Table.NextIdent(sIdent);)
        {
            ++nRows;
        }
        return nRows;
    }

    // Reads the first piece of a file that is too big for one frame.
    void StreamPiece(File_c const & File)
    {
        static unsigned char s_dPiece[PIECE_SIZE];
        if (FileStoredScope_c const Stream(File.sName); Stream)
        {
            Stream->ReadStored(s_dPiece, 1, sizeof s_dPiece);
        }
    }

    // Returns 1 if nFirst is greater than nSecond, -1 if it is less, and 0 if they are equal.
    template <typename NUMBER>
    int OrderOf(NUMBER nFirst, NUMBER nSecond)
    {
        return nFirst > nSecond ? 1 : nFirst < nSecond ? -1 : 0;
    }
}

std::uint32_t SizeOf(File_c const & File)
{
    return static_cast<std::uint32_t>(File.iLength);
}

void Survey_c::List()
{
    for (auto * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot))
    {
        ++m_nFolders;
    }
    for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
    {
        File_c & File = *pSlot->pObject;
        m_dFiles.Add(&File);
        m_nBytes += SizeOf(File);
        CountExtension(File);
    }
    // A positive result puts the first argument before the second.
    m_dFiles.Sort([](File_c const * pA, File_c const * pB) { return OrderOf(SizeOf(*pA), SizeOf(*pB)); }, 0, -1);
    m_dExtensions.Sort([](Extension_s const & a, Extension_s const & b) { return OrderOf(a.nBytes, b.nBytes); }, 0, -1);
}

void Survey_c::CountExtension(File_c const & File)
{
    Extension_s * pExtension = nullptr;
    for (Extension_s & Known : m_dExtensions)
    {
        if (Known.sExt == File.GetExt())
        {
            pExtension = &Known;
            break;
        }
    }
    if (!pExtension)
    {
        pExtension = &m_dExtensions[m_dExtensions.Add(Extension_s{ File.GetExt() })];
    }
    ++pExtension->nFiles;
    pExtension->nBytes += SizeOf(File);
}

int Survey_c::CountDuplicates() const
{
    return static_cast<int>(
        std::count_if(m_dFiles.begin(), m_dFiles.end(), [](File_c const * pFile) { return pFile->bDuplicate; }));
}

void Survey_c::ReadFiles()
{
    for (File_c * const pFile : m_dFiles)
    {
        if (SizeOf(*pFile))
        {
            ReadFile(*pFile);
        }
        else
        {
            ++m_nEmpty;
        }
    }
}

void Survey_c::ReadFile(File_c & File)
{
    double const tOpening = longTimeGet();
    File_c * const pFile = FileOpen(File.sName);
    m_tReading += longTimeGet() - tOpening;
    if (!pFile)
    {
        ++m_nUnreadable;
        return;
    }
    ++m_nRead;
    m_nBytesRead += SizeOf(*pFile);
    if (!pFile->bDuplicate)   // opening such a file complains each time
    {
        m_dStreamed.Add(pFile);
    }
    if (HasHeaderWord(*pFile))
    {
        m_dTables.Add(Table_s{ pFile });
    }
    double const tClosing = longTimeGet();
    FileClose(pFile);
    m_tReading += longTimeGet() - tClosing;
}

void Survey_c::ReadTables()
{
    double const tStart = longTimeGet();
    for (int i = m_dTables.GetLength() - 1; i >= 0; --i)
    {
        Table_s & Table = m_dTables[i];
        Warehouse_c Warehouse;
        if (!Warehouse.Open(Table.pFile->sName))
        {
            m_dTables.Delete(i);   // the word was there, but not a header line
            continue;
        }
        Table.nRows = CountRows(Warehouse);
        m_nRows += Table.nRows;
    }
    m_tTables = longTimeGet() - tStart;
    m_dTables.Sort([](Table_s const & a, Table_s const & b)
        { return StrCompareNoCase(b.pFile->GetFullPath(), a.pFile->GetFullPath()); },
        0, -1);
}

void Survey_c::StreamFiles(int nFiles)
{
    for (int i = 0; i < nFiles && !m_dStreamed.IsEmpty(); ++i)
    {
        File_c & File = *m_dStreamed[m_iNext];
        m_iNext = (m_iNext + 1) % m_dStreamed.GetLength();
        if (SizeOf(File) > WHOLE_LIMIT)
        {
            StreamPiece(File);
        }
        else if (SizeOf(File) != 0)   // may have been emptied while the host runs
        {
            FileClose(FileOpen(File.sName));
        }
    }
}
