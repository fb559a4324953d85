#include "zqcore/cdebug.h"

#include "zqcore/capp.h"
#include "zqcore/carray.h"
#include "zqcore/ccallback.h"
#include "zqcore/cexceptioninfo.h"
#include "zqcore/cformat_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cstring.h"

#include "platform/debugger.h"
#include "platform/dialog.h"
#include "platform/fork.h"
#include "platform/threads.h"
#include "platform/window.h"

#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

constinit bool g_silentMode = false;
constinit bool g_bEnableWarnings = false;
constinit bool g_isAborting = false;
constinit bool DebugMessages_c::s_bExitRequested = false;

namespace
{
    constexpr std::size_t TEXT_SIZE = 2049;   // 2048 characters
    constexpr int ACHTUNGS_REMEMBERED = 16;
    constexpr char YES_NO_TAIL[] = "\r\n\r\nUse Yes to break into Debugger, No to continue.\r\nand Cancel to Quit\r\n";
    constexpr char OK_TAIL[] = "\r\n\r\nUse Ok to break into Debugger, Cancel exits.\r\n\r\n";
    constexpr int STACK_FRAMES = 10;   // of a dialog's trace
    constexpr int STACK_SKIPPED = 4;   // the complaint's own frames

    constinit bool g_bAchtungs = true;
    constinit std::atomic<bool> g_bInAssert = false;
    plat::ForkHandler_c const g_AssertForkHandler({ nullptr, nullptr, [] { g_bInAssert = false; } });
    constinit plat::Lock_c g_AchtungLock;   // guards the texts that were seen
    plat::ForkLock_c const g_AchtungForkLock(g_AchtungLock);

    using SeenAchtungs_t = SortedArray_T<String_T<2048>, StaticArrayLenTraits_T<String_T<2048>, ACHTUNGS_REMEMBERED>>;

    bool Is(int iAnswer, plat::DialogAnswer_e eAnswer)
    {
        return iAnswer == static_cast<int>(eAnswer);
    }

    // A crash with the breakpoint's code, which leaves a report.
    [[noreturn]] void Crash()
    {
        MemoryAbort();
        ZQ_BREAK();
        std::exit(1);
    }

    // Whether the text is new; a new one is remembered, in place of the oldest if need be.
    bool RememberAchtung(char const * szText)
    {
        static SeenAchtungs_t s_dSeen;
        String_T<2048> const sText(szText);
        plat::LockScope_c const Scope(g_AchtungLock);
        if (s_dSeen.Find(sText))
        {
            return false;
        }
        if (s_dSeen.GetLength() == ACHTUNGS_REMEMBERED)
        {
            s_dSeen.Delete(0);
        }
        s_dSeen.Add(sText);
        return true;
    }

    constexpr char OPERATOR[] = "operator";

    // Whether the word at p is the one that begins an operator's name.
    bool IsOperator(char const * szText, char const * p)
    {
        auto const IsNameChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
        std::size_t const nWord = std::strlen(OPERATOR);
        return std::strncmp(p, OPERATOR, nWord) == 0 && !IsNameChar(p[nWord]) && (p == szText || !IsNameChar(p[-1]));
    }

    // Where the bracket at p closes; p where it does not.
    char const * ClosingBracket(char const * p)
    {
        int iDepth = 0;
        for (char const * pClose = p; *pClose; ++pClose)
        {
            iDepth += (*pClose == '(') - (*pClose == ')');
            if (iDepth == 0)
            {
                return pClose;
            }
        }
        return p;
    }

    // Whether the bracket at p is part of a type or a name: "decltype(...)", or "function()::" before a local class.
    bool IsBracketInside(char const * szFunction, char const * p)
    {
        constexpr std::string_view DECLTYPE = "decltype";
        std::string_view sAhead(szFunction, static_cast<std::size_t>(p - szFunction));
        sAhead.remove_suffix(sAhead.ends_with(' ') ? 1 : 0);
        return sAhead.ends_with(DECLTYPE) || std::strncmp(ClosingBracket(p), ")::", 3) == 0;
    }

    // Whether the bracket at p holds the name: "type (*function(arguments))(arguments of the type)".
    bool IsBracketOfName(char const * szFunction, char const * p)
    {
        return p > szFunction && std::strchr(" *&(", p[-1]) != nullptr;
    }

