// lost.cpp: a plugin that loses a block and an object, and is unloaded.
#include "zqcore/cmemory.h"

namespace
{
    struct Lost_c : mem::Object_i
    {
        void Describe(char * szBuffer, std::size_t) const override { *szBuffer = '\0'; }
    };
}

extern "C" ZQ_API void Lose()
{
    CoreMemory::operator_new(40, mem::AI << MEMORY_CATEGORY_SHIFT | MEMORY_CLIENT_BLOCK, __FILE__, 1);
    new (static_cast<int>(MEMORY_OBJECT_FLAG | MEMORY_CLIENT_BLOCK), __FILE__, 2) Lost_c;
}
