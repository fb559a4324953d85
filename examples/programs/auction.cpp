// Sells the cargo of a wreck, one auction a run: auction MEDIA SAVE STATS
//
// A table, a list and a script, found by their bare names, say what is sold and how. A save keeps the lots of all runs.
// The stats file has each frame of the bidding.
#include "zqcore/capp.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilename.h"
#include "zqcore/cfilesave.h"
#include "zqcore/cmemory.h"
#include "zqcore/cprofile.h"
#include "zqcore/cpropertylist.h"
#include "zqcore/crandom.h"
#include "zqcore/cscript.h"
#include "zqcore/cserializer.h"
#include "zqcore/cserializestd.h"
#include "zqcore/cwarehouse.h"

#include <cstdio>
#include <filesystem>
#include <memory>

namespace
{
    constexpr std::uint32_t VERSION = 0x00010000;   // major version 1, minor version 0

    struct Lot_s
    {
        virtual ~Lot_s() = default;
        virtual void Serialize(Serializeable_c & Archive)
        {
            Archive.Serialize(sName).Serialize(nCrates).Serialize(nMarks).Serialize(dBidders).Serialize(pBefore);
        }
        virtual Serializer_c & GetSerializer() const { return s_Serializer; }
        static Serializer_T<Lot_s> s_Serializer;

        std::string sName;
        std::uint32_t nCrates = 0, nMarks = 0;
        std::vector<std::string> dBidders;   // the last one bought it
        Lot_s * pBefore = nullptr;           // the lot that was sold before
    };
    Serializer_T<Lot_s> Lot_s::s_Serializer("Lot");

    struct Perishable_s final : Lot_s
    {
        void Serialize(Serializeable_c & Archive) override
        {
            Lot_s::Serialize(Archive);
            Archive.Serialize(nSpoils);
        }
        Serializer_c & GetSerializer() const override { return s_Serializer; }
        static Serializer_T<Perishable_s, Lot_s> s_Serializer;

        std::uint16_t nSpoils = 0;   // crates of a thousand that are lost in a day
    };
    Serializer_T<Perishable_s, Lot_s> Perishable_s::s_Serializer("Perishable");

    // Returns a new lot, which the caller deletes. The table says whether the goods last.
    Lot_s * MakeLot(std::string const & sGoods)
    {
        Warehouse_c Goods;
        std::uint16_t nSpoils = 0;
        if (Goods.Open("goods.csv") && Goods.FindIdent(sGoods.c_str()) && Goods.Get("spoils", nSpoils) && nSpoils > 0)
        {
            Perishable_s * const pLot = ZQ_NEW Perishable_s;
            pLot->nSpoils = nSpoils;
            return pLot;
        }
        return ZQ_NEW Lot_s;
    }

    // Sells a lot. The first frame has a bid, and each later frame one at most. The level in the list of settings says
    // how often a frame has one. A bid raises the price by a tenth.
    void Bid(Lot_s & Lot, RandomNumber_c & Random)
    {
        static constexpr EnumName_T<std::uint32_t> CHANCES[] = { { "calm", 8 }, { "fair", 4 }, { "rough", 2 } };
        static constexpr char const * DEALERS[] = { "Brindle", "Orsk", "Tove" };
        std::uint32_t nChance = 0;
        String_T<32> sLevel;
        PropertyList_c Settings;
        if (Settings.Open("settings.prp") && Settings.StartVal("level") && Settings.NextVal(sLevel))
        {
            EnumFromName(sLevel, nChance, CHANCES);   // frames of a hundred that have a bid
        }
        for (int iFrame = 0; iFrame < PROFILER_FRAMES; ++iFrame)
        {
            ProfilerBeginFrame();
            if (ProfilerScope_c const Timer("Bid"); Lot.dBidders.empty() || Random.NextBelow(100) < nChance)
            {
                Lot.dBidders.push_back(DEALERS[Random.NextBelow(std::size(DEALERS))]);
                Lot.nMarks += Lot.nMarks / 10;
            }
            ProfilerEndFrame();
            ProfilerUpdateFrame(false);
        }
    }

