#include "zqcore/cserialize.h"

#include "tests/archive_support.h"
#include "tests/test_support.h"

#include "zqcore/ccrc.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/cmemory.h"
#include "zqcore/cserializecheck.h"

#include <numeric>

namespace
{
    constexpr std::uint32_t VERSION = 0x00010003;

    using Archive_t = Serializeable_c;

    // Saves with each kind of writer and expects equal archives. Returns their bytes.
    std::string Saved(ArchiveBody_t const & fnBody)
    {
        TempFolder_c const Folder;
        auto const Save = [&](auto && Archive)
        {
            EXPECT_TRUE(Archive.Open());
            fnBody(Archive);
            EXPECT_EACH(Archive.Close(), !Archive.IsFailed());
        };
        Save(Writeable_c(Folder.Join("saves\\deep\\a.arc").c_str(), VERSION));
        Save(BufferedWriteable_c(Folder.Join("b.arc").c_str(), VERSION));
        FileReplacement_c Replacement(Folder.Join("c.arc").c_str());
        Save(BufferedWriteable_c(Replacement, VERSION));
        EXPECT_TRUE(Replacement.Commit());
        std::string const sSaved = Folder.Read("b.arc");
        std::string sRoom(sSaved.size(), '?');
        MemoryWriteable_c Full(std::as_writable_bytes(std::span(sRoom)), VERSION);
        Save(Full);
        EXPECT_EACH(sSaved == sRoom, Full.GetBytes().size() == sRoom.size(), !Full.Serialize(nullptr, 1));
        EXPECT_EACH(sSaved == Stored(VERSION, fnBody), sSaved == Folder.Read("saves/deep/a.arc"),
            sSaved == Folder.Read("c.arc"));
        EXPECT_EQ(Replacement.GetCrc(), GetCrc32Polynomial(sSaved.data(), static_cast<int>(sSaved.size())));
        return sSaved;
    }

    // Elements of the example archive in docs/formats.md.
    struct Example_s
    {
        int iHealth = 100;
        double fSpeed = 1.5;
        String_T<128> sName{ "Ogre" };
        __m128 Place = _mm_setr_ps(1, 2, 3, 9);
        float fRest = 0.25f;
        bool bEmpty = false;   // whether the empty chunk was seen as one

        void Serialize(Archive_t & Archive)
        {
            Archive.Label("abc");
            Archive.Serialize(iHealth).Serialize(fSpeed);
            if (Archive.ChunkBegin("Looks"))
            {
                Archive.SerializeString(sName);
                Archive.SerializeVector3(Place);
            }
            Archive.ChunkEnd("Looks");
            bEmpty = !Archive.ChunkBegin("Empty");
            Archive.ChunkEnd("Empty");
            Archive.Serialize(nullptr, 3);
            Archive.Serialize(fRest);
        }
    };

    std::string SavedExample()
    {
        return Saved([](Archive_t & Archive) { Example_s().Serialize(Archive); });
    }

    // Loads an archive and returns how that ends: 'w' whole, 'f' failed, 'a' in an abort.
    char EndOf(std::string_view sBytes, ArchiveBody_t const & fnBody)
    {
        bool bWhole = false;
        bool const bBack = SurvivesWithoutAbort([&] { bWhole = LoadArchive(sBytes, VERSION, fnBody); });
        return !bBack ? 'a' : bWhole ? 'w' : 'f';
    }

    // Checks an archive and expects that no assertion fails. Returns the result of the check.
    ArchiveResult_t Check(std::string const & sBytes, ArchiveBody_t const & fnBody)
    {
        ArchiveResult_t Result;
        EXPECT_EQ(
            FailedConditions([&] { Result = ArchiveCheck(std::as_bytes(std::span(sBytes)), VERSION, fnBody); }), "");
        return Result;
    }
}

// `long` is refused if it is not the type of 8-byte integers.
static_assert(ArchiveValue_T<std::int64_t> && ArchiveValue_T<long> == std::is_same_v<long, std::int64_t>);

