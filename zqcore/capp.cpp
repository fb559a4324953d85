#include "zqcore/capp.h"

#include "zqcore/ccallback.h"
#include "zqcore/cdebug.h"
#include "zqcore/cexceptionreport.h"
#include "zqcore/clog.h"
#include "zqcore/crandom_internal.h"
#include "zqcore/cserializer.h"
#include "zqcore/cstring.h"
#include "zqcore/ctimer.h"
#include "zqcore/cwidepath_internal.h"

#include "platform/process.h"

#include <algorithm>
#include <cwchar>
#include <optional>

constinit plat::Window_t g_pAppWindow = nullptr;
constinit void * g_pAppInstance = nullptr;
constinit char const * g_szApplicationName = "Unknown";
constinit int g_nProjectVersionMajor = 1;
constinit int g_nProjectVersionMinor = 0;
void (*CounterSync)(FunctionCounters_e, char const *) = CounterSync_Default;

namespace
{
    constexpr double FIRST_DELTA = 1.0 / 30.0;           // seconds
    constexpr unsigned FIRST_KEYBOARD_MESSAGE = 0x100;   // WM_KEYFIRST of Windows
    constexpr unsigned LAST_KEYBOARD_MESSAGE = 0x109;    // WM_KEYLAST
    constexpr unsigned LAST_MESSAGE = 0xFFFFFFFF;

    bool g_bResourceLoadBlocked = false;

    bool GoToFolderOfExecutable()
    {
        wchar_t wszPath[WIDE_PATH_SIZE];
        if (!plat::ProcessExecutablePath(wszPath, WIDE_PATH_SIZE))
        {
            return false;
        }
        wchar_t * const pSlash = std::wcsrchr(wszPath, L'/');
        wchar_t * const pBackslash = std::wcsrchr(wszPath, L'\\');
        if (wchar_t * const pCut = std::max(pSlash, pBackslash))
        {
            pCut[pCut == wszPath ? 1 : 0] = L'\0';   // the root keeps its separator
        }
        return plat::ProcessSetCurrentFolder(wszPath);
    }

    void OnPureCall()
    {
        Abort("pure virtual function call");
    }

    void DispatchAll(unsigned iFirst, unsigned iLast)
    {
        while (plat::WindowSystemGet().fnDispatchOne(iFirst, iLast))
        {}
    }
}

void CounterSync_Default(FunctionCounters_e, char const *) {}

void AppMiscStartup()
{
    bool const bMoved = GoToFolderOfExecutable();
    LogInit();
    Logc(!bMoved, "Can't go to the folder of the executable, the current folder stays");
    ExceptionInit();
    plat::ProcessSetPureCallHandler(OnPureCall);
}

void AppMiscShutdown()
{
    g_CommandCallbacker.Reset();
    g_RenderCallbacker.Reset();
    g_ActiveCallbacker.Reset();
    g_SizeCallbacker.Reset();
    g_IdleCallbacker.Reset();
    g_InitMenuCallbacker.Reset();
    g_FullscreenCallbacker.Reset();
    g_MouseCallbacker.Reset();
    g_KeyboardCallbacker.Reset();
    g_JoystickCallbacker.Reset();
    g_CharCallbacker.Reset();
    g_ApplicationMessages.Reset();
    g_FileReadErrorCallbacker.Reset();
    g_NetworkCallbacker.Reset();
    g_FullscreenSwitchCallbacker.Reset();
    g_FileTrackChangesCallbacker.Reset();
    g_AddSubfolderCallbacker.Reset();
    g_ResourceLoadCallbacker.Reset();
    g_WarningsCallbacker.Reset();
    RandomFreeSeedList();
    SerializerListFree();
    ExceptionDone();
    LogDone();
}

double AppGetDeltaTime(double tMinDelta)
{
    static constinit std::optional<double> s_tLast;   // seconds, as Game_longTimeGet returns them
    bool const bFirst = !s_tLast;
    if (bFirst)
    {
        s_tLast = Game_longTimeGet() - FIRST_DELTA;
    }
    double const tNow = Game_longTimeGet();
    double const tDelta = bFirst ? std::max(tNow - *s_tLast, FIRST_DELTA) : tNow - *s_tLast;   // rounding can lower it
    if (tMinDelta > tDelta)
    {
        return 0.0;
    }
    s_tLast = tNow;
    return tDelta;
}

bool AppIsInFocus()
{
    ZQ_ASSERT(g_pAppWindow);
    plat::WindowSystem_t const & System = plat::WindowSystemGet();
    for (plat::Window_t hWindow = System.fnGetFocus(); hWindow; hWindow = System.fnGetParent(hWindow))
    {
        if (hWindow == g_pAppWindow)
        {
            return true;
        }
    }
    return false;
}

void AppPurgeMessageQueue()
{
    DispatchAll(0, LAST_MESSAGE);
}

void AppPurgeKeyboardQueue()
{
    DispatchAll(FIRST_KEYBOARD_MESSAGE, LAST_KEYBOARD_MESSAGE);
}

void ResourceLoadReportCall(char const * szText)
{
    if (!g_bResourceLoadBlocked)
    {
        g_ResourceLoadCallbacker.Fire(szText, false);
    }
}

void ResourceLoadReportBlock()
{
    g_bResourceLoadBlocked = true;
}

void ResourceLoadReportDeploy()
{
    g_bResourceLoadBlocked = false;
}

char const * GetBuildVersionString()
{
    return Va("%s v%d.%d  (build: %d - %s, %s %s)", g_szApplicationName, g_nProjectVersionMajor, g_nProjectVersionMinor,
        ZQ_BUILD_NUMBER, ZQ_BUILD_CONFIGURATION, __DATE__, __TIME__);
}