    // "class::function" out of the compiler's "type class::function(arguments) const [with ...]".
    void ShortFunctionName(char const * szFunction, char * szBuffer, std::size_t nSize)
    {
        char const * pStart = szFunction;
        char const * p = szFunction;
        for (int iDepth = 0; *p; ++p)
        {
            if (iDepth == 0 && *p == '(' && std::strncmp(p, "(anonymous", 10) != 0)
            {
                if (IsBracketInside(szFunction, p))
                {
                    p = ClosingBracket(p);
                }
                else if (IsBracketOfName(szFunction, p))
                {
                    pStart = p + 1;
                }
                else
                {
                    break;
                }
                continue;
            }
            if (iDepth == 0 && IsOperator(szFunction, p))   // what follows may hold blanks and all kinds of brackets
            {
                p += std::strlen(OPERATOR);
                p += std::strncmp(p, "()", 2) == 0 ? 2 : 0;
                p += std::strcspn(p, "(");
                break;
            }
            iDepth += (*p == '<' || *p == '(') - (*p == '>' || *p == ')');
            if (iDepth == 0 && (*p == ' ' || *p == '*' || *p == '&'))
            {
                pStart = p + 1;
            }
        }
        std::snprintf(szBuffer, nSize, "%.*s", static_cast<int>(p - pStart), pStart);
    }

    // Asks while the listeners know that the program is stopped, also if one of them or the dialog throws. The answer.
    template <typename ASK>
    int WhileStopped(ASK Ask)
    {
        int iAnswer;
        try
        {
            g_ExecutionCallbacker.Fire(false, false);
            iAnswer = Ask();
        }
        catch (...)
        {
            g_ExecutionCallbacker.Fire(true, false);
            throw;
        }
        g_ExecutionCallbacker.Fire(true, false);
        return iAnswer;
    }

    int AskAfterAssertion(char const * szText)
    {
        if (g_silentMode)
        {
            std::exit(1);
        }
        return MessageBoxPlain(nullptr, szText, "Assertion failed! Press ignore to continue or retry to debug.",
            MESSAGE_ABORT_RETRY_IGNORE | MESSAGE_DEFAULT_2 | MESSAGE_ICON_WARNING | MESSAGE_ALWAYS_ON_TOP);
    }

    int AskBeforeAbort(char const * szText)
    {
        g_isAborting = true;
        if (g_pAppWindow)
        {
            plat::WindowSystemGet().fnMinimise(g_pAppWindow);
        }
        return g_silentMode ? 0
                            : MessageBoxPlain(nullptr, szText, "Application aborted! Cancel to debug.",
                                MESSAGE_OK_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_ALWAYS_ON_TOP);
    }
}

void SetWarnings(bool bEnable)
{
    g_bEnableWarnings = bEnable;
}

void SetAchtungs(bool bEnable)
{
    g_bAchtungs = bEnable;
}

void AssertFailed(char const * fmt, ...)
{
    if (g_bInAssert.exchange(true))   // in one step: of two threads one goes on
    {
        return;
    }
    struct Leave_s
    {
        ~Leave_s() { g_bInAssert = false; }   // a dialog may throw
    } const Leave;
    plat::WindowSystemGet().fnShowCursor();

    char szText[TEXT_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szText, TEXT_SIZE, fmt, args);
    va_end(args);
    LogText(szText);

    int const iAnswer = WhileStopped([&szText] { return AskAfterAssertion(szText); });
    if (Is(iAnswer, plat::DialogAnswer_e::Retry))
    {
        ZQ_BREAK();
    }
    else if (Is(iAnswer, plat::DialogAnswer_e::Abort))
    {
        Crash();
    }
}

void Warning(char const * fmt, ...)
{
    char szText[TEXT_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szText, TEXT_SIZE, fmt, args);
    va_end(args);
    LogText(szText);

    g_WarningsCallbacker.Fire(szText, false);
    if (g_bEnableWarnings && !g_silentMode)
    {
        MessageBoxPlain(nullptr, szText, "Warning!", MESSAGE_OK | MESSAGE_ICON_ERROR | MESSAGE_ALWAYS_ON_TOP);
    }
}

void Achtung(char const * fmt, ...)
{
    char szText[TEXT_SIZE + sizeof YES_NO_TAIL];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szText, TEXT_SIZE, fmt, args);
    va_end(args);
    if (!RememberAchtung(szText))
    {
        return;
    }
    LogText(szText);
    g_WarningsCallbacker.Fire(szText, false);
    if (!g_bAchtungs)
    {
        return;
    }
    if (g_silentMode)
    {
        std::exit(1);
    }
    std::strcat(szText, YES_NO_TAIL);
    int const iAnswer = MessageBoxPlain(
        g_pAppWindow, szText, "ACHTUNG!", MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_TASK_MODAL);
    if (Is(iAnswer, plat::DialogAnswer_e::Yes))
    {
        ZQ_BREAK();
    }
    else if (Is(iAnswer, plat::DialogAnswer_e::Cancel))
    {
        std::exit(0);
    }
}