TEST(Serialize, WritesAndReadsTheExampleOfTheFormatsPage)
{
    EXPECT_EQ(Hex(SavedExample()), DumpOfPage(FORMATS_PAGE, "archive"));
    Example_s Read{ 0, 0, "", _mm_set1_ps(5), 0 };
    EXPECT_TRUE(LoadArchive(SavedExample(), VERSION, [&](Archive_t & Archive) { Read.Serialize(Archive); }));
    EXPECT_EQ(std::tuple(Read.iHealth, Read.fSpeed, std::string(Read.sName), Read.fRest, Read.bEmpty),
        std::tuple(100, 1.5, std::string("Ogre"), 0.25f, true));
    float dPlace[4];
    _mm_storeu_ps(dPlace, Read.Place);
    EXPECT_THAT(dPlace, testing::ElementsAre(1.0f, 2.0f, 3.0f, 5.0f));
}

TEST(Serialize, StoresAndLoadsWhatTheExampleLacks)
{
    String_T<256> sWord("ab");
    for (auto const & [szHex, fnBody] :
        Rows_t<char const *, ArchiveBody_t>{
            { "", [](Archive_t &) {} },
            { " 29 01 00 00", [](Archive_t & Archive) { Archive.Label("aBC"); } },
            { " C4 FF FF FF", [](Archive_t & Archive) { Archive.Label("\xC4"); } },
            { " 26 39 F4 CB", [](Archive_t & Archive) { Archive.LabelCrc32("123456789"); } },
            { " 02 00 00 00 61 62 00", [&](Archive_t & Archive) { Archive.SerializeString(sWord); } },
            { " 01 00 00 00 61 62", [&](Archive_t & Archive) { Archive.SerializeString(sWord.GetBuffer(), 2); } },
        })
    {
        std::string const sBytes = Saved(fnBody);
        EXPECT_EQ(Hex(sBytes), std::string("03 00 01 00") + szHex);
        EXPECT_TRUE(LoadArchive(sBytes, VERSION, fnBody)) << szHex;
    }
    EXPECT_EQ(sWord, "a") << "loaded from a text that was cut";
}

// A chunk lies across the end of the buffer. The reader leaves it at its start, inside it, at its end and after it.
TEST(Serialize, ChunksCrossTheBufferAndAreLeftEarly)
{
    std::string sBlock(10000, ' ');
    std::iota(sBlock.begin(), sBlock.end() - 5000, '\0');
    for (int nLead = BufferedWriteable_c::BUFSIZE - 18; nLead <= BufferedWriteable_c::BUFSIZE; ++nLead)
    {
        SCOPED_TRACE(nLead);
        std::string sData = sBlock;
        std::uint32_t dwTail = 77;
        ArchiveBody_t const fnBody = [&](Archive_t & Archive)
        {
            Archive.Serialize(nullptr, nLead);
            if (ArchiveChunk_c const Block(Archive, "Block"); Block)
            {
                Archive.Serialize(sData.data(), static_cast<int>(sData.size()));
            }
            EXPECT_EQ(Archive.GetPosition(), Archive.IsReading() ? 4 + nLead + 8 + 10000 : -1);
            Archive.Serialize(dwTail);
            EXPECT_EQ(Archive.GetLength(), 4 + nLead + 8 + 10000 + 4);
        };
        std::string const sBytes = Saved(fnBody);
        for (std::size_t const nRead : { 0u, 5000u, 10000u, 10002u })
        {
            sData.assign(nRead, '\0');
            dwTail = 0;
            EXPECT_TRUE(LoadArchive(sBytes, VERSION, fnBody)) << nRead;
            EXPECT_EQ(dwTail, 77u) << nRead;
            EXPECT_EQ(sData.substr(0, 10000), sBlock.substr(0, nRead));
        }
    }
}

