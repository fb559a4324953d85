#include "report.h"

#include "listeners.h"
#include "services.h"
#include "settings.h"
#include "survey.h"
#include "texts.h"

#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <cstdio>

namespace
{
    constexpr int TOP_EXTENSIONS = 10;
    constexpr int TOP_FILES = 5;
    constexpr int TOP_TABLES = 30;

    void PrintMore(int nAll, int nShown)
    {
        if (nAll > nShown)
        {
            std::printf("    and %s more\n", Sz(Grouped(nAll - nShown)));
        }
    }

    void PrintExtensions(Survey_c::Extensions_t const & dExtensions)
    {
        int const nShown = std::min(dExtensions.GetLength(), TOP_EXTENSIONS);
        for (int i = 0; i < nShown; ++i)
        {
            Extension_s const & Extension = dExtensions[i];
            char const * const szDot = Extension.sExt.IsEmpty() ? "(no extension)" : ".";
            std::printf("    %-20s %7s files %12s\n", Va("%s%s", szDot, Sz(Shown(Extension.sExt))),
                Sz(Grouped(Extension.nFiles)), Sz(Size(static_cast<double>(Extension.nBytes))));
        }
        PrintMore(dExtensions.GetLength(), nShown);
    }

    void PrintBiggest(Survey_c::Files_t const & dFiles)
    {
        std::printf("  The biggest\n");
        for (int i = 0; i < std::min(dFiles.GetLength(), TOP_FILES); ++i)
        {
            std::printf("    %12s  %s\n", Sz(Size(SizeOf(*dFiles[i]))), Sz(BelowRoot(*dFiles[i])));
        }
    }

    void PrintDuplicates(int nNames, Notes_s const & Notes)
    {
        if (Notes.Dropped.nHeard == 0)
        {
            return;
        }
        std::printf("  Names that more than one file has: %s; files dropped for it: %s\n", Sz(Grouped(nNames)),
            Sz(Grouped(Notes.Dropped.nHeard)));
        int const nShown = std::min(Notes.Dropped.GetStored(), Notes.Kept.GetStored());
        for (int i = 0; i < nShown; ++i)
        {
            std::printf(
                "    %s stays, %s goes\n", Sz(BelowRoot(Notes.Kept.dTexts[i])), Sz(BelowRoot(Notes.Dropped.dTexts[i])));
        }
        PrintMore(Notes.Dropped.nHeard, nShown);
    }

    void PrintHeard(char const * szWhat, Heard_s const & Heard)
    {
        std::printf("  %s: %s\n", szWhat, Sz(Grouped(Heard.nHeard)));
        for (int i = 0; i < Heard.GetStored(); ++i)
        {
            std::printf("    %s\n", Sz(Heard.dTexts[i]));
        }
        PrintMore(Heard.nHeard, Heard.GetStored());
    }

    void PrintMemory(char const * szCategory, char const * szBlocks, char const * szLive, char const * szPeak)
    {
        std::printf("    %-22s %12s %12s %12s\n", szCategory, szBlocks, szLive, szPeak);
    }
}

bool ReportBegin(char const * szPart, char const * szTitle)
{
    bool const bHasPart = ModuleSettings_c::Get()->HasPart(szPart);
    if (bHasPart)
    {
        std::printf("\n%s\n", szTitle);
    }
    return bHasPart;
}

void ReportServices(Services_c const & Services)
{
    if (!ReportBegin("services", "Services, in the order of their start"))
    {
        return;
    }
    for (int i = 0; i < Services.GetCount(); ++i)
    {
        std::printf("    %i  %-22s %12s\n", i + 1, Services.GetName(i), Sz(Duration(Services.GetStartTime(i))));
    }
}

void ReportFiles(Survey_c const & Survey, char const * szSource, double tTables, Notes_s const & Notes)
{
    if (!ReportBegin("files", "Files"))
    {
        return;
    }
    std::printf("  %s files in %s folders, %s\n", Sz(Grouped(Survey.GetFiles().GetLength())),
        Sz(Grouped(Survey.m_nFolders)), Sz(Size(static_cast<double>(Survey.m_nBytes))));
    std::printf("  Known in %s from %s\n", Sz(Duration(tTables)), szSource);
    PrintExtensions(Survey.GetExtensions());
    PrintBiggest(Survey.GetFiles());
    PrintDuplicates(Survey.CountDuplicates(), Notes);
    if (Notes.Skipped.nHeard > 0)
    {
        PrintHeard("Remarks of the scan", Notes.Skipped);
    }
    std::printf("  Read once, each by its bare name: %s files, %s in %s\n", Sz(Grouped(Survey.m_nRead)),
        Sz(Size(static_cast<double>(Survey.m_nBytesRead))), Sz(Duration(Survey.m_tReading)));
    if (Survey.m_nRead > 0)
    {
        std::printf("    that is %s/s, and %s a file\n",
            Sz(Size(static_cast<double>(Survey.m_nBytesRead) / Survey.m_tReading)),
            Sz(Duration(Survey.m_tReading / Survey.m_nRead)));
    }
    std::printf("  Empty: %s; not readable: %s\n", Sz(Grouped(Survey.m_nEmpty)), Sz(Grouped(Survey.m_nUnreadable)));
}

void ReportTables(Survey_c const & Survey)
{
    if (!ReportBegin("tables", "Warehouse tables"))
    {
        return;
    }
    Survey_c::Tables_t const & dTables = Survey.GetTables();
    std::printf("  %s tables with %s rows, walked in %s\n", Sz(Grouped(dTables.GetLength())),
        Sz(Grouped(Survey.m_nRows)), Sz(Duration(Survey.m_tTables)));
    int const nShown = std::min(dTables.GetLength(), TOP_TABLES);
    for (int i = 0; i < nShown; ++i)
    {
        std::printf("    %6s rows  %s\n", Sz(Grouped(dTables[i].nRows)), Sz(BelowRoot(*dTables[i].pFile)));
    }
    PrintMore(dTables.GetLength(), nShown);
}

void ReportMemory()
{
    if (!ReportBegin("memory", "Memory"))
    {
        return;
    }
    mem::CategoryInfo dInfo[mem::TOTAL];
    std::ptrdiff_t nBlocks = 0, nBytes = 0, nMaxBytes = 0;
    MemoryCategoriesGet(dInfo, nBlocks, nBytes, nMaxBytes);
    PrintMemory("category", "live blocks", "live", "peak");
    for (int i = 0; i < mem::TOTAL; ++i)
    {
        if (dInfo[i].iMaxCount > 0)
        {
            PrintMemory(MemoryCategoryName(static_cast<mem::Categories_e>(i)), Sz(Grouped(dInfo[i].iCount)),
                Sz(Size(static_cast<double>(dInfo[i].iBytes))), Sz(Size(static_cast<double>(dInfo[i].iMaxBytes))));
        }
    }
    PrintMemory(
        "all", Sz(Grouped(nBlocks)), Sz(Size(static_cast<double>(nBytes))), Sz(Size(static_cast<double>(nMaxBytes))));
}

void ReportComplaints(Notes_s const & Notes)
{
    if (!ReportBegin("complaints", "Complaints"))
    {
        return;
    }
    PrintHeard("Warnings", Notes.Complaints);
}
