// capp.h: what every application needs in its first and last moment.
#pragma once

#include "zqcore/cconfig.h"

#include "platform/window.h"

/// The application's main window and instance; set by the application.
extern ZQ_API plat::Window_t g_pAppWindow;
extern ZQ_API void * g_pAppInstance;

/// The application's identity; set by the application. The name also leads to the media root (cfilemedia.h).
extern ZQ_API char const * g_szApplicationName;
extern ZQ_API int g_nProjectVersionMajor;
extern ZQ_API int g_nProjectVersionMinor;

/// A hook that a host may replace; its counters are the host's. The library never calls it, the default does nothing.
enum FunctionCounters_e : int;
ZQ_API void CounterSync_Default(FunctionCounters_e eCounter, char const * szName);
extern ZQ_API void (*CounterSync)(FunctionCounters_e eCounter, char const * szName);

/// The first call of an application, behind LogSetFile: makes the executable's folder the current one, opens the log,
/// and has calls of pure virtual functions end in Abort.
ZQ_API void AppMiscStartup();

/// The last call, behind Module_c::ShutdownAllModules: empties the event lists and closes the log.
ZQ_API void AppMiscShutdown();

/// Seconds since the last accepted call, about 1/30 at the first. If less than dMinDelta has passed the result is 0 and
/// the time goes on to count. By Game_longTimeGet, with no upper limit. Main thread.
ZQ_API double AppGetDeltaTime(double dMinDelta);

/// Whether the window with the keyboard is g_pAppWindow or a child of it. Requires g_pAppWindow.
ZQ_API bool AppIsInFocus();

/// Delivers all waiting messages of this thread's windows; or those of the keyboard only.
ZQ_API void AppPurgeMessageQueue();
ZQ_API void AppPurgeKeyboardQueue();

/// Fires g_ResourceLoadCallbacker, unless reports are blocked. Blocking does not nest.
ZQ_API void ResourceLoadReportCall(char const * szText);
ZQ_API void ResourceLoadReportBlock();
ZQ_API void ResourceLoadReportDeploy();

/// Name, version, build number, configuration and the time of the build; a Va text.
ZQ_API char const * GetBuildVersionString();
