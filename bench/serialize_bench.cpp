// serialize_bench.cpp: saves and loads of values, texts and graphs, compared with cereal's binary archives.
//
// All rows but those that save to memory write or read a file in the page cache, which is opened and closed in the
// loop. The rows "bare" write the same bytes as ours by bare calls of BUFSIZE bytes. An archive that writes all bytes
// through such a buffer can't take less time. The blocks of Containers_s skip the buffer, so its saves can.
#include "zqcore/cfile.h"
#include "zqcore/cserializer.h"
#include "zqcore/cserializestd.h"

#include "platform/bytes.h"

#include <benchmark/benchmark.h>

#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{
    constexpr std::size_t VALUES = 500'000;   // of each width
    constexpr std::size_t TEXTS = 100'000;
    constexpr std::size_t NODES = 100'000;

    // Ends the program if a condition is false, because a row would then measure only a part of the work.
    void Require(bool bHolds)
    {
        if (!bHolds)
        {
            std::abort();
        }
    }

    // Path of a file in the temporary folder. The destructor removes the file.
    struct Place_s
    {
        std::string sPath;

        explicit Place_s(char const * szName)
            : sPath(
                (std::filesystem::temp_directory_path() / ("zqcore_" + std::to_string(std::rand()) + szName)).string())
        {}
        ~Place_s() { std::remove(sPath.c_str()); }
    };

    // Opens a file that the table of files does not have, and returns it. Requires that no earlier result is opened
    // again, because all results share the text of their folder. Ends the program on failure.
    std::unique_ptr<FileOnDisk_c> OpenAt(std::string const & sPath)
    {
        static String_T<256> s_sFolder;
        std::filesystem::path const Path(sPath);
        s_sFolder = (Path.parent_path().string() + "/").c_str();
        auto pFile = std::make_unique<FileOnDisk_c>();
        pFile->sName = Path.filename().c_str();
        pFile->pPath = &s_sFolder;
        Require(FileOpen(pFile.get()));
        return pFile;
    }

    // Numbers of two widths.
    struct Values_s
    {
        std::vector<int> dInts = std::vector<int>(VALUES);
        std::vector<double> dDoubles = std::vector<double>(VALUES);

        void Fill()
        {
            for (std::size_t i = 0; i < VALUES; ++i)
            {
                dInts[i] = static_cast<int>(i * plat::GOLDEN_RATIO >> 32);   // multiplicative hash (Knuth)
                dDoubles[i] = static_cast<double>(i) / 3.0;
            }
        }

        void Serialize(Serializeable_c & Archive)
        {
            for (std::size_t i = 0; i < VALUES; ++i)
            {
                Archive.Serialize(dInts[i]).Serialize(dDoubles[i]);
            }
        }

        template <typename ARCHIVE>
        void serialize(ARCHIVE & Archive)
        {
            for (std::size_t i = 0; i < VALUES; ++i)
            {
                Archive(dInts[i], dDoubles[i]);
            }
        }

        bool operator==(Values_s const &) const = default;
    };

    // Short texts in each library's own type. Both types use 32 bytes, so that equal amounts of memory are walked.
    struct Texts_s
    {
        std::vector<String_T<32>> dOurs = std::vector<String_T<32>>(TEXTS);
        std::vector<std::string> dTheirs = std::vector<std::string>(TEXTS);

        void Fill()
        {
            for (std::size_t i = 0; i < TEXTS; ++i)
            {
                dTheirs[i] = "unit_" + std::to_string(i);
                dOurs[i] = dTheirs[i].c_str();
            }
        }

        void Serialize(Serializeable_c & Archive)
        {
            for (String_T<32> & sText : dOurs)
            {
                Archive.SerializeString(sText);
            }
        }

        template <typename ARCHIVE>
        void serialize(ARCHIVE & Archive)
        {
            for (std::string & sText : dTheirs)
            {
                Archive(sText);
            }
        }

        // A load fills the texts of one library only.
        bool operator==(Texts_s const & Other) const { return dOurs == Other.dOurs || dTheirs == Other.dTheirs; }
    };

    // A million values and the texts.
    struct Both_s
    {
        Values_s Values;
        Texts_s Texts;

        void Fill()
        {
            Values.Fill();
            Texts.Fill();
        }
        void Serialize(Serializeable_c & Archive)
        {
            Values.Serialize(Archive);
            Texts.Serialize(Archive);
        }
        template <typename ARCHIVE>
        void serialize(ARCHIVE & Archive)
        {
            Values.serialize(Archive);
            Texts.serialize(Archive);
        }
        bool operator==(Both_s const &) const = default;
    };

    // The data of Both_s in containers, which both libraries copy as blocks if they can.
    struct Containers_s
    {
        std::vector<int> dInts;
        std::vector<double> dDoubles;
        std::vector<std::string> dTexts;

        void Fill()
        {
            Both_s Both;
            Both.Fill();
            dInts = Both.Values.dInts;
            dDoubles = Both.Values.dDoubles;
            dTexts = Both.Texts.dTheirs;
        }
        void Serialize(Serializeable_c & Archive) { Archive.Serialize(dInts).Serialize(dDoubles).Serialize(dTexts); }
        template <typename ARCHIVE>
        void serialize(ARCHIVE & Archive)
        {
            Archive(dInts, dDoubles, dTexts);
        }
        bool operator==(Containers_s const &) const = default;
    };

    template <typename DATA>
    void SaveOurs(std::string const & sPath, DATA & Data)
    {
        BufferedWriteable_c Archive(sPath.c_str(), ARCHIVE_SAVED_GAME_VERSION);
        Require(Archive.Open());
        Data.Serialize(Archive);
        Require(Archive.Close() && !Archive.IsFailed());
    }

    template <typename DATA>
    void LoadOurs(std::string const & sPath, DATA & Data)
    {
        std::unique_ptr<FileOnDisk_c> const pFile = OpenAt(sPath);
        Readable_c Archive(pFile.get(), ARCHIVE_SAVED_GAME_VERSION);
        Require(Archive.Open());
        Data.Serialize(Archive);
        Require(!Archive.IsFailed());
    }

    template <typename DATA>
    void SaveTheirs(std::string const & sPath, DATA & Data)
    {
        std::ofstream Stream(sPath, std::ios::binary);
        cereal::BinaryOutputArchive Archive(Stream);
        Archive(Data);
    }

    template <typename DATA>
    void LoadTheirs(std::string const & sPath, DATA & Data)
    {
        std::ifstream Stream(sPath, std::ios::binary);
        cereal::BinaryInputArchive Archive(Stream);
        Archive(Data);
    }

    template <typename DATA, auto SAVE>
    void Save(benchmark::State & State)
    {
        Place_s const Place("save.arc");
        DATA Data;
        Data.Fill();
        for (auto _ : State)
        {
            SAVE(Place.sPath, Data);
        }
    }

    template <typename DATA>
    void SaveBare(benchmark::State & State)
    {
        Place_s const Place("bare.arc");
        DATA Data;
        Data.Fill();
        MemoryWriteable_c Archive(ARCHIVE_SAVED_GAME_VERSION);
        Archive.Open();
        Data.Serialize(Archive);
        std::span<std::byte const> const Bytes = Archive.GetBytes();
        for (auto _ : State)
        {
            int const iFile = open(Place.sPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            constexpr std::size_t BUFFER = BufferedWriteable_c::BUFSIZE;
            for (std::size_t nAt = 0; nAt < Bytes.size(); nAt += BUFFER)
            {
                std::size_t const nBytes = std::min(BUFFER, Bytes.size() - nAt);
                Require(write(iFile, Bytes.data() + nAt, nBytes) == static_cast<ssize_t>(nBytes));
            }
            Require(close(iFile) == 0);
        }
    }

    // Saves to memory, as an undo step does.
    template <typename DATA>
    void SaveToMemory(benchmark::State & State)
    {
        DATA Data;
        Data.Fill();
        for (auto _ : State)
        {
            MemoryWriteable_c Archive(ARCHIVE_SAVED_GAME_VERSION);
            Archive.Open();
            Data.Serialize(Archive);
            Require(!Archive.IsFailed());
        }
    }

    template <typename DATA, auto SAVE, auto LOAD>
    void Load(benchmark::State & State)
    {
        Place_s const Place("load.arc");
        DATA Data, Loaded;
        Data.Fill();
        SAVE(Place.sPath, Data);
        for (auto _ : State)
        {
            LOAD(Place.sPath, Loaded);
        }
        Require(Loaded == Data);
    }

    // Node of a graph. It shares two earlier nodes and refers weakly to a third, except in the chain of MakeOurs. The
    // nodes are saved in order, so that only the chain is deep.
    struct OurNode_s
    {
        int iValue = 0;
        OurNode_s * pFirst = nullptr;
        OurNode_s * pSecond = nullptr;
        OurNode_s * pWeak = nullptr;
    };

    struct TheirNode_s
    {
        int iValue = 0;
        std::shared_ptr<TheirNode_s> pFirst, pSecond;
        std::weak_ptr<TheirNode_s> pWeak;

        template <typename ARCHIVE>
        void serialize(ARCHIVE & Archive)
        {
            Archive(iValue, pFirst, pSecond, pWeak);
        }
    };

    // Serializer of OurNode_s. It keeps the nodes that a load creates.
    class NodeSerializer_c : public Serializer_c
    {
    public:
        NodeSerializer_c()
            : Serializer_c("Node")
        {}

        void Serialize(Serializeable_c & Archive, OurNode_s *& pNode)
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
            pNode = static_cast<OurNode_s *>(p);
        }

        std::vector<std::unique_ptr<OurNode_s>> m_dLoaded;

    protected:
        void SerializeObject(Serializeable_c & Archive, void *& pObject) override
        {
            if (Archive.IsReading())
            {
                m_dLoaded.push_back(std::make_unique<OurNode_s>());
                pObject = m_dLoaded.back().get();
            }
            OurNode_s & Node = *static_cast<OurNode_s *>(pObject);
            RegisterPointer(Archive, &Node);
            Archive.Serialize(Node.iValue);
            Serialize(Archive, Node.pFirst);
            Serialize(Archive, Node.pSecond);
            Serialize(Archive, Node.pWeak);
        }
    };
    NodeSerializer_c g_Nodes;

    // Returns an earlier node, which a multiplicative hash picks (Knuth), or none for the first. Links 0 and 1 are
    // shared. Link 2 is weak.
    template <typename POINTER>
    POINTER EarlierNode(std::vector<POINTER> const & dNodes, std::size_t i, std::size_t iLink)
    {
        constexpr std::size_t LINKS = 3;
        return i == 0 ? POINTER() : dNodes[((i * LINKS + iLink) * plat::GOLDEN_RATIO >> 32) % i];
    }

    // OurNode_s for a Serializer_T.
    struct TypedNode_s
    {
        int iValue = 0;
        TypedNode_s * pFirst = nullptr;
        TypedNode_s * pSecond = nullptr;
        TypedNode_s * pWeak = nullptr;

        void Serialize(Serializeable_c & Archive)
        {
            Archive.Serialize(iValue).Serialize(pFirst).Serialize(pSecond).Serialize(pWeak);
        }
    };

    class TypedSerializer_c : public Serializer_T<TypedNode_s>
    {
    public:
        using Serializer_T<TypedNode_s>::Serializer_T;
        std::vector<std::unique_ptr<TypedNode_s>> m_dLoaded;

    protected:
        TypedNode_s * Make() override { return m_dLoaded.emplace_back(std::make_unique<TypedNode_s>()).get(); }
    };
    TypedSerializer_c g_TypedNodes("TypedNode");

    struct TypedGraph_s
    {
        std::vector<TypedNode_s *> dNodes = std::vector<TypedNode_s *>(NODES);

        void Serialize(Serializeable_c & Archive)
        {
            Serializer_c::StartSerialize(Archive, false);
            Archive.Serialize(dNodes);
        }
    };

    struct OurGraph_s
    {
        std::vector<OurNode_s *> dNodes = std::vector<OurNode_s *>(NODES);

        void Serialize(Serializeable_c & Archive)
        {
            Serializer_c::StartSerialize(Archive, false);
            for (OurNode_s *& pNode : dNodes)
            {
                g_Nodes.Serialize(Archive, pNode);
            }
        }
    };

    // Makes a graph of the nodes in dStorage and returns it. With bChain the first link of each node but the last is
    // the next one.
    template <typename GRAPH, typename NODE>
    GRAPH MakeOurs(std::vector<NODE> & dStorage, bool bChain)
    {
        GRAPH Graph;
        for (std::size_t i = 0; i < NODES; ++i)
        {
            Graph.dNodes[i] = &dStorage[i];
            dStorage[i].iValue = static_cast<int>(i);
            dStorage[i].pFirst = bChain && i + 1 < NODES ? &dStorage[i + 1] : EarlierNode(Graph.dNodes, i, 0);
            dStorage[i].pSecond = EarlierNode(Graph.dNodes, i, 1);
            dStorage[i].pWeak = EarlierNode(Graph.dNodes, i, 2);
        }
        return Graph;
    }

    template <typename GRAPH, typename NODE, auto & SERIALIZER, bool CHAIN>
    void GraphOurs(benchmark::State & State)
    {
        Place_s const Place("graph.arc");
        std::vector<NODE> dStorage(NODES);
        GRAPH Saved = MakeOurs<GRAPH>(dStorage, CHAIN);
        for (auto _ : State)
        {
            GRAPH Loaded;
            SaveOurs(Place.sPath, Saved);
            LoadOurs(Place.sPath, Loaded);
            Require(SERIALIZER.m_dLoaded.size() == NODES && Loaded.dNodes[1]->pWeak == Loaded.dNodes[0]);
            SERIALIZER.m_dLoaded.clear();
        }
    }

    // Object of one of many classes, which is saved by a pointer to its base.
    struct Part_s
    {
        int iValue = 0;

        virtual ~Part_s() = default;
        virtual Serializer_c & GetSerializer() const = 0;
    };

    template <std::size_t CLASS>
    struct ClassPart_T final : Part_s
    {
        static Serializer_T<ClassPart_T, Part_s> s_Serializer;

        Serializer_c & GetSerializer() const override { return s_Serializer; }
        void Serialize(Serializeable_c & Archive) { Archive.Serialize(iValue); }
    };
    template <std::size_t CLASS>
    Serializer_T<ClassPart_T<CLASS>, Part_s> ClassPart_T<CLASS>::s_Serializer(NewString("Part%zu", CLASS).CStr());

    template <std::size_t... CLASSES>
    std::unique_ptr<Part_s> MakePart(std::size_t iClass, std::index_sequence<CLASSES...>)
    {
        using Maker_t = std::unique_ptr<Part_s> (*)();
        static constexpr Maker_t MAKERS[] = { [] { return std::unique_ptr<Part_s>(new ClassPart_T<CLASSES>); }... };
        return MAKERS[iClass]();
    }

    struct PartGraph_s
    {
        std::vector<Part_s *> dParts = std::vector<Part_s *>(NODES);

        void Serialize(Serializeable_c & Archive)
        {
            Serializer_c::StartSerialize(Archive, false);
            Archive.Serialize(dParts);
        }
    };

    // Saves and loads objects whose classes alternate.
    template <std::size_t CLASSES>
    void GraphOfClasses(benchmark::State & State)
    {
        Place_s const Place("classes.arc");
        std::vector<std::unique_ptr<Part_s>> dStorage(NODES);
        PartGraph_s Saved;
        for (std::size_t i = 0; i < NODES; ++i)
        {
            dStorage[i] = MakePart(i % CLASSES, std::make_index_sequence<CLASSES>());
            dStorage[i]->iValue = static_cast<int>(i);
            Saved.dParts[i] = dStorage[i].get();
        }
        for (auto _ : State)
        {
            PartGraph_s Loaded;
            SaveOurs(Place.sPath, Saved);
            LoadOurs(Place.sPath, Loaded);
            Require(Loaded.dParts[NODES - 1]->iValue == NODES - 1);
            for (Part_s * const pPart : Loaded.dParts)
            {
                delete pPart;
            }
        }
    }

    // Releases from the last to the first, so that no destructor recurses.
    void Release(std::vector<std::shared_ptr<TheirNode_s>> & dNodes)
    {
        while (!dNodes.empty())
        {
            dNodes.pop_back();
        }
    }

    void GraphTheirs(benchmark::State & State)
    {
        Place_s const Place("graph.arc");
        std::vector<std::shared_ptr<TheirNode_s>> dNodes(NODES);
        for (std::size_t i = 0; i < NODES; ++i)
        {
            dNodes[i] = std::make_shared<TheirNode_s>();
            dNodes[i]->iValue = static_cast<int>(i);
            dNodes[i]->pFirst = EarlierNode(dNodes, i, 0);
            dNodes[i]->pSecond = EarlierNode(dNodes, i, 1);
            dNodes[i]->pWeak = EarlierNode(dNodes, i, 2);
        }
        for (auto _ : State)
        {
            std::vector<std::shared_ptr<TheirNode_s>> dLoaded;
            SaveTheirs(Place.sPath, dNodes);
            LoadTheirs(Place.sPath, dLoaded);
            Require(dLoaded.size() == NODES && dLoaded[1]->pWeak.lock() == dLoaded[0]);
            Release(dLoaded);
        }
        Release(dNodes);
    }
}

