// The report's parts about the world and its run.
#include "bay.h"
#include "loop.h"
#include "report.h"
#include "saves.h"
#include "texts.h"
#include "world.h"

#include "zqcore/csimpleprofile.h"
#include "zqcore/cwarehouse.h"

#include <cstdio>

namespace
{
    // Prints each kind's share of the work in the simple profiler's previous span. Skips kinds without time.
    void PrintShares()
    {
        auto const Ticks = [](int iType)
        {
            auto const eType = static_cast<SimpleProfileType_e>(iType);
            return static_cast<double>(SimpleProfileGet(SIMPLE_PROFILE_CONTEXT_1, eType).tAverage);
        };
        double tAll = 0.0;   // ticks
        for (int i = 0; i <= SIMPLE_TIMER_DEBUG; ++i)
        {
            tAll += Ticks(i);
        }
        for (int i = 0; i <= SIMPLE_TIMER_DEBUG; ++i)
        {
            if (Ticks(i) > 0.0)
            {
                std::printf("    %-24s %5.1f %%\n", SimpleProfileName(static_cast<SimpleProfileType_e>(i)),
                    100.0 * Ticks(i) / tAll);
            }
        }
    }

    // Prints the size from view.txt, a table of the configuration, if that has both numbers.
    void PrintView()
    {
        Warehouse_c View;
        int iWidth = 0, iHeight = 0;
        bool const bSized = View.Open("view.txt") && View.FindIdent("width") && View.Get("value", iWidth)
                            && View.FindIdent("height") && View.Get("value", iHeight);
        if (bSized)
        {
            std::printf("  Shown at %i x %i, says view.txt of the configuration\n", iWidth, iHeight);
        }
    }

    void PrintBalance(Balance_s const & Balance)
    {
        std::printf("  Level %s:", Sz(Shown(Balance.sLevel)));
        char const * szSeparator = " ";
        for (BalanceColumn_s const & Column : BALANCE_COLUMNS)
        {
            std::printf("%s%s x %g", szSeparator, Column.szName, static_cast<double>(Balance.*Column.pFactor));
            szSeparator = ", ";
        }
        std::printf("\n");
    }

    void PrintShips(Bay_s const & Bay)
    {
        std::printf("    %-12s %-16s %8s %8s %10s  %-16s %s\n", "ship", "type", "voyages", "crates", "profit",
            "news from", "where");
        for (Ship_s const * const pShip : Bay.dShips)
        {
            Ship_s const & Ship = *pShip;
            std::printf("    %-12s %-16s %8i %8i %10s  %-16s %s %s\n", Sz(Shown(Ship.sIdent)),
                Sz(Shown(Ship.pType->sName)), Ship.nVoyages, Ship.nLanded, Sz(Grouped(Ship.iProfit)),
                Sz(Shown(Ship.pMet ? static_cast<char const *>(Ship.pMet->sIdent) : "nobody")), Ship.pDuty->szWhere,
                Sz(Shown(Ship.From().sName)));
        }
    }

    void PrintGoods(Bay_s const & Bay)
    {
        std::printf("  Landed:");
        char const * szSeparator = " ";
        for (Good_s const & Good : Bay.dGoods)
        {
            if (Good.nTraded > 0)
            {
                std::printf("%s%i %s", szSeparator, Good.nTraded, Sz(Shown(Good.sIdent)));
                szSeparator = ", ";
            }
        }
        std::printf("\n");
    }

    void PrintMission(Mission_s const & Mission)
    {
        static constexpr char const * STATES[] = { "open", "met", "missed" };
        if (!Mission.dGoals.IsEmpty())
        {
            std::printf("  Mission: %s\n", Sz(Shown(Mission.sTitle)));
        }
        for (Goal_s const & Goal : Mission.dGoals)
        {
            std::printf("    %4i %-8s by day %3i for %4i marks: %s\n", Goal.nCrates, Sz(Shown(Goal.pGood->sIdent)),
                Goal.nDays, Goal.iPay, STATES[Goal.eState]);
        }
    }

    void PrintSave(SaveResult_t const & Result, Bay_s const & Bay)
    {
        std::printf("  %i ships, %i harbours, %i goods and %i goals after %i hours: %s in %s\n", Bay.dShips.GetLength(),
            Bay.dHarbours.GetLength(), Bay.dGoods.GetLength(), Bay.Mission.dGoals.GetLength(), Bay.nHours,
            Sz(Size(static_cast<double>(Result.nBytes))), Sz(Duration(Result.tTaken)));
    }
}

void ReportNotLoaded(char const * szWhy)
{
    if (ReportBegin("loaded", "Loaded"))
    {
        std::printf("  Nothing: %s.\n", Sz(Shown(szWhy)));
    }
}

void ReportLoad(SaveResult_t const & Result, ModuleWorld_c const & World)
{
    if (!Result.sKept.empty() || !Result.sPrevious.empty())
    {
        std::printf("\nThe save can't be loaded: %s.\n", Sz(Shown(Result.sWhyNot.c_str())));
        if (!Result.sKept.empty())
        {
            std::printf("  It is kept as %s.\n", Sz(Shown(Result.sKept.c_str())));
        }
        std::printf("  The world %s%s.\n", Result.sPrevious.empty() ? "starts new" : "continues from ",
            Sz(Shown(Result.sPrevious.c_str())));
    }
    else if (!Result.sWhyNot.empty())
    {
        ReportNotLoaded(Result.sWhyNot.c_str());
    }
    else if (ReportBegin("loaded", "Loaded"))
    {
        PrintSave(Result, World.GetBay());
    }
}

void ReportSave(SaveResult_t const & Result, ModuleWorld_c const & World)
{
    if (Result.sWhyNot.empty() && ReportBegin("saved", "Saved"))
    {
        PrintSave(Result, World.GetBay());
    }
}

void ReportWorld(ModuleWorld_c const & World)
{
    if (!ReportBegin("world", "World"))
    {
        return;
    }
    if (World.IsEmpty())
    {
        std::printf("  Nothing sailed: %s.\n", Sz(Shown(World.GetWhyEmpty())));
        return;
    }
    Bay_s const & Bay = World.GetBay();
    std::printf("  Game %08x: %i days and %i hours over %i harbours\n", Bay.dwGame, Bay.nHours / HOURS,
        Bay.nHours % HOURS, Bay.dHarbours.GetLength());
    PrintView();
    PrintBalance(World.GetBalance());
    PrintShips(Bay);
    PrintGoods(Bay);
    PrintMission(Bay.Mission);
    std::printf(
        "  The purse: %s marks at first, %s now\n", Sz(Grouped(g_House.iFirstPurse)), Sz(Grouped(g_House.iPurse)));
}

void ReportFrames(FrameStats_t const & Stats)
{
    if (!ReportBegin("frames", "Frames"))
    {
        return;
    }
    std::printf("  %s frames and %s idle beats; %u allocations in the busiest frame\n", Sz(Grouped(Stats.nFrames)),
        Sz(Grouped(Stats.nIdle)), Stats.nMostAllocs);
    if (Stats.nFrames > 0)
    {
        std::printf("  Work a frame: mean %s, worst %s (frame %i)\n", Sz(Duration(Stats.tTotal / Stats.nFrames)),
            Sz(Duration(Stats.tWorst)), Stats.iWorstFrame);
        PrintShares();
    }
}
