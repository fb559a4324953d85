// graph_support.h: a graph of nodes that a serializer stores and loads, for tests and fuzz targets.
#pragma once

#include "tests/archive_support.h"

#include "zqcore/cserializer.h"

#include <algorithm>
#include <memory>
#include <vector>

/// A node of a graph, and a part of it that can be pointed at.
struct Node_s
{
    int iValue = 0;
    int iPart = 0;
    Node_s * pNext = nullptr;
    Node_s * pOther = nullptr;
    void const * pPart = nullptr;
};

inline bool g_bRegisterItself = true;                    // whether nodes can be reached from inside their own body
inline std::vector<std::unique_ptr<Node_s>> g_dLoaded;   // all nodes that loads made
inline Node_s g_StaticNode;                              // a static object with contents

/// Serializer of Node_s. It stores the nodes of a load in g_dLoaded, and makes protected members of the base public.
class NodeSerializer_c : public Serializer_c
{
public:
    explicit NodeSerializer_c(char const * szName)
        : Serializer_c(szName)
    {}

    void Serialize(Serializeable_c & Archive, Node_s *& pNode)
    {
        void * p = pNode;
        if (Archive.IsReading())
        {
            ReadOwnPointer(Archive, p);
        }
        else
        {
            WritePointer(Archive, p);
        }
        pNode = static_cast<Node_s *>(p);
    }

    void SerializeObject(Serializeable_c & Archive, void *& pObject) override
    {
        if (Archive.IsReading() && pObject != &g_StaticNode)
        {
            pObject = g_dLoaded.emplace_back(std::make_unique<Node_s>()).get();
        }
        Node_s & Node = *static_cast<Node_s *>(pObject);
        if (g_bRegisterItself)
        {
            RegisterPointer(Archive, &Node);
        }
        Archive.Serialize(Node.iValue);
        static_cast<NodeSerializer_c *>(FindSerializer("Part"))->RegisterOwnPointer(Archive, &Node.iPart);
        Serialize(Archive, Node.pNext);
        Serialize(Archive, Node.pOther);
        FixupVoidPointer(Archive, Node.pPart);
    }

    using Serializer_c::AddVoidToCache, Serializer_c::dRegisteredStaticPointers, Serializer_c::FindSerializer,
        Serializer_c::FixupVoidPointer, Serializer_c::IsInCache, Serializer_c::ReadPointer, Serializer_c::Reconstruct,
        Serializer_c::RegisterOwnPointer, Serializer_c::RegisterSerializedStaticPointer, Serializer_c::WritePointer;
};

/// Serializers of two classes of nodes and of their parts, and a static object.
struct World_s
{
    NodeSerializer_c Parts{ "Part" };
    NodeSerializer_c Nodes{ "Node" };
    NodeSerializer_c Others{ "Other" };
    int iStatic = 0;
    bool bWhole = false;   // whether the latest load succeeded

    /// Empties the list of static objects and the table of pointers. Registers iStatic and a fresh g_StaticNode.
    void RegisterStatics()
    {
        NodeSerializer_c::dRegisteredStaticPointers.Reset();
        Serializer_c::ResetCache();
        Serializer_c::RegisterStaticPointer(&iStatic);
        NodeSerializer_c::RegisterSerializedStaticPointer(&(g_StaticNode = Node_s()), "Node");
    }

    /// Stores or loads a graph: its root, a pointer of the second class, and the root of the class that the file names.
    void Serialize(Serializeable_c & Archive, Node_s *& pRoot)
    {
        Node_s * pOther = nullptr;
        Serializer_c::StartSerialize(Archive, true);
        Nodes.Serialize(Archive, pRoot);
        Others.Serialize(Archive, pOther);
        void * pAny = pRoot;
        if (Archive.IsReading())
        {
            NodeSerializer_c::ReadPointer(Archive, pAny);
        }
        else
        {
            Nodes.WritePointer(Archive, pAny);
        }
    }

    /// Loads a graph and returns its root. Sets bWhole to whether that succeeded.
    Node_s * Load(std::string_view sBytes)
    {
        Node_s * pRoot = nullptr;
        bWhole = false;
        bWhole = LoadArchive(sBytes, 1, [&](Serializeable_c & Archive) { Serialize(Archive, pRoot); });
        return pRoot;
    }

    /// Calls RegisterStatics, loads any bytes as Load does, ignores assertions and an Abort, and deletes the nodes of
    /// g_dLoaded at the end. Returns whether the pointers of each of these nodes, and of g_StaticNode, led to a node,
    /// to iStatic or nowhere. A pPart may lead to a part too.
    bool LoadsSoundly(std::string_view sBytes)
    {
        RegisterStatics();
        SurvivesWithoutAbort([&] { Load(sBytes); });
        auto const IsAny = [](auto const & fnIs)
        {
            return fnIs(g_StaticNode)
                   || std::any_of(g_dLoaded.begin(), g_dLoaded.end(), [&](auto const & pMade) { return fnIs(*pMade); });
        };
        auto const Leads = [&](void const * p)
        { return !p || p == &iStatic || IsAny([p](Node_s const & Node) { return p == &Node; }); };
        auto const IsPart = [&](void const * p)
        { return IsAny([p](Node_s const & Node) { return p == &Node.iPart; }); };
        auto const IsSound = [&](auto const & pMade)
        { return Leads(pMade->pNext) && Leads(pMade->pOther) && (Leads(pMade->pPart) || IsPart(pMade->pPart)); };
        bool const bSound = IsSound(&g_StaticNode) && std::all_of(g_dLoaded.begin(), g_dLoaded.end(), IsSound);
        g_dLoaded.clear();
        return bSound;
    }
};
