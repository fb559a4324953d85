#include "tests/test_support.h"
#include "zqcore/cclipboard.h"

namespace
{
    int g_nWaits = 0;

    // Counts the waits of 100 milliseconds and does not wait. Serves as the wait function.
    void CountWait(unsigned nMilliseconds)
    {
        g_nWaits += nMilliseconds == 100;
    }

    class ClipboardTest : public testing::Test
    {
    protected:
        ClipboardTest()
        {
            plat::ClipboardSetFolder(m_Folder.Join("clip/board").c_str());
            EXPECT_TRUE(StartModule(ModuleClipboard_c::Get()));
            g_nWaits = 0;
        }
        ~ClipboardTest() override
        {
            if (g_isOpen)
            {
                ClipboardClose();
            }
            Module_c::ShutdownAllModules();
            plat::ClipboardSetFolder(nullptr);
            plat::ClipboardSetWait(nullptr);
        }

        // Returns the text of the open clipboard, or "none".
        static std::string Text()
        {
            std::string sText(ClipboardGetSize(), '?');
            bool const bText = ClipboardGetData(sText.data());
            return bText ? sText.c_str() : "none";
        }

        // Opens the clipboard, and closes it again. Returns the result of Text in between.
        static std::string ReadTextOfClosed()
        {
            ClipboardOpen();
            std::string const sText = Text();
            ClipboardClose();
            return sText;
        }

        // Starts a child that opens the clipboard, puts "kept" there and calls fnHold. Returns the child's number once
        // the text is there.
        static int StartHolder(void (*fnHold)())
        {
            Gate_c const Holds;
            auto const Hold = [&]
            {
                ClipboardOpen();
                ClipboardPrintf("kept");
                Holds.Open();
                fnHold();
                return 0;
            };
            int const iChild = StartChild(Hold);
            EXPECT_TRUE(Holds.Wait());
            return iChild;
        }

        TempFolder_c const m_Folder;
    };
}

TEST_F(ClipboardTest, TextIsAppendedAndOutlivesTheClosing)
{
    EXPECT_NE(g_iTextFormat, 0u);
    EXPECT_EQ(ClipboardGetSize(), 0u) << "closed";
    ClipboardOpen();
    EXPECT_EACH(g_isOpen, ClipboardIsEmpty(), ClipboardGetSize() == 1);   // the terminator counts
    EXPECT_EQ(Text(), "");
    ClipboardPrintf("%s", "ab");
    ClipboardPrintf("c%c", 'd');
    EXPECT_EQ(ClipboardGetSize(), 5u);
    ClipboardClose();
    EXPECT_EQ(ReadTextOfClosed(), "abcd");
    ClipboardOpen();
    ClipboardReset();
    EXPECT_TRUE(ClipboardIsEmpty());
}

TEST_F(ClipboardTest, LongerTextIsCutAndAFullDiskKeepsTheOldText)
{
    std::string const sLong(70000, 'x'), sExpected = sLong.substr(0, 65536) + '!';
    ClipboardOpen();
    ClipboardPrintf("%s", sLong.c_str());
    ClipboardPrintf("!");
    EXPECT_EQ(Text(), sExpected);
    {
        FullDisk_c const Full(1000);
        EXPECT_EQ(FailedConditions([] { ClipboardPrintf("more"); }), "g_hClipboard != nullptr");
    }
    EXPECT_EQ(Text(), sExpected);
    EXPECT_FALSE(std::filesystem::exists(m_Folder.Join("clip/board/busy"))) << "nothing keeps the disk full";
}

TEST_F(ClipboardTest, WhatIsLeftInItsFolderIsReplacedByPrivateFiles)
{
    m_Folder.Write("clip/board/busy", "of a killed process");
    EXPECT_EQ(ReadTextOfClosed(), "");
    EXPECT_FALSE(std::filesystem::exists(m_Folder.Join("clip/board/busy")));
    ClipboardOpen();
    MakePipe(m_Folder.Join("clip/board/busy"));
    ClipboardReset();
    ClipboardClose();
    for (char const * szFile : { "clip/board/=zq_text", "clip/board/lock" })
    {
        auto const Status = std::filesystem::status(m_Folder.Join(szFile));
        EXPECT_EQ(Status.permissions(), std::filesystem::perms(0600)) << szFile;
        EXPECT_TRUE(is_regular_file(Status)) << szFile;
    }
}

