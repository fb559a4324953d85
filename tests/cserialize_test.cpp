#include "zqcore/cserialize.h"

#include "tests/archive_support.h"
#include "tests/test_support.h"

#include "zqcore/cmemory.h"

#include <csignal>
#include <gtest/gtest.h>
#include <numeric>
#include <sys/resource.h>
#include <sys/wait.h>

namespace
{
    constexpr std::uint32_t VERSION = 0x00010003;

    using A = Serializeable_c;

    template <typename WRITER>
    std::string SavedBy(ArchiveBody_t const & fnBody)
    {
        TempFolder_c const Folder;
        WRITER Archive(Folder.Join("saves\\deep\\a.arc").c_str(), VERSION);
        EXPECT_TRUE(Archive.Open());
        fnBody(Archive);
        EXPECT_TRUE(Archive.Close() && !Archive.IsFailed());
        return Folder.Read("saves/deep/a.arc");
    }

    // The bytes that both writers must agree on.
    std::string Saved(ArchiveBody_t const & fnBody)
    {
        std::string const sBytes = SavedBy<Writeable_c>(fnBody);
        EXPECT_EQ(sBytes, SavedBy<BufferedWriteable_c>(fnBody));
        return sBytes;
    }

    // One of each element: what docs/formats.md dumps.
    struct Example_s
    {
        int iHealth = 100;
        double fSpeed = 1.5;
        String_T<128> sName{ "Ogre" };
        float dPlace[4] = { 1, 2, 3, 9 };
        float fRest = 0.25f;
        bool bEmpty = false;   // the empty chunk was seen as one

        void Serialize(A & a)
        {
            __m128 vPlace = _mm_loadu_ps(dPlace);
            a.Label("abc");
            a.Serialize(iHealth).Serialize(fSpeed);
            if (a.ChunkBegin("Looks"))
            {
                a.SerializeString(sName);
                a.SerializeVector3(vPlace);
            }
            a.ChunkEnd("Looks");
            bEmpty = !a.ChunkBegin("Empty");
            a.ChunkEnd("Empty");
            a.Serialize(nullptr, 3);
            a.Serialize(fRest);
            _mm_storeu_ps(dPlace, vPlace);
        }
    };

    std::string SavedExample()
    {
        return Saved([](A & a) { Example_s().Serialize(a); });
    }
}

TEST(Serialize, StoresEachElementInItsBytes)
{
    String_T<256> sWord("ab");
    std::string sLong(300, 'x'), sLongHex = " FF 00 00 00";
    for (int i = 0; i < 256; ++i)
    {
        sLongHex += " 78";
    }
    struct Row_s
    {
        std::string sHex;   // behind the version word
        ArchiveBody_t fnBody;
    };
    for (Row_s const & row :
        {
            Row_s{ "", [](A &) {} },
            Row_s{ " 29 01 00 00", [](A & a) { a.Label("aBC"); } },
            Row_s{ " C4 FF FF FF", [](A & a) { a.Label("\xC4"); } },
            Row_s{ " 26 39 F4 CB", [](A & a) { a.LabelCrc32("123456789"); } },
            Row_s{ " 02 00 00 00 61 62 00", [&](A & a) { a.SerializeString(sWord); } },
            Row_s{ " 01 00 00 00 61 62", [&](A & a) { a.SerializeString(sWord.GetBuffer(), 2); } },
            Row_s{ sLongHex, [&](A & a) { a.SerializeString(sLong.data(), 256); } },
            Row_s{ " 00 00", [](A & a) { a.Serialize(nullptr, 2); } },
        })
    {
        EXPECT_EQ(Hex(Saved(row.fnBody)), "03 00 01 00" + row.sHex);
    }
}

