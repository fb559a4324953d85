#include "zqcore/cfilesave.h"

#include "tests/archive_support.h"
#include "tests/test_support.h"

#include "zqcore/ccrc.h"
#include "zqcore/cfilesave_internal.h"
#include "zqcore/cserialize.h"

#include <chrono>
#include <random>

namespace fs = std::filesystem;

namespace
{
    constexpr std::uint32_t SAVE_VERSION = 0x00010003;

    class FileSave : public testing::Test
    {
    protected:
        static bool Store(FileSave_c & Save, int iValue, std::uint32_t dwVersion = SAVE_VERSION)
        {
            FileSaveWriter_c Writer(Save);
            BufferedWriteable_c Archive(Writer, dwVersion);
            if (Archive.Open() && Archive.ChunkBegin("Value"))
            {
                Archive.Serialize(iValue);
                Archive.ChunkEnd("Value");
            }
            bool const bStored = Archive.Close() && !Archive.IsFailed() && Writer.Commit();
            t_sWhyNot = Writer.GetWhyNot();
            return bStored;
        }

        // Loads the save or a previous one. Returns its value, or the negated state if the save is not whole. Expects
        // that the archive closes, and that it fails and GetWhyNot has a reason exactly if the save is not whole.
        static int Load(FileSave_c & Save, int iPrevious = 0)
        {
            FileSave_c::State_e const eState = Save.Load(SAVE_VERSION, iPrevious);
            int iValue = -eState;
            Readable_c Archive(Save.OpenFile(), SAVE_VERSION);
            if (Archive.Open() && Archive.ChunkBegin("Value"))
            {
                Archive.Serialize(iValue);
                Archive.ChunkEnd("Value");
            }
            bool const bWhole = eState == FileSave_c::WHOLE;
            EXPECT_EACH(
                Archive.IsFailed() != bWhole, Archive.Close(), String_T<8>(Save.GetWhyNot()).IsEmpty() == bWhole);
            return iValue;
        }

        // Replaces the checksum of a changed save by the one that fits.
        static void SealAnew(std::string & sSave)
        {
            int const nBefore = static_cast<int>(sSave.size() - sizeof(std::uint32_t));
            std::uint32_t const dwCrc = GetCrc32Polynomial(sSave.data(), nBefore);
            std::memcpy(sSave.data() + nBefore, &dwCrc, sizeof dwCrc);
        }

        std::vector<std::string> Names() const
        {
            std::vector<std::string> dNames;
            for (auto const & Entry : fs::directory_iterator(m_Folder.GetPath()))
            {
                dNames.push_back(Entry.path().filename().string());
            }
            return dNames;
        }

        static inline thread_local std::string t_sWhyNot;   // of the last Store
        TempFolder_c const m_Folder;
        std::string const m_sPath = m_Folder.Join("one.sav");
    };
}

TEST_F(FileSave, SkippedBytesAreSealedToo)
{
    struct Plain_c : Writeable_c
    {
        explicit Plain_c(FileReplacement_c & Replacement)
            : Writeable_c(Replacement, SAVE_VERSION)
        {}
    };
    FileSave_c Save(m_sPath.c_str());
    FileSaveWriter_c Writer(Save);
    Plain_c Archive(Writer);
    int iValue = 7;
    EXPECT_EACH(Archive.Open(), Archive.ChunkBegin("Value"));
    Archive.Serialize(iValue);
    EXPECT_TRUE(Archive.Serialize(nullptr, 10000));
    Archive.ChunkEnd("Value");
    EXPECT_EACH(Archive.Close(), Writer.Commit(), Load(Save) == 7);
}

TEST_F(FileSave, WritesTheExampleOfTheFormatsPageAndNoticesEachChange)
{
    FileSave_c Save(m_sPath.c_str());
    EXPECT_EACH(Load(Save) == -FileSave_c::ABSENT, Store(Save, 7), Load(Save) == 7);
    std::string const sWhole = m_Folder.Read("one.sav");
    EXPECT_EQ(Hex(sWhole), DumpOfPage(FORMATS_PAGE, "save"));
    EXPECT_EQ(fs::status(m_sPath).permissions(), fs::perms(0600));
    for (std::size_t i = 0; i < sWhole.size(); ++i)
    {
        m_Folder.Write("one.sav", sWhole.substr(0, i));
        EXPECT_EQ(Load(Save), -FileSave_c::DAMAGED) << i << " bytes";
        for (int iBit = 0; iBit < 8; ++iBit)
        {
            std::string sFlipped = sWhole;
            sFlipped[i] ^= static_cast<char>(1 << iBit);
            m_Folder.Write("one.sav", sFlipped);
            EXPECT_EQ(Load(Save), -FileSave_c::DAMAGED) << i << ", bit " << iBit;
        }
    }
    std::size_t const iSealVersion = sWhole.size() - SAVE_SEAL_SIZE + SAVE_SEAL_VERSION_AT;
    // Bytes 0 and 2 are the minor and the major version. The length follows the version of the seal.
    for (auto const & [iByte, cByte, eState] : Rows_t<std::size_t, char, int>{ { 0, 4, FileSave_c::NEWER },
             { 0, 2, FileSave_c::WHOLE }, { 2, 2, FileSave_c::NEWER }, { 2, 0, FileSave_c::OLDER },
             { iSealVersion, '2', FileSave_c::NEWER }, { iSealVersion, '0', FileSave_c::OLDER },
             { iSealVersion, '\xFF', FileSave_c::OLDER }, { iSealVersion + 1, 1, FileSave_c::DAMAGED } })
    {
        std::string sOther = sWhole;
        sOther[iByte] = cByte;
        SealAnew(sOther);
        m_Folder.Write("one.sav", sOther);
        EXPECT_EQ(Save.Load(SAVE_VERSION), eState) << iByte << ' ' << Save.GetWhyNot();
        EXPECT_EQ(m_Folder.Read("one.sav"), sOther) << iByte;
    }
}

