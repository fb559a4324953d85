#include "platform/debugger.h"

#include "platform/linux/descriptor.h"

#include <atomic>
#include <cstring>
#include <fcntl.h>

namespace plat
{
    namespace
    {
        std::atomic<DebugOutput_t> g_fnOutput{ nullptr };
    }

    void DebugOutput(char const * szText)
    {
        DebugOutput_t const fnOutput = g_fnOutput.load();
        if (fnOutput != nullptr)
        {
            fnOutput(szText);
        }
        else if (DebuggerIsPresent())
        {
            WriteFully(STDERR_FILENO, szText, std::strlen(szText));
        }
    }

    DebugOutput_t DebugOutputSet(DebugOutput_t fnReceiver)
    {
        return g_fnOutput.exchange(fnReceiver);
    }

    bool DebuggerIsPresent()
    {
        char szStatus[4096];
        Descriptor_c const Status(open("/proc/self/status", O_RDONLY | O_CLOEXEC));
        ReadText(Status.Get(), szStatus, sizeof(szStatus));
        constexpr char TRACER[] = "\nTracerPid:\t";
        char const * const szTracer = std::strstr(szStatus, TRACER);
        return szTracer != nullptr && szTracer[sizeof(TRACER) - 1] != '0';
    }
}