#define SAVE_AND_LOAD(DATA)                                                                                            \
    BENCHMARK(Save<DATA, SaveOurs<DATA>>)->Name(#DATA "/save/ours")->Unit(benchmark::kMillisecond);                    \
    BENCHMARK(Save<DATA, SaveTheirs<DATA>>)->Name(#DATA "/save/cereal")->Unit(benchmark::kMillisecond);                \
    BENCHMARK(SaveBare<DATA>)->Name(#DATA "/save/bare")->Unit(benchmark::kMillisecond);                                \
    BENCHMARK(SaveToMemory<DATA>)->Name(#DATA "/save_to_memory/ours")->Unit(benchmark::kMillisecond);                  \
    BENCHMARK(Load<DATA, SaveOurs<DATA>, LoadOurs<DATA>>)->Name(#DATA "/load/ours")->Unit(benchmark::kMillisecond);    \
    BENCHMARK(Load<DATA, SaveTheirs<DATA>, LoadTheirs<DATA>>)->Name(#DATA "/load/cereal")->Unit(benchmark::kMillisecond)

SAVE_AND_LOAD(Values_s);
SAVE_AND_LOAD(Texts_s);
SAVE_AND_LOAD(Both_s);
SAVE_AND_LOAD(Containers_s);
BENCHMARK(GraphOurs<OurGraph_s, OurNode_s, g_Nodes, false>)->Name("Graph/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(GraphOurs<TypedGraph_s, TypedNode_s, g_TypedNodes, false>)
    ->Name("Graph/ours_typed")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(GraphTheirs)->Name("Graph/cereal")->Unit(benchmark::kMillisecond);
BENCHMARK(GraphOurs<OurGraph_s, OurNode_s, g_Nodes, true>)
    ->Name("GraphOneChainDeep/ours")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(GraphOfClasses<200>)->Name("GraphOfClasses/200/ours")->Unit(benchmark::kMillisecond);