TEST_F(FileSave, SavesThatArePutAsideKeepApart)
{
    FileSave_c Save(m_sPath.c_str());
    String_T<256> sAside;
    for (char const * szTo : { ".old", ".old1" })
    {
        m_Folder.Write("one.sav", szTo);
        EXPECT_TRUE(Save.PutAside(sAside));
        EXPECT_EQ(std::string(sAside), m_sPath + szTo);
    }
    EXPECT_EQ(std::tuple(m_Folder.Read("one.sav.old"), m_Folder.Read("one.sav.old1")), std::tuple(".old", ".old1"));
    EXPECT_FALSE(Save.PutAside(sAside)) << "there is none";
}

TEST_F(FileSave, WhatTheSystemRefusesIsUnreadableAndAFailedSaveReplacesNothing)
{
    m_Folder.Write("whole", "x");
    m_Folder.MakeFolder("a folder/full");
    MakePipe(m_Folder.Join("a pipe"));
    fs::create_symlink("a loop", m_Folder.Join("a loop"));
    fs::create_symlink("nothing", m_Folder.Join("to nothing"));
    for (auto const & [szName, bReplaced] : Rows_t<char const *, bool>{ { "a folder", false }, { "a pipe", false },
             { "a loop", true }, { "to nothing", true }, { "whole/below", false }, { "a folder/", false } })
    {
        FileSave_c Save(m_Folder.Join(szName).c_str());
        EXPECT_EQ(Load(Save), -FileSave_c::UNREADABLE) << szName << ' ' << Save.GetWhyNot();
        EXPECT_EQ(Store(Save, 1), bReplaced) << szName;
        EXPECT_EQ(t_sWhyNot.empty(), bReplaced) << szName;
    }
    FileSave_c Save(m_sPath.c_str());
    EXPECT_TRUE(Store(Save, 7));
    {
        FileSave_c Spelled(m_Folder.Join("ONE.sav").c_str());
        FileSaveWriter_c Writer(Save);
        EXPECT_TRUE(Writer.Write("x", 1));
        plat::SpellingsForget();
        FewDescriptors_c const None(0);
        EXPECT_EACH(Load(Save) == -FileSave_c::UNREADABLE, !Store(Save, 8));
        EXPECT_EQ(t_sWhyNot, "Too many open files");
        EXPECT_STREQ(Save.GetWhyNot(), "Too many open files");
        EXPECT_EQ(Load(Spelled), -FileSave_c::UNREADABLE) << "in another spelling: " << Spelled.GetWhyNot();
        EXPECT_FALSE(Writer.Commit()) << "its name can't be synchronised";
    }
    EXPECT_EQ(Load(Save), 7);
    {
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c Archive(Writer, 1);
        int iValue = 8;
        Archive.Serialize(iValue);
        EXPECT_EQ(
            FailedConditions([&] { EXPECT_FALSE(Archive.Close()); }), "Open was called before the archive was written");
        EXPECT_FALSE(Writer.Commit());
    }
    EXPECT_EQ(Load(Save), 7);
    for (rlim_t nBytes : { 0, 15, 20, 30 })   // the archive has 16 bytes
    {
        FullDisk_c const Full(nBytes);
        EXPECT_FALSE(Store(Save, 9)) << nBytes;
        EXPECT_EQ(t_sWhyNot, "File too large") << nBytes;
    }
    EXPECT_EQ(Load(Save), 7);
}