TEST(Serialize, VersionsAndLabelsDecideWhatLoads)
{
    std::uint32_t dwVersion = 0;
    using namespace std::string_view_literals;
    // Ends: w whole, f failed, a in Abort.
    for (auto const & [sBytes, fnBody, cEnd, szLog] :
        Rows_t<std::string_view, ArchiveBody_t, char, char const *>{
            { "\2\0\1\0"sv, [&](Archive_t & Archive) { dwVersion = Archive.GetVersion(); }, 'w', "" },
            { "\4\0\1\0"sv, [](Archive_t &) {}, 'f',
                "Serializeable_c: archive is newer version then executable, 10004\n" },
            { "\0\0\2\0"sv, [](Archive_t &) {}, 'a',
                "Serializeable_c: archive 'memory.arc' is v.2.0, and this binary only supports v.1.3\n" },
            { "\3\0\1\0abcd"sv, [](Archive_t & Archive) { Archive.Label("two"); }, 'a',
                "Label 'two' expected in 'memory.arc' file.\n" },
            { "\3\0\1\0abcd"sv, [](Archive_t & Archive) { Archive.LabelCrc32("two"); }, 'a',
                "LabelCrc32 'two' expected in 'memory.arc' fille.\n" } })
    {
        LogCapture_c const Log;
        EXPECT_EQ(EndOf(sBytes, fnBody), cEnd) << szLog;
        EXPECT_EQ(Log.GetText(), szLog);
    }
    EXPECT_EQ(dwVersion, 0x00010002u);
    Readable_c None(nullptr, VERSION);
    EXPECT_EQ(None.GetVersion(), VERSION);
    EXPECT_EACH(!None.Open(), None.IsFailed(), None.Close(), None.Close());
}

// A load ends whole, failed or in an abort, whichever byte is changed and wherever the file is cut. A check finds the
// archive sound exactly if the load ends whole.
TEST(Serialize, DamageEndsEveryLoadInADefinedWay)
{
    LogCapture_c const Log;
    std::string const sWhole = SavedExample();
    ArchiveBody_t const fnLoad = [](Archive_t & Archive) { Example_s().Serialize(Archive); };
    std::string sEnds;   // of the worst change of each byte
    for (std::size_t i = 0; i < sWhole.size(); ++i)
    {
        EXPECT_EQ(EndOf(sWhole.substr(0, i), fnLoad), 'f') << "cut at " << i;
        EXPECT_FALSE(Check(sWhole.substr(0, i), fnLoad).IsSound()) << "cut at " << i;
        char cWorst = 'w';
        for (int const iFlip : { 0x01, 0x80, 0xFF, 0x02, 0x7F })
        {
            std::string sDamaged = sWhole;
            sDamaged[i] = static_cast<char>(sDamaged[i] ^ iFlip);
            char const cEnd = EndOf(sDamaged, fnLoad);
            EXPECT_EQ(Check(sDamaged, fnLoad).IsSound(), cEnd == 'w') << "changed at " << i;
            cWorst = std::min(cWorst, cEnd);
        }
        sEnds += cWorst;
    }
    EXPECT_EQ(sEnds, "ffaa" /* version */ "aaaa" /* label */ "wwwwwwwwwwww"
                     "aaaaafff" /* chunk: name and length */
                     "ffff" /* text's length */ "wwwwwwwwwwwwwwwww"
                     "aaaaffff" /* empty chunk */ "wwwwwww");
}

TEST(Serialize, ACheckSaysWhatIsWrongAndWhere)
{
    ArchiveBody_t const fnFrames = [](Archive_t & Archive)
    {
        Archive.Label("abc");
        Archive.Serialize(nullptr, 12);
        Archive.ChunkBegin("Looks");
        Archive.ChunkEnd("Looks");
    };
    auto const With = [](std::size_t i, char c) { return SavedExample().replace(i, 1, 1, c); };
    for (auto const & [sBytes, eState, iPosition, nLeft, szWhyNot] :
        Rows_t<std::string, ArchiveResult_t::State_e, int, int, char const *>{
            { SavedExample(), ArchiveResult_t::SOUND, 0, 15, "" },
            { "\3\0\1", ArchiveResult_t::DAMAGED, 0, 0, "the archive ends after 1 of 4 bytes" },
            { With(2, 2), ArchiveResult_t::OTHER_VERSION, 0, 0, "version 2.3, and 1.3 is the newest known" },
            { With(0, 4), ArchiveResult_t::OTHER_VERSION, 0, 0, "version 1.4, and 1.3 is the newest known" },
            { With(4, 0), ArchiveResult_t::DAMAGED, 4, 0, "label 'abc' expected" },
            { With(20, 0), ArchiveResult_t::DAMAGED, 20, 0, "chunk or CRC-32 label 'Looks' expected" },
            { With(24, 3), ArchiveResult_t::DAMAGED, 28, 0, "chunk 'Looks' has a length of 3" },
            { With(24, 'A'), ArchiveResult_t::DAMAGED, 28, 0, "chunk 'Looks' ends after the archive" },
            { SavedExample().replace(24, 4, 4, '\xFF'), ArchiveResult_t::DAMAGED, 28, 0,
                "chunk 'Looks' was not finished" },
        })
    {
        ArchiveResult_t const Result = Check(sBytes, fnFrames);
        EXPECT_EQ(std::tuple(Result.eState, Result.iPosition, Result.nLeft, std::string(Result.sWhyNot)),
            std::tuple(eState, iPosition, nLeft, std::string(szWhyNot)));
    }
    MemoryFile_c File(Saved([](Archive_t & Archive) { ArchiveChunk_c const Empty(Archive, "A"); }));
    EXPECT_EACH(ArchiveCheck(FileBytes(&File), VERSION).nLeft == 8,
        ArchiveCheck(FileBytes(&File), VERSION, { "A" }).IsSound(),
        !ArchiveCheck(FileBytes(&File), VERSION, { "A", "B" }).IsSound(),
        !ArchiveCheck(FileBytes(nullptr), VERSION).IsSound());
}

