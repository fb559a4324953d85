#include "zqcore/cmemoryreport.h"

#include "zqcore/clogf.h"
#include "zqcore/cmemory_internal.h"

#include "tests/memory_support.h"
#include "tests/test_support.h"

#include <sstream>

namespace
{
    using testing::HasSubstr;
    using testing::Not;

    char const * const SOURCE = __FILE__;

    // Returns the word of a client block of a category.
    std::uint32_t ClientWord(mem::Categories_e eCategory)
    {
        return static_cast<std::uint32_t>(WordOf(eCategory, MEMORY_CLIENT_BLOCK));
    }

    // Returns a record of the call log for the frame nFrames after the present one.
    std::string Record(int nFrames, int iLine, mem::Categories_e eCategory, std::size_t nBytes)
    {
        std::ostringstream Text;
        Text << g_MemoryCounters.iFrame + nFrames << ";\"" << SOURCE << "\";" << iLine << ';' << eCategory << ';'
             << nBytes << '\n';
        return Text.str();
    }

    // Runs fnRun in a child process, whose call log has no header yet and lies in Folder.
    void RunInChild(TempFolder_c const & Folder, void (*fnRun)())
    {
        auto const Run = [&]
        {
            ModuleLog_c::SetLogPath(WideFromAscii(Folder.GetPath()).c_str());
            EXPECT_TRUE(StartModule(ModuleLog_c::Get()));
            fnRun();
            return 0;
        };
        EXPECT_EQ(StatusOfChild(StartChild(Run)), 0);
    }

    // Allocates and frees two blocks of kinds that are logged, and one of a kind that is not.
    void AllocateAndFree()
    {
        MemCategoryScope_c const Scope(mem::Core);
        CoreMemory::operator_delete(CoreMemory::operator_new(40, MEMORY_CLIENT_BLOCK, SOURCE, 11));
        plat::HeapFree(plat::HeapAlloc(7, MEMORY_CRT_BLOCK, SOURCE, 12));
        plat::HeapFree(plat::HeapAlloc(8, ClientWord(mem::AI), SOURCE, 13));
    }

    // Returns the call log's records of AllocateAndFree.
    std::string AllocatedBlocks(int nFrames)
    {
        return Record(nFrames, 11, mem::Core, 40 + AROUND) + Record(nFrames, 13, mem::AI, 8);
    }
}

TEST(MemoryReport, CallLogHasOneHeaderAndEachAllocationWhileItIsOn)
{
    TempFolder_c const Folder;
    RunInChild(Folder,
        []
        {
            MemoryNewLogEnable(false);
            AllocateAndFree();
        });
    EXPECT_FALSE(std::filesystem::exists(Folder.Join("newcalls.csv"))) << "a log that is off makes no file";

    RunInChild(Folder,
        []
        {
            MemoryNewLogEnable(true);
            AllocateAndFree();
            MemoryNewLogToggle();
            AllocateAndFree();
            MemoryNewLogToggle();
            MemoryResetFrameAllocCount();
            MemoryResetFrameAllocCount();
            AllocateAndFree();
            MemoryNewLogEnable(false);
        });
    EXPECT_EQ(
        Folder.Read("newcalls.csv"), "frame;file;line;category;size;\n" + AllocatedBlocks(0) + AllocatedBlocks(2));

    RunInChild(Folder,
        []
        {
            MemoryNewLogEnable(true);
            Module_c::ShutdownAllModules();   // so that the next record opens the file, which allocates a block
            Module_c::InitializeAllModules();
            std::ptrdiff_t const nLoggers = g_MemoryCounters.dCount[mem::logger];
            AllocateAndFree();
            EXPECT_EQ(g_MemoryCounters.dCount[mem::logger], nLoggers + 1);
            MemoryNewLogEnable(false);
        });
    EXPECT_EQ(Folder.Read("newcalls.csv"), AllocatedBlocks(0)) << "without that block";
}

