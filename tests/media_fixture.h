// media_fixture.h: a fresh media tree and fresh tables for each test of the file services.
#pragma once

#include "tests/test_support.h"

#include "zqcore/ccallback.h"
#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A file of the tree; a name that ends in a separator is a folder.
struct MediaRow_s
{
    std::string sName;
    std::string sContents;
};

class MediaTest : public testing::Test
{
protected:
    MediaTest()
    {
        FileReset();
        s_dReadErrors.clear();
        g_FileReadErrorCallbacker.Add([](char const * szKey) { s_dReadErrors.push_back(szKey); }, false);
    }

    ~MediaTest() override
    {
        g_FileReadErrorCallbacker.Reset();
        FileReset();
        EXPECT_EQ(g_dOpenTracks.GetLength(), 0) << "handles left open";
        SetPQXMediaPath("");
        SetPQXCurrentConfig("");
    }

    void Make(std::vector<MediaRow_s> const & dRows)
    {
        for (MediaRow_s const & row : dRows)
        {
            row.sName.back() == '/' ? Folder.MakeFolder(row.sName) : Folder.Write(row.sName, row.sContents);
        }
    }

    bool Scan(bool bRelativeNames = false) { return FileAddSearchPath(Folder.GetPath().c_str(), true, bRelativeNames); }

    void MakeAndScan(std::vector<MediaRow_s> const & dRows)
    {
        Make(dRows);
        ASSERT_TRUE(Scan());
    }

    /// A path below the tree as the tables have it.
    std::string Folded(std::string const & sName) const { return std::string(FoldedPath_c(Folder.Join(sName).c_str())); }

    /// All keys in alphabetic order, joined by blanks.
    static std::string Keys()
    {
        std::vector<std::string> dKeys;
        for (auto * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot))
        {
            dKeys.emplace_back(*pSlot->pName);
        }
        std::sort(dKeys.begin(), dKeys.end());
        std::string sKeys;
        for (std::string const & sKey : dKeys)
        {
            sKeys += (sKeys.empty() ? "" : " ") + sKey;
        }
        return sKeys;
    }

    static std::string Contents(File_c const * pFile)
    {
        return pFile && pFile->pData ? std::string(pFile->pData, pFile->pData + pFile->iLength) : "(none)";
    }

    static std::ptrdiff_t FileBlocks()
    {
        mem::CategoryInfo dInfo[mem::TOTAL];
        std::ptrdiff_t iAllocs, iBytes, iMaxBytes;
        MemoryCategoriesGet(dInfo, iAllocs, iBytes, iMaxBytes);
        return dInfo[mem::file].iCount;
    }

    static inline std::vector<std::string> s_dReadErrors;   // keys that g_FileReadErrorCallbacker was told
    TempFolder_c Folder;
    LogCapture_c Log;
    DialogScript_c Dialogs;
};
