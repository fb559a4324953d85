// cfilelog.h: the open tracker, and the gate of the reports on opened files.
//
// The tracker lists every file handle that the library has open, warns when there are many, and when an open fails. It
// runs from load time to the end and takes no memory. Any thread may call it: a lock of its own guards the list, and no
// lock is held while it complains or dumps.
#pragma once

#include "zqcore/cconfig.h"

/// Whether g_FileOpenCallbacker is told of each file that is opened on disk. Starts false.
extern ZQ_API bool g_bCollectResource;

/// To be called after every attempt to open a file, with the handle, or null or -1 for a failure, and the name. Raises
/// Achtung with a dump of the list when more than 50 handles are open, and again for each further 10; and for a failed
/// open, unless the name is null or ends like a pack of the media template or in ".bin", in any case. Handles beyond
/// 256 fail an assertion and are counted, but not listed. During a dump the dumping thread's own calls are ignored.
ZQ_API void FileOpenTracker(void * hFile, char const * sName);

/// To be called when such a handle is closed, before the system can give its number to another thread. A handle that is
/// not listed is reported; null and -1 are ignored.
ZQ_API void FileCloseTracker(void * hFile);