TEST(MemoryReport, ListsLiveBlocksAndTalliesThemBySize)
{
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    MemoryLogAllocations();   // allocates what opening a file keeps
    MemoryTally_s Tally = MemoryWriteBlocks(nullptr, nullptr);

    struct Row_s
    {
        std::size_t nBytes;
        int iClass;   // index in dInClass; -1 if no class counts the block
    };
    constexpr Row_s BLOCKS[] = { { 0, 0 }, { 64, 0 }, { 65, 1 }, { 128, 1 }, { 129, 2 }, { 257, 3 }, { 512, 3 },
        { 513, -1 } };
    void * dBlocks[std::size(BLOCKS) + 3] = { plat::HeapAlloc(3, MEMORY_CRT_BLOCK, "other kind", 1),
        plat::HeapAlloc(5, ClientWord(mem::TOTAL), SOURCE, 77), plat::HeapAlloc(6, ClientWord(mem::AI), nullptr, 0) };
    Tally.nTotal += 2;
    Tally.dInClass[0] += 2;
    for (std::size_t i = 0; i < std::size(BLOCKS); ++i)
    {
        auto const & [nBytes, iClass] = BLOCKS[i];
        dBlocks[3 + i] = plat::HeapAlloc(nBytes, ClientWord(mem::GFX), SOURCE, 123);
        ++Tally.nTotal;
        Tally.dInClass[std::max(iClass, 0)] += iClass >= 0 ? 1 : 0;
    }
    MemoryLogAllocations();
    std::for_each(std::begin(dBlocks), std::end(dBlocks), plat::HeapFree);

    std::string const sReport = Folder.Read("allocations.csv");
    std::string const sPlace = std::string(SOURCE) + "(123)\n";
    EXPECT_THAT(sReport, testing::StartsWith("Memory allocations\n"));
    EXPECT_THAT(sReport, HasSubstr("513; GFX; " + sPlace + "512; GFX; " + sPlace + "257; GFX; " + sPlace));
    EXPECT_THAT(sReport, HasSubstr("6; AI; unknown(0)\n5; UNDEFINED; " + std::string(SOURCE) + "(77)\n"));
    EXPECT_THAT(sReport, Not(HasSubstr("other kind")));
    EXPECT_THAT(Folder.Read("uncategorized.csv"), HasSubstr("5; " + std::string(SOURCE) + "(77)\n"));
    EXPECT_THAT(Folder.Read("uncategorized.csv"), Not(HasSubstr("(123)")));

    auto const Text = [&Folder](MemoryTally_s const & Counts)
    {
        std::FILE * const pFile = std::fopen(Folder.Join("tally").c_str(), "w");
        MemoryWriteTally(pFile, Counts);
        std::fclose(pFile);
        return Folder.Read("tally");
    };
    EXPECT_THAT(sReport, testing::EndsWith(Text(Tally)));
    EXPECT_EQ(Text({ { 1, 0, 2, 4 }, 8 }),
        "\nTotal allocations\n8; total\n1; 64 bytes; 12%\n0; 128 bytes; 0%\n2; 256 bytes; 25%\n4; 512 bytes; 50%\n\n");
    EXPECT_THAT(Text({}), HasSubstr("\n0; 64 bytes; 0%\n")) << "no division by 0";
}

TEST(MemoryReport, FileThatCanNotBeOpenedFailsItsConditionAndSparesTheOther)
{
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    Folder.MakeFolder("allocations.csv");
    void * const pBlock = plat::HeapAlloc(9, ClientWord(mem::UNDEFINED), SOURCE, 5);
    EXPECT_EQ(FailedConditions(MemoryLogAllocations), "context.f");
    plat::HeapFree(pBlock);
    EXPECT_THAT(Folder.Read("uncategorized.csv"), HasSubstr("9; " + std::string(SOURCE) + "(5)\n"));
    std::remove(Folder.Join("uncategorized.csv").c_str());
    Folder.MakeFolder("uncategorized.csv");
    EXPECT_EQ(FailedConditions(MemoryLogAllocations), "context.f & context.fu");
    EXPECT_TRUE(MemoryLogAllocationsFailed());
}

TEST(MemoryReport, FileThatIsNotWrittenWholeIsLogged)
{
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    LogCapture_c const Log;
    std::vector<void *> dBlocks(2000);
    std::ranges::generate(dBlocks, [] { return plat::HeapAlloc(1, ClientWord(mem::UNDEFINED), SOURCE, 5); });
    for (rlim_t const nBytes : { 5, 50000 })   // the first flush fails, or a later one
    {
        FullDisk_c const Full(nBytes);
        MemoryLogAllocations();
        EXPECT_TRUE(MemoryLogAllocationsFailed()) << nBytes;
    }
    EXPECT_EQ(Log.CountHolding("MemoryLogAllocations: allocations.csv: File too large"), 2);
    EXPECT_EQ(Log.CountHolding("MemoryLogAllocations: uncategorized.csv: File too large"), 2);
    std::ranges::for_each(dBlocks, plat::HeapFree);
    MemoryLogAllocations();
    EXPECT_FALSE(MemoryLogAllocationsFailed());
}