TEST(Serialize, WritesAndReadsTheExampleOfTheFormatsPage)
{
    EXPECT_EQ(Hex(SavedExample()), DumpOfPage(TEST_MEDIA_FOLDER "/../../docs/formats.md", "archive"));
    Example_s Read{ 0, 0, "", { 0, 0, 0, 5 }, 0 };
    EXPECT_TRUE(Loaded(SavedExample(), VERSION, [&](A & a) { Read.Serialize(a); }));
    EXPECT_TRUE(
        Read.iHealth == 100 && Read.fSpeed == 1.5 && Read.sName == "Ogre" && Read.fRest == 0.25f && Read.bEmpty);
    EXPECT_EQ(std::vector<float>(Read.dPlace, Read.dPlace + 4), (std::vector<float>{ 1, 2, 3, 5 }));
}

// Chunks whose header and payload lie across the end of the buffer, left by the reader after any part of them.
TEST(Serialize, ChunksCrossTheBufferAndAreLeftEarly)
{
    std::vector<std::uint32_t> dBlock(2500);
    std::iota(dBlock.begin(), dBlock.end(), 1);
    for (int nLead = BufferedWriteable_c::BUFSIZE - 18; nLead <= BufferedWriteable_c::BUFSIZE; ++nLead)
    {
        std::vector<std::uint32_t> dData = dBlock;
        std::uint32_t dwTail = 77;
        int nPayload = 10000;
        ArchiveBody_t const fnBody = [&](A & a)
        {
            a.Serialize(nullptr, nLead);
            EXPECT_TRUE(a.ChunkBegin("Block"));
            a.Serialize(dData.data(), nPayload);
            a.ChunkEnd("Block");
            EXPECT_EQ(a.GetPosition(), a.IsReading() ? 4 + nLead + 8 + 10000 : -1);
            a.Serialize(dwTail);
            EXPECT_EQ(a.GetLength(), 4 + nLead + 8 + 10000 + 4);
        };
        std::string const sBytes = Saved(fnBody);
        for (int const nRead : { 0, 5000, 10000, 10002 })
        {
            dData.assign(2501, 0);
            nPayload = nRead, dwTail = 0;
            EXPECT_TRUE(Loaded(sBytes, VERSION, fnBody));
            EXPECT_EQ(std::memcmp(dData.data(), dBlock.data(), static_cast<std::size_t>(std::min(nRead, 10000))), 0);
            EXPECT_EQ(dwTail, 77u);
        }
    }
}

TEST(Serialize, VersionsDecideWhatOpens)
{
    LogCapture_c const Log;
    std::uint32_t dwVersion = 0;
    auto const Opens = [&](std::string_view sBytes)
    { return Loaded(sBytes, VERSION, [&](A & a) { dwVersion = a.GetVersion(); }); };
    EXPECT_TRUE(Opens({ "\2\0\1\0", 4 }));
    EXPECT_EQ(dwVersion, 0x00010002u);
    EXPECT_TRUE(Opens({ "\3\0\1\0", 4 }));
    EXPECT_FALSE(Opens({ "\4\0\1\0", 4 }));
    EXPECT_FALSE(SurvivesWithoutAbort([&] { Opens({ "\0\0\2\0", 4 }); }));
    EXPECT_EQ(Log.GetText(), "Serializeable_c: archive is newer version then executable, 10004\nSerializeable_c: "
                             "archive 'memory.arc' is v.2.0, and this binary only supports v.1.3\n");
    Readable_c None(nullptr, FILESYSTEMCACHE_VERSION);
    EXPECT_EQ(None.GetVersion(), 0x00010002u);
    EXPECT_TRUE(!None.Open() && None.IsFailed() && None.Close() && None.Close());
}

TEST(Serialize, AWrongLabelEndsInAbort)
{
    LogCapture_c const Log;
    std::string const sBytes = Saved([](A & a) { a.Label("one"); });
    for (ArchiveBody_t const & fnBody : { ArchiveBody_t([](A & a) { a.Label("two"); }),
             ArchiveBody_t([](A & a) { a.LabelCrc32("one"); }), ArchiveBody_t([](A & a) { a.ChunkBegin("two"); }) })
    {
        EXPECT_FALSE(SurvivesWithoutAbort([&] { Loaded(sBytes, VERSION, fnBody); }));
    }
    EXPECT_EQ(Log.GetText(), "Label 'two' expected in 'memory.arc' file.\n"
                             "LabelCrc32 'one' expected in 'memory.arc' fille.\n"
                             "LabelCrc32 'two' expected in 'memory.arc' fille.\n");
}