TEST_F(ClipboardTest, CallsFailTheirConditionWhileItIsClosed)
{
    for (auto const & [szCall, fnCall] :
        Rows_t<char const *, void (*)()>{ { "Printf", [] { ClipboardPrintf("x"); } }, { "Reset", ClipboardReset },
            { "Close", ClipboardClose }, { "GetData", [] { EXPECT_FALSE(ClipboardGetData(nullptr)); } },
            { "IsEmpty", [] { EXPECT_FALSE(ClipboardIsEmpty()); } } })
    {
        EXPECT_EQ(FailedConditions(fnCall), "g_isOpen == true") << szCall;
    }
}

TEST_F(ClipboardTest, OtherFormatsGoWhenTheTextComes)
{
    unsigned const iOther = plat::ClipboardRegisterFormat("Other/format");
    EXPECT_EQ(plat::ClipboardRegisterFormat("zq_text"), g_iTextFormat);
    EXPECT_EQ(plat::ClipboardRegisterFormat(std::string(300, 'n').c_str()), 0u);
    for (bool const bText : { false, true })   // the first opening makes an empty text
    {
        EXPECT_EACH(plat::ClipboardTryOpen(), plat::ClipboardSet(iOther, plat::ClipboardBlockAllocate(3)),
            plat::ClipboardClose());
        ClipboardOpen();
        EXPECT_EQ(plat::ClipboardBlockSize(plat::ClipboardGet(iOther)), bText ? 3u : 0u);
        EXPECT_EQ(Text(), bText ? "text" : "");
        ClipboardPrintf("text");
        EXPECT_EQ(plat::ClipboardGet(iOther), nullptr);
        ClipboardClose();
    }
    EXPECT_EQ(ReadTextOfClosed(), "texttext");
    EXPECT_EACH(plat::ClipboardTryOpen(), plat::ClipboardEmpty(), plat::ClipboardClose());
    EXPECT_EQ(ReadTextOfClosed(), "");
}

TEST_F(ClipboardTest, ATextEndsAtItsFirstZeroAndWithoutOneCountsAsNone)
{
    EXPECT_EQ(ReadTextOfClosed(), "");
    for (std::string const & sBad : { std::string("no end"), std::string() })
    {
        m_Folder.Write("clip/board/=zq_text", sBad);
        EXPECT_EQ(ReadTextOfClosed(), "") << sBad;
    }
    m_Folder.Write("clip/board/=zq_text", std::string("cut\0here", 8));
    ClipboardOpen();
    ClipboardPrintf("!");
    EXPECT_EQ(Text(), "cut!");
    EXPECT_EQ(plat::ClipboardBlockAllocate(64 * 1024 * 1024 + 1), nullptr);
}

TEST_F(ClipboardTest, AnotherProcessIsWaitedFor)
{
    auto const Release = []
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        ClipboardPrintf(" for long");
        ClipboardClose();
    };
    int const iChild = StartHolder(Release);
    EXPECT_EQ(ReadTextOfClosed(), "kept for long");
    EXPECT_EQ(StatusOfChild(iChild), 0);
}

TEST_F(ClipboardTest, AHolderIsGivenUpOnAfterAHundredTriesButADeadOneHoldsNothing)
{
    int const iChild = StartHolder([] { std::this_thread::sleep_for(std::chrono::minutes(1)); });
    plat::ClipboardSetWait(CountWait);
    EXPECT_EQ(FailedConditions([] { ClipboardOpen(); }), "g_isOpen == true");
    EXPECT_EACH(g_nWaits == 100, !g_isOpen);
    KillChild(iChild);
    ClipboardOpen();
    EXPECT_EQ(Text(), "kept");
    EXPECT_EQ(g_nWaits, 100) << "a dead holder is not waited for";
}

TEST_F(ClipboardTest, DoesNotNestAndIsClosedInAForkedChild)
{
    plat::ClipboardSetWait(CountWait);
    ClipboardOpen();
    ClipboardPrintf("kept");
    EXPECT_EQ(FailedConditions([] { ClipboardOpen(); }), "g_isOpen == false");
    Gate_c const Closed;
    // Even after the close the child has copies of this process's descriptors.
    int const iHeir = StartChild(
        [&]
        {
            EXPECT_EACH(!g_isOpen, Closed.Wait());
            EXPECT_EQ(ReadTextOfClosed(), "kept");
            return 0;
        });
    ClipboardClose();
    EXPECT_EACH(ReadTextOfClosed() == "kept", g_nWaits == 0, Closed.Open(), StatusOfChild(iHeir) == 0);
}