TEST_F(FileSave, OneProgramAtATimeHasASave)
{
    FileSave_c Save(m_sPath.c_str());
    auto const StoreOther = [this]
    {
        FileSave_c Other(m_Folder.Join("ONE.sav").c_str());
        EXPECT_EACH(!Other.IsLocked(), !Store(Other, 2));
        EXPECT_EQ(t_sWhyNot, "it is in use by another program");
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(StoreOther)), 0);
    auto const Destroy = [&Save]
    {
        Save.~FileSave_c();
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(Destroy)), 0) << "a child's copy";
    auto const StoreCopy = [&Save]
    {
        EXPECT_FALSE(Store(Save, 2));
        EXPECT_EQ(t_sWhyNot, "it is in use by the parent process");
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(StoreCopy)), 0);
    EXPECT_FALSE(FileSave_c(m_sPath.c_str()).IsLocked());
    EXPECT_EACH(Store(Save, 1), Load(Save) == 1);

    std::string const sHeld = m_Folder.Join("held.sav");
    Gate_c const Held, End;
    pid_t const iHolder = StartChild(
        [&]
        {
            FileSave_c const Mine(sHeld.c_str());
            StartChild([&] { return Held.Open() && End.Wait() ? 0 : 1; });
            return pause();
        });
    EXPECT_EACH(Held.Wait(), KillChild(iHolder));
    EXPECT_TRUE(FileSave_c(sHeld.c_str()).IsLocked()) << "the child of a dead holder lives";
    EXPECT_TRUE(End.Open());

    std::string const sShared = m_Folder.Join("shared.sav");
    auto const StoreTwenty = [&sShared](int)
    {
        for (int nStored = 0; nStored < 20;)
        {
            FileSave_c Mine(sShared.c_str());
            Mine.SetPrevious(1);
            int const iHad = Load(Mine);
            EXPECT_THAT(iHad, testing::AnyOf(testing::Gt(0), -FileSave_c::ABSENT));
            nStored += Mine.IsLocked() && Store(Mine, iHad < 0 ? 1 : iHad + 1);
        }
    };
    RunInThreads(3, StoreTwenty);
    FileSave_c Shared(sShared.c_str());
    EXPECT_EQ(std::pair(Load(Shared), Load(Shared, 1)), std::pair(60, 59)) << "a save of another is lost";
}

TEST_F(FileSave, PreviousSavesMoveOnAndAFailedSaveMovesNone)
{
    FileSave_c Save(m_sPath.c_str());
    auto const All = [&Save] { return std::vector{ Load(Save), Load(Save, 1), Load(Save, 2), Load(Save, 3) }; };
    constexpr int NONE = -FileSave_c::ABSENT;
    for (auto const & [iValue, nPrevious, dAll] : Rows_t<int, int, std::vector<int>>{ { 1, 2, { 1, NONE, NONE, NONE } },
             { 2, 2, { 2, 1, NONE, NONE } }, { 3, 2, { 3, 2, 1, NONE } }, { 4, 2, { 4, 3, 2, NONE } },
             { 5, 1, { 5, 4, 2, NONE } }, { 6, 0, { 6, 4, 2, NONE } }, { 7, 3, { 7, 6, 4, 2 } } })
    {
        Save.SetPrevious(nPrevious);
        EXPECT_TRUE(Store(Save, iValue)) << iValue;
        EXPECT_EQ(All(), dAll) << iValue;
    }
    fs::remove(m_sPath + ".1");
    EXPECT_TRUE(Store(Save, 8));
    EXPECT_EQ(All(), (std::vector{ 8, 7, 4, 2 })) << "a gap is filled";
    fs::remove(m_sPath + ".1");
    fs::create_hard_link(m_sPath, m_sPath + ".1");   // as a save that failed at the end leaves it
    EXPECT_TRUE(Store(Save, 9));
    EXPECT_EQ(All(), (std::vector{ 9, 8, 4, 2 }));
    fs::remove(m_sPath + ".3");
    m_Folder.MakeFolder("one.sav.3");
    EXPECT_FALSE(Store(Save, 10));
    EXPECT_EQ(t_sWhyNot, "Is a directory");
    EXPECT_EQ(All(), (std::vector{ 9, 8, 4, -FileSave_c::UNREADABLE }));
    EXPECT_EQ(Names().size(), 5u) << "with the lock";
}

TEST_F(FileSave, AKilledProgramLeavesTheOldSaveOrTheNewOne)
{
    std::mt19937 Random(1);
    int iLast = -FileSave_c::ABSENT;
    unsigned tMost = 20000;   // microseconds up to a kill
    // A kill can come before the first save is stored, so the loop continues until several are.
    for (int i = 0; i < 25 || (iLast <= 10 && i < 1000); ++i)
    {
        SCOPED_TRACE(i);
        pid_t const iChild = StartChild(
            [this, iLast]
            {
                FileSave_c Save(m_sPath.c_str());
                Save.SetPrevious(2);
                for (int iValue = std::max(iLast, 0) + 1; Store(Save, iValue); ++iValue)
                {}
                return 1;
            });
        std::this_thread::sleep_for(std::chrono::microseconds(Random() % tMost));
        EXPECT_TRUE(KillChild(iChild)) << "it ended by itself: a save failed";
        {
            FileSave_c Save(m_sPath.c_str());
            int const iValue = Load(Save), iFirst = Load(Save, 1), iSecond = Load(Save, 2);
            EXPECT_EACH(Save.IsLocked(), iFirst != -FileSave_c::DAMAGED, iSecond != -FileSave_c::DAMAGED);
            EXPECT_GE(iValue, iLast);
            EXPECT_GE(std::max({ iFirst, iSecond, 0 }), iValue - 1);
            tMost = iValue > iLast ? tMost : std::min(2 * tMost, 1000000u);   // a busy machine needs longer
            iLast = std::max(iLast, iValue);
        }
        EXPECT_THAT(Names(), testing::Each(testing::StartsWith("one.sav"))) << "another file is left";
    }
    EXPECT_GT(iLast, 10);
}