// Whatever a byte becomes and wherever the file ends, a load ends: whole, failed, or in a complaint.
TEST(Serialize, DamageEndsEveryLoadInADefinedWay)
{
    LogCapture_c const Log;
    std::string const sWhole = SavedExample();
    auto const End = [](std::string_view sBytes)
    {
        Example_s Read;
        bool bWhole = false;
        auto const fnLoad = [&] { bWhole = Loaded(sBytes, VERSION, [&](A & a) { Read.Serialize(a); }); };
        bool const bBack = SurvivesWithoutAbort(fnLoad);
        return !bBack ? 'a' : bWhole ? 'w' : 'f';
    };
    std::string sEnds;   // of the worst change of each byte: abort, failed, whole
    for (std::size_t i = 0; i < sWhole.size(); ++i)
    {
        EXPECT_EQ(End(sWhole.substr(0, i)), 'f') << "cut at " << i;
        char cWorst = 'w';
        for (int const iFlip : { 0x01, 0x80, 0xFF, 0x02, 0x7F })
        {
            std::string sDamaged = sWhole;
            sDamaged[i] = static_cast<char>(sDamaged[i] ^ iFlip);
            cWorst = std::min(cWorst, End(sDamaged));
        }
        sEnds += cWorst;
    }
    EXPECT_EQ(sEnds, "ffaa" /* version */ "aaaa" /* label */ "wwwwwwwwwwww"
                     "aaaaafff" /* chunk: name and length */
                     "ffff" /* text's length */ "wwwwwwwwwwwwwwwww"
                     "aaaaffff" /* empty chunk */ "wwwwwww");
}

TEST(Serialize, AFailedArchiveMovesNothingAndIsSilent)
{
    LogCapture_c const Log;
    int iKept = 5;
    double fKept = 0.5;
    String_T<256> sKept("kept");
    EXPECT_FALSE(Loaded({ "\3\0\1\0\1\0\0\0", 8 }, VERSION,
        [&](A & a)
        {
            a.Serialize(fKept);
            a.Serialize(iKept);
            a.SerializeString(sKept);
            a.Label("other");
            EXPECT_FALSE(a.ChunkBegin("chunk"));
            a.ChunkEnd("another");
            EXPECT_EQ(a.LabelRead(), 0u);
            EXPECT_EQ(a.GetPosition(), 4);
        }));
    EXPECT_TRUE(iKept == 5 && fKept == 0.5 && sKept == "kept");
    EXPECT_EQ(Log.GetText(), "");
}

TEST(Serialize, BrokenPreconditionsFailTheArchive)
{
    String_T<256> sText("text of 18 letters");
    char szSmall[18] = "kept";
    std::string const sChunk = Saved([&](A & a) { a.ChunkBegin("A"), a.SerializeString(sText), a.ChunkEnd("A"); });
    std::string const sOpen = "m_pCurrentChunk && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))";
    struct Row_s
    {
        std::string sCondition;
        ArchiveBody_t fnBody;
    };
    for (Row_s const & row :
        {
            Row_s{ "!m_pCurrentChunk", [](A & a) { a.ChunkBegin("A"), a.ChunkBegin("A"); } },
            Row_s{ sOpen, [](A & a) { a.ChunkBegin("A"), a.ChunkEnd("a"); } },
            Row_s{ sOpen, [](A & a) { a.ChunkEnd("A"); } },
            Row_s{ "Len < iBufLength, text of 18 characters in 'memory.arc' file, with room for 17",
                [&](A & a) { a.ChunkBegin("A"), a.SerializeString(szSmall, 18); } },
            Row_s{ "sBuffer && iBufLength > 0", [&](A & a) { a.SerializeString(szSmall, 0); } },
            Row_s{ "", [](A & a) { a.Serialize(&a, -1); } },
        })
    {
        EXPECT_EQ(FailedConditions([&] { EXPECT_FALSE(Loaded(sChunk, VERSION, row.fnBody)); }), row.sCondition);
        EXPECT_STREQ(szSmall, "kept");
    }
    TempFolder_c const Folder;
    Writeable_c Archive(Folder.Join("a.arc").c_str(), VERSION);
    EXPECT_EQ(
        FailedConditions([&] { Archive.LabelRead(), Archive.ChunkEnd("A"), Archive.Close(), Archive.GetLength(); }),
        "m_bIsReading & m_dwCurrentChunk != NO_CHUNK && m_dwChunkLabel == GetCrc32Polynomial(sName, strlen(sName))"
        " & m_hFile");
    EXPECT_TRUE(Archive.IsFailed() && Archive.Close());
}

