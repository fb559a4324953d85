#include "listeners.h"

#include "zqcore/ccallback.h"
#include "zqcore/clog.h"

#include <cstring>
#include <mutex>

namespace
{
    std::mutex g_NotesLock;   // any thread may log and complain
    Notes_s g_Notes;

    void Note(Heard_s & Heard, char const * szText)
    {
        std::lock_guard const Scope(g_NotesLock);
        Heard.Add(szText);
    }

    // A kind of log line that the report counts, recognised by its start.
    struct LogLine_s
    {
        char const * szBegin;
        Heard_s Notes_s::*pHeard;
    };

    constexpr LogLine_s LOG_LINES[] = {
        { "File duplication : ", &Notes_s::Dropped },
        { "                   ", &Notes_s::Kept },
        { "filesystem: ", &Notes_s::Skipped },
    };

    void OnLogLine(char const * szText)
    {
        for (LogLine_s const & Line : LOG_LINES)
        {
            std::size_t const nBegin = std::strlen(Line.szBegin);
            if (std::strncmp(szText, Line.szBegin, nBegin) == 0)
            {
                Note(g_Notes.*Line.pHeard, szText + nBegin);
                return;
            }
        }
    }

    void OnComplaint(char const * szText)
    {
        Note(g_Notes.Complaints, szText);
    }
}

void Heard_s::Add(char const * szText)
{
    if (nHeard < MAX_TEXTS)
    {
        dTexts[nHeard] = szText;
    }
    ++nHeard;
}

void ListenersAdd()
{
    LogAddCallback(OnLogLine);
    g_WarningsCallbacker.Add(OnComplaint, false);
}

Notes_s ListenersGetNotes()
{
    std::lock_guard const Scope(g_NotesLock);
    return g_Notes;
}
