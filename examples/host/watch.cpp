#include "watch.h"

#include "survey.h"
#include "texts.h"
#include "world.h"

#include "zqcore/ccallback.h"
#include "zqcore/cfile.h"
#include "zqcore/cfiletrack.h"
#include "zqcore/cwarehousescan.h"

#include <csignal>
#include <cstdio>
#include <map>
#include <utility>

namespace
{
    constexpr int MAX_ROWS = 20;   // most rows that are printed of each kind of change

    // The cells of each row, joined, by the row's ident. A repeated ident gets a number.
    using Rows_t = std::map<std::string, std::string>;

    std::map<std::string, Rows_t> g_dTables;   // by the file's key
    volatile std::sig_atomic_t g_bOver = 0;
    volatile std::sig_atomic_t g_bHungUp = 0;

    // Asks the host to end. A second signal ends the process at once.
    void OnSignal(int)
    {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        g_bOver = 1;
    }

#ifdef SIGHUP
    // Notes that the terminal was closed. Ignores a second signal, which comes if the shell passes the first one on.
    void OnHangUp(int iSignal)
    {
        std::signal(iSignal, SIG_IGN);
        g_bHungUp = 1;
        g_bOver = 1;
    }
#endif

    void ListenToSignals()
    {
        std::signal(SIGINT, OnSignal);
        std::signal(SIGTERM, OnSignal);
#ifdef SIGHUP
        if (std::signal(SIGHUP, OnHangUp) == SIG_IGN)   // ignored by nohup
        {
            std::signal(SIGHUP, SIG_IGN);
        }
#endif
    }

    void PrintNewProblem()
    {
        static std::string s_sPrinted;
        std::string const sProblem = static_cast<char const *>(FileTrackGetProblem());
        if (sProblem != s_sPrinted)
        {
            s_sPrinted = sProblem;
            std::fprintf(stderr, "zqhost: %s\n", Sz(Shown(sProblem.c_str())));
        }
    }

    Rows_t RowsOf(File_c const & File)
    {
        Rows_t dRows;
        constexpr std::string_view MARK = "\xEF\xBB\xBF";   // byte order mark of UTF-8
        auto const * const pText = reinterpret_cast<char const *>(File.pData);
        std::string_view const sText(pText, static_cast<std::size_t>(File.iLength));
        WarehouseScan_t Scan(pText, File.iLength, sText.starts_with(MARK) ? static_cast<int>(MARK.size()) : 0,
            WarehouseSettleFormat(WAREHOUSE_FORMAT_AUTO, File.sName));
        WarehouseLine_c Line;
        for (int nLines = 0; Scan.NextItem(&Line, nLines);)
        {
            std::string sIdent = Line[0];
            for (int iRepeat = 2; dRows.count(sIdent) != 0; ++iRepeat)
            {
                sIdent = Line[0] + (" #" + std::to_string(iRepeat));
            }
            std::string & sCells = dRows[sIdent];
            for (char const * const szCell : Line)
            {
                sCells += (szCell ? szCell : "") + std::string(1, '\n');
            }
        }
        return dRows;
    }

    bool IsEmptyOnDisk(File_c & File)
    {
        constexpr int FROM_END = 2;   // origin of SeekStored
        FileStoredScope_c const Stream(File);
        return Stream && Stream->SeekStored(0, FROM_END) && Stream->TellStored() == 0;
    }

    // Reads the rows of the file as it is on disk. Returns none if it can't be read.
    Rows_t ReadRows(File_c & File)
    {
        Rows_t dRows;
        File.Refresh();   // other holders see the new contents too
        if (FileReference_c const Held(&File); Held)
        {
            dRows = RowsOf(File);
        }
        return dRows;
    }

    // Prints the first rows that dOthers lacks or, with bDiffer, has with other cells. Returns the number of all such
    // rows.
    int PrintRows(char const * szWhat, Rows_t const & dRows, Rows_t const & dOthers, bool bDiffer)
    {
        int nRows = 0;
        for (auto const & [sIdent, sCells] : dRows)
        {
            auto const itOther = dOthers.find(sIdent);
            bool const bThere = itOther != dOthers.end();
            if (bThere == bDiffer && (!bThere || itOther->second != sCells) && ++nRows <= MAX_ROWS)
            {
                std::printf("    %-8s %s\n", szWhat, Sz(Shown(sIdent.c_str())));
            }
        }
        if (nRows > MAX_ROWS)
        {
            std::printf("    %-8s %i more\n", szWhat, nRows - MAX_ROWS);
        }
        return nRows;
    }

    void ReloadTable(File_c & File, Rows_t & dRows)
    {
        std::printf("%s reloaded\n", Sz(Shown(File.sName)));
        Rows_t const dBefore = std::exchange(dRows, ReadRows(File));
        int const nChanged = PrintRows("changed", dRows, dBefore, true);
        int const nNew = PrintRows("new", dRows, dBefore, false);
        int const nGone = PrintRows("gone", dBefore, dRows, false);
        if (nChanged + nNew + nGone == 0)
        {
            std::printf("    no row changed\n");
        }
        ModuleWorld_c::Get()->RereadTables();
    }

    void OnChanged(char const * szFile)
    {
        File_c * const pFile = FileStream(szFile);
        auto const itTable = pFile ? g_dTables.find(static_cast<char const *>(pFile->sName)) : g_dTables.end();
        if (itTable == g_dTables.end())
        {
            std::printf("%s changed\n", Sz(Shown(szFile)));
        }
        else if (IsEmptyOnDisk(*pFile))
        {
            std::printf("%s is empty: the rows stay as they were\n", Sz(Shown(szFile)));
            pFile->iLength = 0;   // so that the host's streaming skips it
        }
        else
        {
            ReloadTable(*pFile, itTable->second);
        }
        std::fflush(stdout);
    }
}

Watch_c::Watch_c(std::string const & sMedia, Survey_c const & Survey)
{
    for (Table_s const & Table : Survey.GetTables())
    {
        File_c & File = *FileStream(Table.pFile->sName);
        g_dTables[static_cast<char const *>(File.sName)] = ReadRows(File);
    }
    g_bOver = 0;
    ListenToSignals();
    g_FileTrackChangesCallbacker.Add(OnChanged, false);
    FileTrackChanges(sMedia.c_str());
    if (FileTrackIsOn())
    {
        std::printf("\nWatching %s; interrupt to end.\n", Sz(Shown(sMedia.c_str())));
        std::fflush(stdout);
    }
}

Watch_c::~Watch_c()
{
    FileTrackShutdown();
    g_FileTrackChangesCallbacker.Remove(OnChanged);
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    g_dTables.clear();
}

bool Watch_c::CheckForEnd()
{
    if (FileTrackIsOn())
    {
        PrintNewProblem();
    }
    return g_bOver != 0;
}

bool Watch_c::IsHungUp()
{
    return g_bHungUp != 0;
}

std::string Watch_c::GetWhyNot()
{
    return FileTrackIsOn() ? "" : static_cast<char const *>(FileTrackGetProblem());
}
