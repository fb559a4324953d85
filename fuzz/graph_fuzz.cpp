// graph_fuzz.cpp: object graphs of any bytes. Every pointer of every loaded node must lead to a node or nowhere.
#include "tests/archive_support.h"
#include "tests/graph_support.h"

#include <cstdlib>

namespace
{
    struct World_s
    {
        NodeSerializer_c Nodes{ "Node" };
        NodeSerializer_c Others{ "Other" };
        int iStatic = 0;
    };

    void Load(Serializeable_c & Archive, World_s & World)
    {
        Serializer_c::StartSerialize(Archive, true);
        Node_s * pNode = nullptr;
        Node_s * pOther = nullptr;
        void * pAny = nullptr;
        World.Nodes.Serialize(Archive, pNode);
        World.Others.Serialize(Archive, pOther);
        NodeSerializer_c::ReadPointer(Archive, pAny);
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static World_s & s_World = *ZQ_NEW World_s;
    Serializer_c::ResetCache();
    NodeSerializer_c::dRegisteredStaticPointers.Reset();
    Serializer_c::RegisterStaticPointer(&s_World.iStatic);
    NodeSerializer_c::RegisterSerializedStaticPointer(&NodeSerializer_c::s_StaticNode, "Node");

    std::string_view const sBytes(reinterpret_cast<char const *>(pData), nSize);
    SurvivesWithoutAbort(
        [&] { Loaded(sBytes, 0x00010003, [](Serializeable_c & Archive) { Load(Archive, s_World); }); });
    if (!LoadedPointersAreSound())
    {
        std::abort();
    }
    g_dLoaded.clear();
    return 0;
}