void Abort(char const * fmt, ...)
{
    char szText[TEXT_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szText, TEXT_SIZE, fmt, args);
    va_end(args);
    LogText(szText);

    if (Is(WhileStopped([&szText] { return AskBeforeAbort(szText); }), plat::DialogAnswer_e::Cancel))
    {
        ZQ_BREAK();
    }
    Crash();
}

void AssertReport(char const * szCondition, char const * szFile, char const * szFunction, int iLine)
{
    char szName[256];
    ShortFunctionName(szFunction, szName, sizeof szName);
    Debugf("%s(%i) : Assert() failed", szFile, iLine);
    AssertFailed("Assert failed, %s, %s, %s, %i", szCondition, szFile, szName, iLine);
}

void AssertReportEx(
    char const * szCondition, char const * szFile, char const * szFunction, int iLine, char const * fmt, ...)
{
    char szText[TEXT_SIZE];
    std::va_list args;
    va_start(args, fmt);
    FormatText(szText, TEXT_SIZE, fmt, args);
    va_end(args);

    char szName[256];
    ShortFunctionName(szFunction, szName, sizeof szName);
    Debugf("%s(%i) : AssertEx() failed", szFile, iLine);
    AssertFailed("AssertEx failed, %s, %s, %s, %s, %i", szCondition, szText, szFile, szName, iLine);
}

DebugMessages_c & DebugMessages_c::Get()
{
    static DebugMessages_c dm;
    return dm;
}

bool DebugMessages_c::DebugAssert(char const * sFile, int iLine, char const * sText)
{
    StrCopy(m_sText, sText, TEXT_SIZE);
    std::snprintf(
        m_sDialog, DIALOG_SIZE, "Warning: \t%s\t%s\r\nFile: \t%s\r\nLine:\t%d", m_sText, m_sText, sFile, iLine);
    int const iAnswer = m_bQuiet ? 1
                                 : DropMessageBox("Assertion failed", m_sDialog,
                                     MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_TASK_MODAL);
    return Is(iAnswer, plat::DialogAnswer_e::Yes);
}

DebugMessages_c::Internal_t DebugMessages_c::SetLocation(char const * sFile, int iLine)
{
    m_sFile = sFile;
    m_iLine = iLine;
    return &DebugMessages_c::DebugWarningInternal;
}

int DebugMessages_c::DebugErrorInternal(char const * fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    Compose("Error: \t%s\r\nFile: \t%s\r\nLine:\t%d", OK_TAIL, fmt, args);
    va_end(args);
    int const iAnswer = DropMessageBox("Error", m_sDialog, MESSAGE_OK_CANCEL | MESSAGE_ICON_ERROR | MESSAGE_TASK_MODAL);
    return BreakIfWanted(iAnswer);
}

int DebugMessages_c::DebugWarningInternal(char const * fmt, ...)
{
    std::va_list args;
    va_start(args, fmt);
    Compose("Warning: \t%s\r\nFile: \t%s\r\nLine:\t%d", YES_NO_TAIL, fmt, args);
    va_end(args);
    int const iAnswer =
        DropMessageBox("Warning", m_sDialog, MESSAGE_YES_NO_CANCEL | MESSAGE_ICON_WARNING | MESSAGE_TASK_MODAL);
    return BreakIfWanted(iAnswer);
}

void DebugMessages_c::Compose(char const * szFormat, char const * szTail, char const * fmt, std::va_list args)
{
    FormatText(m_sText, TEXT_SIZE, fmt, args);
    std::strcat(m_sText, szTail);
    std::snprintf(m_sDialog, DIALOG_SIZE, szFormat, m_sText, m_sFile, m_iLine);
}

int DebugMessages_c::BreakIfWanted(int iAnswer)
{
    if (Is(iAnswer, plat::DialogAnswer_e::Ok) || Is(iAnswer, plat::DialogAnswer_e::Yes))
    {
        ZQ_BREAK();
    }
    return iAnswer;
}

int DebugMessages_c::DropMessageBox(char const * sCaption, char const * sText, unsigned long nStyle)
{
    if (s_bExitRequested)
    {
        return static_cast<int>(plat::DialogAnswer_e::No);
    }
    if (g_silentMode)
    {
        LogText(sText);
        return static_cast<int>(plat::DialogAnswer_e::No);
    }
    int const iAnswer = ExceptionInfo_c::Get().MessageBoxWithTrace(
        m_hOwner, sText, sCaption, nStyle | MESSAGE_TOPMOST, STACK_FRAMES, STACK_SKIPPED);
    if (Is(iAnswer, plat::DialogAnswer_e::Cancel))
    {
        s_bExitRequested = true;
        std::exit(-1);
    }
    return iAnswer;
}
