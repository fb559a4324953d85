// text_fixture.h: files for the readers of text, gone with all tables at the end of each test.
#pragma once

#include "tests/test_support.h"
#include "zqcore/cfile.h"
#include "zqcore/cfilepath.h"

#include <gtest/gtest.h>

class TextFileTest : public testing::Test
{
protected:
    ~TextFileTest() override { FileReset(); }

    /// Writes and registers a file, in the place of a former one of that name, which must be closed.
    void Serve(std::string const & sName, std::string const & sText)
    {
        if (File_c * const pFormer = FileStream(sName.c_str()))
        {
            EXPECT_EQ(pFormer->GetOpensCount(), 0) << sName << " was left open";
            FileKill(pFormer);
        }
        ASSERT_TRUE(FileAddOneFile(Folder.Write(sName, sText).c_str()));
        Log.Clear();
    }

    TempFolder_c Folder;
    LogCapture_c Log;
    DialogScript_c Dialogs;
};