TEST(Serialize, ATypeHasAVersionOfItsOwn)
{
    int iVersion = 0;
    auto const Of = [&](int iNewest) -> ArchiveBody_t
    { return [&, iNewest](Archive_t & Archive) { iVersion = Archive.SerializeVersion("Unit", iNewest); }; };
    std::string const sSecond = Saved(Of(2));
    EXPECT_EQ(Hex(sSecond), "03 00 01 00 02 00");
    EXPECT_EACH(LoadArchive(sSecond, VERSION, Of(3)), iVersion == 2);
    LogCapture_c const Log;
    EXPECT_EACH(!LoadArchive(sSecond, VERSION, Of(1)), iVersion == 1);
    EXPECT_EQ(Log.GetText(),
        "Serializeable_c: 'Unit' in archive 'memory.arc' is of version 2, and this binary only supports 1\n");
    EXPECT_FALSE(LoadArchive(std::string(sSecond).replace(4, 1, 1, '\0'), VERSION, Of(3)));
    ArchiveResult_t const Result = Check(sSecond, Of(1));
    EXPECT_EQ(std::pair(Result.iPosition, std::string(Result.sWhyNot)),
        std::pair(4, std::string("'Unit' is of version 2, and 1 is the newest known")));
}

TEST(Serialize, WhatIsBrokenFailsTheArchiveWhichThenMovesNothing)
{
    String_T<256> sText("text of 18 letters");
    char szKept[18] = "kept";
    double fKept = 0.5;
    std::string const sChunk = Saved(
        [&](Archive_t & Archive)
        {
            ArchiveChunk_c const Chunk(Archive, "A");
            Archive.SerializeString(sText);
        });
    char const * const szOpen = "m_pCurrentChunk && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))";
    for (auto const & [szCondition, fnBody] :
        Rows_t<char const *, ArchiveBody_t>{ { "", [](Archive_t & Archive) { Archive.Serialize(&Archive, -1); } },
            { "", [](Archive_t & Archive) { Archive.Serialize(nullptr, 9999); } },
            { "!m_pCurrentChunk",
                [](Archive_t & Archive)
                {
                    Archive.ChunkBegin("A");
                    Archive.ChunkBegin("A");
                } },
            { szOpen,
                [](Archive_t & Archive)
                {
                    Archive.ChunkBegin("A");
                    Archive.ChunkEnd("a");
                } },
            { szOpen, [](Archive_t & Archive) { Archive.ChunkEnd("A"); } },
            { "Len < iBufLength, text of 18 characters in 'memory.arc' file, with room for 17",
                [&](Archive_t & Archive)
                {
                    Archive.ChunkBegin("A");
                    Archive.SerializeString(szKept, sizeof szKept);
                } },
            { "sBuffer && iBufLength > 0", [&](Archive_t & Archive) { Archive.SerializeString(szKept, 0); } } })
    {
        SCOPED_TRACE(szCondition);
        MemoryFile_c File(sChunk);
        FileOpen(&File);
        Readable_c Archive(&File, VERSION);
        ASSERT_TRUE(Archive.Open());
        EXPECT_EQ(FailedConditions([&, &fnRun = fnBody] { fnRun(Archive); }), szCondition);
        EXPECT_TRUE(Archive.IsFailed());
        int const iPosition = Archive.GetPosition();
        Archive.Serialize(fKept).SerializeString(szKept, sizeof szKept);
        Archive.Label("other");
        Archive.ChunkEnd("another");
        EXPECT_EACH(!Archive.ChunkBegin("chunk"), Archive.LabelRead() == 0, Archive.GetPosition() == iPosition);
        EXPECT_EQ(std::pair(fKept, std::string(szKept)), std::pair(0.5, std::string("kept")));
    }
}