TEST(Serialize, AFileThatCannotBeMadeFailsOpen)
{
    TempFolder_c const Folder;
    DialogScript_c const Dialogs;
    Folder.MakeFolder("f.bin");
    Folder.MakeFolder("f.arc");
    Writeable_c const First(Folder.Join("taken.bin").c_str(), VERSION);
    for (char const * szName : { "taken.bin", "f.bin", "f.arc" })
    {
        BufferedWriteable_c Archive(Folder.Join(szName).c_str(), VERSION);
        EXPECT_TRUE(!Archive.Open() && Archive.IsFailed() && !Archive.Serialize(&Archive, 9999) && Archive.Close());
    }
    EXPECT_EQ(Dialogs.GetCount(), 1);
    EXPECT_EQ(Dialogs.CountHolding("f.arc' failed!"), 1) << "the open tracker was told";
}

// In a child whose files may not grow beyond 6000 bytes: a value, a flush, the zeros at the end, the flush at the end.
TEST(Serialize, AFullDiskSetsTheFlag)
{
    TempFolder_c const Folder;
    auto const Fails = [&](auto && Archive, int nValues, int nSkip, bool bCloses)
    {
        bool bGood = Archive.Open() && Archive.ChunkBegin("Big");
        for (int i = 0; i < nValues; ++i)
        {
            Archive.Serialize(i);
        }
        bGood = bGood && Archive.Serialize(nullptr, nSkip) == !bCloses && Archive.IsFailed() == bCloses;
        return bGood && Archive.Close() == bCloses && Archive.IsFailed() && !Archive.Serialize(&bGood, 1);
    };
    pid_t const iChild = fork();
    if (iChild == 0)
    {
        rlimit const Limit{ 6000, 6000 };
        std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &Limit);
        using W = Writeable_c;
        using B = BufferedWriteable_c;
        std::string const sPath = Folder.Join("a.arc");
        bool const bAll = Fails(W(sPath.c_str(), VERSION), 5000, 1, true)
                          && Fails(W(sPath.c_str(), VERSION), 1, 6000, false)
                          && Fails(B(sPath.c_str(), VERSION), 1100, 1700, false);
        B Flushed(sPath.c_str(), VERSION);
        _exit(bAll && Flushed.Open() && !Flushed.Serialize(nullptr, 9000) && !Flushed.Close() ? 0 : 1);
    }
    int iStatus = -1;
    waitpid(iChild, &iStatus, 0);
    EXPECT_EQ(iStatus, 0);
}

TEST(Serialize, ValuesTakeNoMemoryAndWaitBelowTheBufferSize)
{
    TempFolder_c const Folder;
    std::string const sPath = Folder.Join("a.arc");
    BufferedWriteable_c Archive(sPath.c_str(), VERSION);
    ASSERT_TRUE(Archive.Open());
    std::ptrdiff_t const nBlocks = MemoryTotalAllocations();
    for (int i = 1; i <= 3000; ++i)
    {
        Archive.Serialize(i);
        EXPECT_EQ(Archive.GetLength(), 4 + 4 * i) << "on disk and waiting";
    }
    EXPECT_EQ(MemoryTotalAllocations(), nBlocks);
    EXPECT_EQ(Folder.Read("a.arc").size(), 8192u);
    EXPECT_STREQ(Archive.GetFileName(), sPath.c_str());
}
