// engine.cpp: an engine's library or plugin that uses the heap inside, and passes a block across its boundary.
#include "zqcore/cbitmap.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include <sstream>
#include <string>
#include <vector>

namespace
{
    struct alignas(64) Wide_s
    {
        char dBytes[64];
    };
}

// Uses the heap in many ways and returns 16 integers, which the caller deletes.
extern "C" ZQ_API int * EngineAllocate()
{
    delete ZQ_NEW int(5);
    delete[] ZQ_NEW std::string[5];
    delete new Wide_s;
    delete ZQ_NEW Wide_s;
    delete[] ZQ_NEW Wide_s[2];
    delete[] new (std::nothrow) char[5];
    aligned_free_dbg(aligned_malloc_dbg(9, 128, MEMORY_CLIENT_BLOCK, __FILE__, __LINE__));
    BitVec_c(8).Grow(16);
    BitMap3D_c(8, 1, 1).Grow(16, 1, 1);
    LogAddCallback([](char const *) {});   // a block inside the library
    Log("engine");
    LogDone();
    std::ostringstream Text;   // blocks inside the C++ runtime
    std::vector<std::string> dTexts;
    for (int i = 0; i < 100; ++i)
    {
        Text << i << ' ';
        dTexts.push_back(Text.str() + "text");
        dTexts[0] += dTexts.back();
    }
    return ZQ_NEW int[16];
}