    // Sells the lots of the script: lot GOODS CRATES opens MARKS. Sets pLast to the lot that was sold last. Returns
    // false if the script can't be opened.
    bool HoldAuction(Lot_s *& pLast)
    {
        RandomNumber_c Random(pLast ? pLast->nMarks : 1);
        Script_c Script;
        bool const bOpen = Script.OpenFile("auction.scr");
        while (bOpen && Script.RewindAfterToken("lot", false, true))
        {
            std::string sGoods;
            Script.Get(sGoods);
            Lot_s * const pLot = MakeLot(sGoods);
            pLot->sName = sGoods;
            pLot->pBefore = std::exchange(pLast, pLot);
            Script.Get(pLot->nCrates);
            Script.SkipToken("opens");
            Script.Get(pLot->nMarks);
            Bid(*pLot, Random);
        }
        Script.CloseFile();
        return bOpen;
    }

    // Loads or saves pLast and the lots before it. Returns false on failure.
    bool Transfer(Serializeable_c & Archive, Lot_s *& pLast)
    {
        if (Archive.Open())
        {
            Serializer_c::StartSerialize(Archive, false);
            Archive.Serialize(pLast);
        }
        return Archive.Close() && !Archive.IsFailed();
    }

    // Loads the lots of previous runs, adds those of this one, and saves all. Returns false if any of these fails.
    bool Run(FileSave_c & Save, Lot_s *& pLast)
    {
        MemCategoryScope_c const Category(mem::GameWorld);
        FileSave_c::State_e const eState = Save.Load(VERSION);
        Readable_c Old(Save.OpenFile(), VERSION);
        if (eState != FileSave_c::ABSENT && (eState != FileSave_c::WHOLE || !Transfer(Old, pLast)))
        {
            char const * const szWhyNot = eState == FileSave_c::WHOLE ? "the save can't be loaded" : Save.GetWhyNot();
            std::fprintf(stderr, "auction: %s\n", szWhyNot);
            return false;
        }
        bool const bHeld = HoldAuction(pLast);
        FileSaveWriter_c Writer(Save);
        BufferedWriteable_c New(Writer, VERSION);
        bool const bSaved = bHeld && Transfer(New, pLast) && Writer.Commit();
        if (bHeld && !bSaved)
        {
            std::fprintf(stderr, "auction: %s\n", Writer.GetWhyNot());
        }
        return bSaved;
    }
}

int main(int nArguments, char ** dArguments)
{
    if (nArguments != 4)
    {
        std::fprintf(stderr, "auction: MEDIA SAVE STATS\n");
        return 2;
    }
    SetPQXMediaPath(std::filesystem::absolute(dArguments[1]).c_str());
    ProfilerInitSwapStats(std::filesystem::absolute(dArguments[3]).c_str());
    FileSave_c Save(std::filesystem::absolute(dArguments[2]).c_str());
    AppMiscStartup();
    Module_c::Register(ModuleFile_c::Get());
    Module_c::Register(ModuleProfiler_c::Get());
    Module_c::Register(ModuleSerialize_c::Get());
    Lot_s * pLast = nullptr;
    bool const bSold = Module_c::InitializeAllModules() && Run(Save, pLast);
    mem::CategoryInfo dInfo[mem::TOTAL];
    std::ptrdiff_t nBlocks = 0, nBytes = 0, nMostBytes = 0;
    MemoryCategoriesGet(dInfo, nBlocks, nBytes, nMostBytes);
    std::printf("%td blocks of the world\n", dInfo[mem::GameWorld].iCount);
    while (pLast)
    {
        std::unique_ptr<Lot_s> const pLot(std::exchange(pLast, pLast->pBefore));
        std::printf("%3u %-5s %5u marks\n", pLot->nCrates, pLot->sName.c_str(), pLot->nMarks);
    }
    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return bSold && std::fflush(stdout) == 0 ? 0 : 1;   // fails too if the output is lost
}
