// graph_support.h: a graph of nodes that a serializer stores and loads, for tests and fuzz targets.
#pragma once

#include "zqcore/cserializer.h"

#include <algorithm>
#include <memory>
#include <vector>

// A node of a graph, and a part of it that can be pointed at.
struct Node_s
{
    int iValue = 0;
    int iPart = 0;
    Node_s * pNext = nullptr;
    Node_s * pOther = nullptr;
    void const * pPart = nullptr;
};

inline bool g_bRegisterItself = true;                    // nodes can be reached from inside their own body
inline std::vector<std::unique_ptr<Node_s>> g_dLoaded;   // all that loads made

class NodeSerializer_c : public Serializer_c
{
public:
    explicit NodeSerializer_c(char const * szName)
        : Serializer_c(szName)
    {}

    void Serialize(Serializeable_c & Archive, Node_s *& pNode)
    {
        void * p = pNode;
        Archive.IsReading() ? ReadOwnPointer(Archive, p) : WritePointer(Archive, p);
        pNode = static_cast<Node_s *>(p);
    }

    void SerializeObject(Serializeable_c & Archive, void *& pObject) override
    {
        bool const bStatic = pObject == &s_StaticNode;
        if (Archive.IsReading() && !bStatic)
        {
            g_dLoaded.push_back(std::make_unique<Node_s>());
            pObject = g_dLoaded.back().get();
        }
        Node_s & Node = *static_cast<Node_s *>(pObject);
        if (g_bRegisterItself)
        {
            RegisterPointer(Archive, &Node);
        }
        Archive.Serialize(Node.iValue);
        RegisterPointer(Archive, &Node.iPart);
        Serialize(Archive, Node.pNext);
        Serialize(Archive, Node.pOther);
        FixupVoidPointer(Archive, Node.pPart);
    }

    static inline Node_s s_StaticNode;   // of a static object with contents

    using Serializer_c::AddVoidToCache;
    using Serializer_c::dRegisteredStaticPointers;
    using Serializer_c::FindSerializer;
    using Serializer_c::FixupVoidPointer;
    using Serializer_c::IsInCache;
    using Serializer_c::ReadPointer;
    using Serializer_c::Reconstruct;
    using Serializer_c::RegisterSerializedStaticPointer;
    using Serializer_c::WritePointer;
};

// Whether every pointer of every loaded node leads to a node or nowhere.
inline bool LoadedPointersAreSound()
{
    auto const IsSound = [](Node_s const * p)
    {
        return !p || p == &NodeSerializer_c::s_StaticNode
               || std::any_of(g_dLoaded.begin(), g_dLoaded.end(), [p](auto const & pNode) { return pNode.get() == p; });
    };
    return std::all_of(g_dLoaded.begin(), g_dLoaded.end(),
        [&](auto const & pNode) { return IsSound(pNode->pNext) && IsSound(pNode->pOther); });
}
