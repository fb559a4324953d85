// cserializer.h: graphs of objects in archives.
//
// Serializer_c stores each object of a graph once, at its first reference, and every later reference as a number; a
// load turns each number into the address at which the object now lives. Static objects, which exist in every run,
// keep their identity without being stored. One subclass per class, with one static instance, is known by the class's
// name; its SerializeObject stores or makes an object and runs its fields.
//
// All state of a pass is static: one pass at a time, on one thread, from StartSerialize to the next one. The table of
// pointers takes no heap; its memory (8 MiB, half of that in a 32-bit process) is touched where it is used.
//
// The graph may be as deep as it is large: an object's body runs on the thread's stack as long as BODY_STACK bytes of
// it are left, and then on a fresh one. A body itself must do with BODY_STACK. A level takes some 200 bytes of stack in a
// save and 350 in a load, beside the body's own.
//
// A load of a damaged file ends in the archive's failure, after the assertion that is broken, or in Abort. A pointer
// that could not be loaded is null; one whose object's body had begun is what the body made of it, so that the caller
// can free it. With a failed archive nothing here does anything, in either direction.
//
//     class UnitSerializer_c : public Serializer_c
//     {
//     public:
//         UnitSerializer_c() : Serializer_c("Unit") {}
//         void Serialize(Serializeable_c & Archive, Unit_c *& pUnit)
//         {
//             void * p = pUnit;
//             Archive.IsReading() ? ReadOwnPointer(Archive, p) : WritePointer(Archive, p);
//             pUnit = static_cast<Unit_c *>(p);
//         }
//
//     protected:
//         void SerializeObject(Serializeable_c & Archive, void *& pObject) override
//         {
//             if (Archive.IsReading()) { pObject = ZQ_NEW Unit_c; }
//             Unit_c & Unit = *static_cast<Unit_c *>(pObject);
//             RegisterPointer(Archive, &Unit);   // the unit may be reached again from inside its own body
//             Archive.Serialize(Unit.m_iHealth);
//             Serialize(Archive, Unit.m_pEnemy);
//         }
//     };
#pragma once

#include "zqcore/carray.h"
#include "zqcore/clink.h"
#include "zqcore/cmodule.h"
#include "zqcore/cserialize.h"

/// The addresses of a pass, by slot. The memory behind it stays inside the library: a program that named it would get a
/// copy of all of it at load time.
class ZQ_API PointerTable_c
{
public:
    static constexpr int SIZE = 0x100000;

    /// What a free slot holds.
    static constexpr std::intptr_t NO_ELEMENT = -2;

    /// Requires 0 <= iSlot < SIZE; else a failed assertion and NO_ELEMENT.
    void const * operator[](int iSlot) const;
};

class ZQ_API Serializer_c
{
public:
    static constexpr int HASH_SIZE = PointerTable_c::SIZE;

    static constexpr std::intptr_t HASH_NO_ELEMENT = PointerTable_c::NO_ELEMENT;

    /// Static objects that a file may hold, less one.
    static constexpr int MAX_STATIC_POINTERS = 1000;

    /// Bytes of stack that each body is sure to have.
    static constexpr std::size_t BODY_STACK = 256 * 1024;

    Serializer_c(Serializer_c const &) = delete;
    Serializer_c & operator=(Serializer_c const &) = delete;

    /// Opens a pass. With bStaticPointers, which both sides must agree on, the static objects are bound: the i-th of
    /// the file to the i-th registered. A file with another number of them is logged, and the list takes its number.
    static void StartSerialize(Serializeable_c & archive, bool bStaticPointers);

    /// Frees every slot. Costs nothing when all are free.
    static void ResetCache();

    /// Adds a static object that has no contents in files. One that is there already, and null, are not added. Belongs
    /// before the first pass, in the same order in each run.
    static void RegisterStaticPointer(void * pPointer);

    /// Gives an address inside a body an identifier, at the same place on both sides: of the object itself, which its
    /// own parts may then point back at, or of a part. A load must have set pObject first.
    static void RegisterPointer(Serializeable_c & archive, void const * pPointer);

    /// All serializers, the latest first.
    static Link_T<Serializer_c *> * pSerializerList;

    /// Of identifiers, which are slots: the addresses of the pass.
    static PointerTable_c const dPointers;

protected:
    /// Enters the serializer of a class; the name tells case apart and is cut at 31 characters. Of two of a name the
    /// later one loads.
    explicit Serializer_c(String_T<32> const & sClassName);

    /// Takes the serializer out of the list.
    ~Serializer_c();

    /// The body: stores the object at pObject, or makes or finds one, sets pObject and loads it.
    virtual void SerializeObject(Serializeable_c & archive, void *& pObject) = 0;

