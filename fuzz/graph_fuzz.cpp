// graph_fuzz.cpp: object graphs of any bytes. Checks where the pointers of loaded nodes lead.
#include "fuzz/fuzz_support.h"
#include "tests/graph_support.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static World_s & s_World = *ZQ_NEW World_s;
    Require(s_World.LoadsSoundly({ reinterpret_cast<char const *>(pData), nSize }));
    return 0;
}