TEST(Serialize, AWriterReportsCallsThatDoNotFitItsState)
{
    TempFolder_c const Folder;
    Writeable_c Archive(Folder.Join("a.arc").c_str(), VERSION);
    EXPECT_EQ(FailedConditions(
                  [&]
                  {
                      Archive.LabelRead();
                      Archive.ChunkEnd("A");
                      Archive.Close();
                      Archive.GetLength();
                  }),
        "m_bIsReading & m_dwCurrentChunk != NO_CHUNK && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))"
        " & m_hFile");
    EXPECT_EACH(Archive.IsFailed(), Archive.Close());
    EXPECT_EQ(FailedConditions([] { EXPECT_FALSE(Writeable_c(nullptr, VERSION).Open()); }), "sTxt");
}

TEST(Serialize, AWriterHoldsItsFileAndAllocatesNothing)
{
    TempFolder_c const Folder;
    DialogScript_c const Dialogs;
    std::string const sPath = Folder.Join("taken.bin");
    BufferedWriteable_c Archive(sPath.c_str(), VERSION);
    ASSERT_TRUE(Archive.Open());
    std::ptrdiff_t const nBlocks = MemoryTotalAllocations();
    for (int i = 1; i <= 3000; ++i)
    {
        Archive.Serialize(i);
        EXPECT_EQ(Archive.GetLength(), 4 + 4 * i) << "on disk and waiting";
    }
    EXPECT_EQ(MemoryTotalAllocations(), nBlocks);

    for (std::string const & sOther : { sPath, Folder.MakeFolder("f.arc") })
    {
        BufferedWriteable_c Other(sOther.c_str(), VERSION);
        EXPECT_EACH(!Other.Open(), Other.IsFailed(), !Other.Serialize(&Other, 9999), Other.Close()) << sOther;
        EXPECT_EQ(Other.GetFileName(), sOther);
    }
    EXPECT_EQ(Folder.Read("taken.bin").size(), 2u * BufferedWriteable_c::BUFSIZE);
    EXPECT_EQ(Dialogs.CountHolding("f.arc' failed!"), 1) << "the open tracker complains";
}