    /// Gives an address inside a body an identifier and this serializer's class. Otherwise as RegisterPointer, whose
    /// record it writes: for a part that pointers of the part's class lead to.
    void RegisterOwnPointer(Serializeable_c & archive, void const * pPointer);

    /// Stores a pointer to an object of this serializer's class, or null. Asserts that the pass has seen the object under
    /// no other class: such a pointer is stored, but ReadOwnPointer refuses it.
    void WritePointer(Serializeable_c & archive, void *& pObject);

    /// Loads a pointer to an object of whatever class the file says. A class without serializer, and an identifier out
    /// of range, fail an assertion, then the archive.
    static void ReadPointer(Serializeable_c & archive, void *& pObject);

    /// Loads a pointer to an object of this serializer's class. An object of another class, to which a damaged file can
    /// lead, fails an assertion, then the archive. The class of a static object is the one that it was registered with,
    /// that of a part is RegisterOwnPointer's. Static objects and parts that were registered without a class pass
    /// unchecked.
    void ReadOwnPointer(Serializeable_c & archive, void *& pObject);

    /// Stores or loads a pointer to what the pass has seen already; Abort if it has not.
    static void FixupVoidPointer(Serializeable_c & archive, void const *& pPointer);

    /// As RegisterStaticPointer, of an object whose contents the class's serializer stores. Its body finds pObject set
    /// on both sides, and what it makes of it is not kept.
    static void RegisterSerializedStaticPointer(void * pPointer, String_T<32> const & sClassName);

    /// The latest serializer of that name, or null.
    static Serializer_c * FindSerializer(String_T<32> const & sClassName);

    static String_T<32> LoadName(Serializeable_c & archive);

    /// Whether the identifier stands for an address, or for null (-1). Out of range: a failed assertion, and false.
    static bool IsInCache(int iPointer);

    /// Fills a slot; -1 stores nothing.
    static void SetCacheData(int iPointer, void const * pPointer);

    /// The slot at which the search for an address starts.
    static int HashFunc(void const * pPointer);

    /// The identifier of an address, -1 of null; whether it is new. Abort if all slots are taken.
    static bool AddVoidToCache(void const * pPointer, int * pIndex);

    /// The address of an identifier; null for -1 and, with a failed assertion, for a free slot.
    template <typename T>
    static void Reconstruct(int iPointer, T *& pPointer);

    struct RegisteredStaticPointer_t
    {
        void * pPointer = nullptr;
        String_T<32> sClassName;   // empty: no contents of its own
    };

    /// In the order of registration.
    static SortedArray_T<RegisteredStaticPointer_t, ArrayTraits_T<RegisteredStaticPointer_t, 1024, 0>>
        dRegisteredStaticPointers;

    String_T<32> m_sClassName;

private:
    friend class ModuleSerialize_c;
    friend ZQ_API void SerializerListFree();

    struct OpenRecord_s;

    static int ReadRecord(Serializeable_c & archive, void *& pObject, Serializer_c const * pExpected);
    static bool ReadObject(Serializeable_c & archive, int iPointer, void *& pObject, Serializer_c const * pExpected);
    static bool ReadIdentifier(Serializeable_c & archive, int & iPointer);
    static Serializer_c * ReadClass(Serializeable_c & archive, int iPointer, Serializer_c const * pExpected);
    static void Store(int iPointer, void const * pPointer, std::uint16_t iClass);
    static void Register(Serializeable_c & archive, void const * pPointer, std::uint16_t iClass);
    static void WriteStaticPointers(Serializeable_c & archive);
    static void ReadStaticPointers(Serializeable_c & archive);
    static bool ReadStaticCount(Serializeable_c & archive);
    bool RunBody(Serializeable_c & archive, void *& pObject);
    ZQ_COLD bool RunBodyOnFreshStack(Serializeable_c & archive, void *& pObject);

    std::uint16_t m_iClass;   // the same for all serializers of a name

    static OpenRecord_s * s_pOpen;        // the innermost object that is being loaded
    static Serializer_c * s_pLastFound;   // by FindSerializer
    static std::uint16_t s_nClasses;
};

/// Forgets all serializers. Nothing can be loaded afterwards, and static objects get no contents.
ZQ_API void SerializerListFree();

/// Resets the table at start; at shutdown forgets the static objects and the serializers, which register at load time,
/// so that a process serializes until the first shutdown. Needs ModuleFile_c.
class ZQ_API ModuleSerialize_c : public Module_c
{
public:
    ModuleSerialize_c()
        : Module_c("ModuleSerialize_c")
    {}

    /// The instance.
    static ModuleSerialize_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
    Module_c ** GetPrerequisites() const override;
};

#include "zqcore/cserializer.inl"
