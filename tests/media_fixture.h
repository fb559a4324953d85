// media_fixture.h: a fresh media tree and fresh tables for each test of the file services and of what reads files.
#pragma once

#include "tests/test_support.h"

#include "zqcore/ccallback.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"
#include "zqcore/cmemory_internal.h"

#include <set>

namespace fs = std::filesystem;

/// Fixture with an empty media tree in m_Folder. Expects at its end that no handle is open, and that the number of
/// complaints is that of ExpectComplaints.
class MediaTest : public testing::Test
{
protected:
    MediaTest()
    {
        s_dReported.clear();
        g_FileReadErrorCallbacker.Add(NoteReport, false);
    }

    ~MediaTest() override
    {
        g_FileReadErrorCallbacker.Reset();
        FileReset();
        EXPECT_EQ(g_dOpenTracks.GetLength(), 0) << "handles left open";
        EXPECT_EQ(m_Dialogs.GetCount(), m_nComplaints) << m_Dialogs.GetText();
        SetPQXMediaPath("");
        SetPQXCurrentConfig("");
    }

    /// Writes files with their contents. A name that ends in `/` is a folder.
    void Make(std::initializer_list<std::pair<std::string, std::string>> dRows)
    {
        for (auto const & [sName, sContents] : dRows)
        {
            if (sName.back() == '/')
            {
                m_Folder.MakeFolder(sName);
            }
            else
            {
                m_Folder.Write(sName, sContents);
            }
        }
    }

    /// Writes and registers a file, and clears m_Log. Replaces one of that name, and expects that the replaced one is
    /// closed.
    void Serve(std::string const & sName, std::string const & sText)
    {
        if (File_c * const pPrevious = FileStream(sName.c_str()))
        {
            EXPECT_EQ(pPrevious->GetOpensCount(), 0) << sName << " was left open";
            FileKill(pPrevious);
        }
        ASSERT_TRUE(FileAddOneFile(m_Folder.Write(sName, sText).c_str()));
        m_Log.Clear();
    }

    /// Sets how many complaints the whole test makes. Without a call it is 0. Each is answered with Ignore, No or OK.
    void ExpectComplaints(int nComplaints) { m_nComplaints = nComplaints; }

    /// Scans the tree and returns whether that succeeded.
    bool Scan() { return FileAddSearchPath(m_Folder.GetPath().c_str(), true, false); }

    /// Returns a path below the tree as the tables have it.
    std::string Folded(std::string const & sName) const
    {
        return std::string(FoldedPath_c(m_Folder.Join(sName).c_str()));
    }

    /// Returns all keys of the table of files in alphabetic order, joined by blanks.
    static std::string Keys()
    {
        std::set<std::string> dKeys;
        for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
        {
            dKeys.emplace(*pSlot->pName);
        }
        std::string sKeys;
        for (std::string const & sKey : dKeys)
        {
            sKeys += (sKeys.empty() ? "" : " ") + sKey;
        }
        return sKeys;
    }

    /// Starts and ends the module of the files and what it needs. Returns the keys in between.
    static std::string RunForKeys()
    {
        EXPECT_TRUE(StartModule(ModuleFile_c::Get()));
        std::string const sKeys = Keys();
        Module_c::ShutdownAllModules();
        return sKeys;
    }

    /// Returns the contents that a file has in memory, or "(none)".
    static std::string Contents(File_c const * pFile)
    {
        return pFile && pFile->pData ? std::string(pFile->pData, pFile->pData + pFile->iLength) : "(none)";
    }

    /// Returns the number of blocks of the category mem::file.
    static std::ptrdiff_t FileBlocks() { return g_MemoryCounters.dCount[mem::file]; }

    /// Stores the text of an event in s_dReported. Listens to g_FileReadErrorCallbacker from the start.
    static void NoteReport(char const * szText)
    {
        MemCategoryScope_c const Category(mem::Tools);
        s_dReported.push_back(szText);
    }

    static inline std::vector<std::string> s_dReported;
    TempFolder_c m_Folder;
    LogCapture_c m_Log;
    DialogScript_c m_Dialogs;

private:
    int m_nComplaints = 0;
};