TEST(Serialize, AReplacedFileIsTheOldOneOrWholeAtAnyMoment)
{
    TempFolder_c const Folder;
    std::string const sPath = Folder.Write("one.sav", "old");
    std::filesystem::permissions(sPath, std::filesystem::perms(0640));
    auto const CountBeside = [&]
    {
        return std::count_if(std::filesystem::directory_iterator(Folder.GetPath()), {},
            [](auto const & Entry) { return FileReplacement_c::IsBeside(Entry.path().filename().string().c_str()); });
    };
    enum Way_e
    {
        WHOLE,
        FULL_DISK,
        LEFT,        // without a commit
        STILL_OPEN   // at the commit
    };
    {
        FileReplacement_c Replacement(sPath.c_str());
        auto const Destroy = [&Replacement]
        {
            Replacement.~FileReplacement_c();
            return 0;
        };
        EXPECT_EQ(StatusOfChild(StartChild(Destroy)), 0);
        EXPECT_EQ(CountBeside(), 1) << "a child deletes no file of its parent";
    }
    for (auto const & [eWay, sName, nBeside, bReplaced] :
        Rows_t<Way_e, std::string, int, bool>{ { LEFT, "one.sav", 2, false }, { FULL_DISK, "one.sav", 2, false },
            { STILL_OPEN, "one.sav", 2, false }, { WHOLE, "", 2, false }, { WHOLE, "deep\\new.sav", 0, true },
            { WHOLE, std::string(256, 'x'), 0, false }, { WHOLE, "ONE.SAV", 2, true } })
    {
        FullDisk_c const Full(eWay == FULL_DISK ? 10 : RLIM_INFINITY);
        DialogScript_c const Dialogs;
        {
            FileReplacement_c Replacement((Folder.GetPath() + "\\" + sName).c_str());
            FileReplacement_c Second((Folder.GetPath() + "\\" + sName).c_str());   // one more, which is never written
            BufferedWriteable_c Archive(Replacement, VERSION);
            Archive.Open();
            std::uint64_t nValue = 7;
            Archive.Serialize(nValue);
            EXPECT_EQ(Folder.Read("one.sav"), "old");
            EXPECT_EQ(CountBeside(), nBeside) << sName << ": one for each replacement here";
            bool const bClosed = eWay == STILL_OPEN || Archive.Close(), bFailed = Archive.IsFailed();
            bool const bCommitted = eWay != LEFT && bClosed && !bFailed && Replacement.Commit();
            EXPECT_EQ(bCommitted, bReplaced) << sName << ": closed " << bClosed << ", failed " << bFailed;
            if (bReplaced)
            {
                EXPECT_FALSE(Replacement.Commit()) << "a second time";
            }
        }
        EXPECT_EQ(CountBeside(), 0) << "something is left";
    }
    EXPECT_EQ(Hex(Folder.Read("one.sav")), "03 00 01 00 07 00 00 00 00 00 00 00");
    EXPECT_EQ(Folder.Read("deep/new.sav"), Folder.Read("one.sav"));
    EXPECT_EQ(std::filesystem::status(sPath).permissions(), std::filesystem::perms(0640)) << "as the old file's";
    std::string const sLongest = "/tmp/" + std::string(250, 'x');
    EXPECT_EACH(FileReplacement_c(sLongest.c_str()).Commit(), std::filesystem::remove(sLongest),
        !FileReplacement_c(nullptr).Commit());
    EXPECT_EACH(FileReplacement_c::IsBeside("~zqlock-a"), !FileReplacement_c::IsBeside("~zq1234567-a"),
        !FileReplacement_c::IsBeside("~zq"), !FileReplacement_c::IsBeside("a"));
}

// These do not fit, in order: a value, the zeros at the end, the flush at the end, a flush, a replacement's zeros.
TEST(Serialize, AFullDiskSetsTheFlag)
{
    TempFolder_c const Folder;
    FullDisk_c const Full(6000);
    auto const ExpectFailure = [](auto && Archive, int nValues, int nSkip, bool bSkips, bool bCloses)
    {
        EXPECT_EACH(Archive.Open(), Archive.ChunkBegin("Big"));
        for (int i = 0; i < nValues; ++i)
        {
            Archive.Serialize(i);
        }
        EXPECT_EACH(Archive.Serialize(nullptr, nSkip) == bSkips, Archive.IsFailed() == !bSkips,
            Archive.Close() == bCloses, Archive.IsFailed(), !Archive.Serialize(nullptr, 1))
            << nValues << " values";
    };
    std::string const sName = Folder.Join("a.arc");
    ExpectFailure(Writeable_c(sName.c_str(), VERSION), 5000, 1, false, true);
    ExpectFailure(Writeable_c(sName.c_str(), VERSION), 1, 6000, true, false);
    ExpectFailure(BufferedWriteable_c(sName.c_str(), VERSION), 1100, 1700, true, false);
    ExpectFailure(BufferedWriteable_c(sName.c_str(), VERSION), 1, 9000, false, false);
    struct Plain_c : Writeable_c
    {
        explicit Plain_c(FileReplacement_c & Replacement)
            : Writeable_c(Replacement, VERSION)
        {}
    };
    FileReplacement_c Replacement(sName.c_str());
    ExpectFailure(Plain_c(Replacement), 1, 6000, false, true);
    EXPECT_FALSE(Replacement.Commit());
}
