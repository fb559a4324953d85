// shapes.cpp: makes values of the types that gdb prints, and ends with a signal that leaves a core file.
#include "zqcore/zqcore.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace
{
    void OnFirst(bool) {}
    void OnSecond(bool) {}

    struct Item_s
    {
        String_T<128> sName;
        int nPrice;
    };

    StringHash_T<Item_s, 128, 64, 3> g_Items;
    IndexHash_T<int, 16, 1> g_Numbers;

    // Memory that no constructor has seen.
    template <typename T>
    struct Raw_T
    {
        alignas(T) unsigned char dBytes[sizeof(T)];
        T & Value = reinterpret_cast<T &>(dBytes);

        Raw_T() { std::memset(dBytes, 0xCD, sizeof dBytes); }
    };

    // Makes a media root and initialises the modules that read it.
    void SetUpMedia()
    {
        std::filesystem::create_directory("media");
        std::ofstream("media/Goods.csv") << "@head;price\nherring;6\n";
        std::ofstream("media/old.sav") << std::string("\2\0\1\0units", 9);   // version 1.2
        SetPQXMediaPath("media");
        Module_c::Register(ModuleSerialize_c::Get());
        Module_c::InitializeAllModules();
    }
}

int main()
{
    LogSetFile(L"./", L"message.log");
    SetUpMedia();

    String_T<16> sName("Ogre \"king\""), sEmpty, sUmlaut("M\u00F6we"), sBroken;
    std::memset(sBroken.GetBuffer(), 'x', 16);
    FileName_c sFile("media\\goods.csv");
    Raw_T<FileName_c> RawName;

    Array_T<int, 16, 0> dScores, dNone;
    StaticArray_T<float, 3> dFixed;
    SortedArray_T<String_T<16>, StaticArrayLenTraits_T<String_T<16>, 4>> dNames;
    Raw_T<Array_T<int, 16, 0>> RawArray;
    for (int const iScore : { 30, 10, 20 })
    {
        dScores.Add(iScore);
    }
    dNames.Add(sName);

    Link_T<int> First(1), Second(2), Cycle(3), Lost(4);
    [[maybe_unused]] Link_T<int> * const pList = Second.Link(First.Link(nullptr));
    [[maybe_unused]] Link_T<int> * const pNoList = nullptr;
    Cycle.pNext = &Cycle;
    Lost.pNext = reinterpret_cast<Link_T<int> *>(16);
    Callbacker_T<bool> OnStop;
    OnStop.Add(OnFirst, false);
    OnStop.Add(OnSecond, true);
    Raw_T<Callbacker_T<bool>> RawEvent;

    Item_s Sword{ "sword", 12 }, Rope{ "rope", 3 };
    g_Items.Add(&Sword, &Sword.sName);
    g_Items.Add(&Rope, &Rope.sName);
    String_T<128> const sGhost("ghost");
    g_Items.Add(reinterpret_cast<Item_s *>(16), &sGhost);
    g_Numbers.Add(700, 7);
    Raw_T<IndexHash_T<int, 16, 1>> RawTable;

    GigaPoolStatic_c Pool(64, 48);
    GigaPoolResizeable_c Growing(1000, 24);
    StaticMemoryPool_c Sizes("events");
    Raw_T<GigaPoolStatic_c> RawPool;
    Sizes.AddGroup(16, 100);
    Sizes.Alloc(10, false);
    Growing.Alloc(false);
    Pool.Alloc(false);
    void * const pFreed = Pool.Alloc(false);
    Pool.Alloc(false);
    Pool.Free(pFreed, false);

    BitVec_c Row(16);
    BitMap_c Plane(8, 2);
    BitMap3D_c Space(8, 1, 2);
    TinyBitmap_c Tiny;
    Raw_T<BitVec_c> RawRow;
    Row.Bis(3);
    Row.Bis(8);
    Plane.Bis(1, 1);
    Space.Bis(7, 0, 1);
    Tiny.SetWidth(7);
    Tiny.Set(1, 2);

    Guid_c Guid;
    Guid_c::FromText("f81d4fae-7dec-11d0-a765-00a0c91e6bf6", Guid);
    BufferedWriteable_c Writer("new.sav", 0x10002);
    Readable_c Reader(FileOpen("old.sav"), 0x10002), Closed(nullptr, 0x20001);
    MemoryWriteable_c Packet(0x10002);
    Packet.Open();
    MemoryReadable_c Received(Packet.GetBytes(), 0x10002);
    Received.Open();
    Writer.Open();
    Writer.ChunkBegin("units");
    Reader.Open();
    MemCategoryScope_c const Scope(mem::Lua);
    char * const pBlock = ZQ_NEW char[1000];
    std::signal(SIGQUIT, SIG_DFL);
    std::raise(SIGQUIT);
    delete[] pBlock;
}
