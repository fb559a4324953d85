// capp.h: start and end of an application, and what the layers above the library share.
//
// LogSetFile comes first, then AppMiscStartup, then Module_c::InitializeAllModules. Module_c::ShutdownAllModules and
// AppMiscShutdown come at the end.
//
// Ownership: the application owns the window and the texts that it sets. Requires that they live until
// AppMiscShutdown.
// Threads: main thread.
// Cost: only the start and the end touch the disk. AppPurgeMessageQueue delivers all messages that wait.
// Failure: AppIsInFocus asserts that g_pAppWindow is set. AppMiscStartup logs a line if it can't change the current
// folder. If it can't open the main log, the application runs without one. No other call fails.
//
//     g_szApplicationName = "Robots";
//     LogSetFile(L"logs/", L"message.log");
//     AppMiscStartup();
//     Log("%s", GetBuildVersionString());
//     double const tFrame = AppGetDeltaTime(0.0);   // seconds, once a frame
//     AppMiscShutdown();
#pragma once

#include "zqcore/cconfig.h"

#include "platform/window.h"

/// Main window and instance of the application, which sets them. They are null at start.
extern ZQ_API plat::Window_t g_pAppWindow;
extern ZQ_API void * g_pAppInstance;

/// Name and version of the application, which sets them. They are "Unknown", 1 and 0 at start. The name is also part of
/// the registry key that holds the media root (cfilemedia.h).
extern ZQ_API char const * g_szApplicationName;
extern ZQ_API int g_nProjectVersionMajor;
extern ZQ_API int g_nProjectVersionMinor;

/// Counters of the host, which defines the enumerators.
enum FunctionCounters_e : int;

/// Does nothing. It is the default of CounterSync.
ZQ_API void CounterSync_Default(FunctionCounters_e eCounter, char const * szName);

/// Hook that a host may replace. The library never calls it.
extern ZQ_API void (*CounterSync)(FunctionCounters_e eCounter, char const * szName);

/// Makes the executable's folder the current one, opens the main log (LogInit), and makes calls of pure virtual
/// functions end in Abort. It is the first call of an application after LogSetFile.
ZQ_API void AppMiscStartup();

/// Empties the event lists of ccallback.h except g_ExecutionCallbacker, g_LoadingCallbacker and g_FileOpenCallbacker.
/// Frees the lists of named generators (crandom.h) and of serializers (cserializer.h), and closes the main log. It is
/// the last call of an application, after Module_c::ShutdownAllModules.
ZQ_API void AppMiscShutdown();

/// Measures and returns the seconds of Game_longTimeGet since the last call that did not return 0. The first call
/// counts from about 1/30 s before it. Returns 0 if less than tMinDelta seconds have passed. They count in the next
/// call. There is no upper limit.
ZQ_API double AppGetDeltaTime(double tMinDelta);

/// Returns whether the window with the focus is g_pAppWindow or a descendant of it. Asserts that g_pAppWindow is set.
/// Returns false if it is null.
ZQ_API bool AppIsInFocus();

/// Deliver the waiting messages of this thread's windows: all of them, or those of the keyboard.
ZQ_API void AppPurgeMessageQueue();
ZQ_API void AppPurgeKeyboardQueue();

/// Report the load of a resource to g_ResourceLoadCallbacker, block such reports, and allow them again. A report that
/// is blocked or that a receiver makes does nothing. Blocks do not nest: one ResourceLoadReportDeploy ends any number
/// of them.
ZQ_API void ResourceLoadReportCall(char const * szText);
ZQ_API void ResourceLoadReportBlock();
ZQ_API void ResourceLoadReportDeploy();

/// Scope in which these reports are blocked: calls ResourceLoadReportBlock, and ResourceLoadReportDeploy at the end.
/// Scopes do not nest either.
class ResourceLoadBlockScope_c
{
public:
    ResourceLoadBlockScope_c() { ResourceLoadReportBlock(); }
    ~ResourceLoadBlockScope_c() { ResourceLoadReportDeploy(); }
    ResourceLoadBlockScope_c(ResourceLoadBlockScope_c const &) = delete;
    ResourceLoadBlockScope_c & operator=(ResourceLoadBlockScope_c const &) = delete;
};

/// Returns name, version, build number, configuration and time of the build. The text is one of Va (cstring.h), valid
/// for 15 further calls of Va.
ZQ_API char const * GetBuildVersionString();
