#include "listeners.h"

#include "zqcore/ccallback.h"
#include "zqcore/clog.h"

#include <cstring>

namespace
{
    Notes_s g_Notes;

    // The log's lines that the report counts, by how they begin.
    struct LogLine_s
    {
        char const * szBegin;
        Heard_s Notes_s::*pHeard;
    };

    constexpr LogLine_s LOG_LINES[] = {
        { "File duplication : ", &Notes_s::Dropped },
        { "                   ", &Notes_s::Kept },
        { "filesystem: ", &Notes_s::PassedOver },
    };

    void OnLogLine(char const * szText)
    {
        for (LogLine_s const & Line : LOG_LINES)
        {
            std::size_t const nBegin = std::strlen(Line.szBegin);
            if (std::strncmp(szText, Line.szBegin, nBegin) == 0)
            {
                (g_Notes.*Line.pHeard).Add(szText + nBegin);
                return;
            }
        }
    }

    void OnComplaint(char const * szText)
    {
        g_Notes.Complaints.Add(szText);
    }
}

void Heard_s::Add(char const * szText)
{
    if (nHeard < KEPT)
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

Notes_s const & ListenersGetNotes()
{
    return g_Notes;
}
