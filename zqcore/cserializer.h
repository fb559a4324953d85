// cserializer.h: graphs of objects in archives.
//
// Serializer_c stores each object of a graph once, at its first reference, and every later reference as a number. A
// load turns each number into the object's new address. Static objects, which exist in every run, keep their identity
// without being stored. Each class has one subclass of Serializer_c with one static instance, which is found by the
// class's name. Its SerializeObject, the body, stores or makes an object and transfers its fields.
//
// Ownership: the caller owns the objects that a body makes, also after a failed load.
// Threads: all state of a pass is static. One pass at a time runs on one thread, from StartSerialize to the next one.
// Cost: the table of pointers does not use the heap. It has 10 MiB, 6 MiB in a 32-bit process, of which only the pages
// in use are touched. A level of the graph takes some 200 bytes of stack in a save and 350 in a load, besides the
// body's own. The graph may be as deep as it is large: when less than BODY_STACK bytes of stack are left, a body runs
// on a fresh stack. A body itself must not need more than BODY_STACK.
// Failure: a damaged file asserts and fails the archive, or ends in Abort. A pointer that could not be loaded is null.
// If the body of its object had begun, the pointer is the object that the body made, so the caller can free it. On a
// failed archive a save stores nothing, and a load sets pointers to null.
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
//             RegisterPointer(Archive, &Unit);   // the unit's own body may reach it again
//             Archive.Serialize(Unit.m_iHealth);
//             Serialize(Archive, Unit.m_pEnemy);
//         }
//     };
#pragma once

#include "zqcore/carray.h"
#include "zqcore/clink.h"
#include "zqcore/cmodule.h"
#include "zqcore/cserialize.h"

/// Read-only view of the table that holds the addresses of a pass, by slot. The table itself is not exported: the
/// loader copies exported data into each program that refers to it.
class ZQ_API PointerTable_c
{
public:
    /// Number of slots.
    static constexpr int SIZE = 0x100000;

    /// Contents of a free slot.
    static constexpr std::intptr_t NO_ELEMENT = -2;

    /// Returns the contents of a slot. Asserts 0 <= iSlot < SIZE, and returns NO_ELEMENT otherwise.
    void const * operator[](int iSlot) const;
};

/// Serializer of one class, and the state of a pass.
class ZQ_API Serializer_c
{
public:
    /// Another name for PointerTable_c::SIZE.
    static constexpr int HASH_SIZE = PointerTable_c::SIZE;

    /// Another name for PointerTable_c::NO_ELEMENT.
    static constexpr std::intptr_t HASH_NO_ELEMENT = PointerTable_c::NO_ELEMENT;

    /// Limit of the number of static objects of a file, which must be below it. Otherwise a pass asserts and fails the
    /// archive.
    static constexpr int MAX_STATIC_POINTERS = 1000;

    /// Number of bytes of stack that each body has at least.
    static constexpr std::size_t BODY_STACK = 256 * 1024;

    Serializer_c(Serializer_c const &) = delete;
    Serializer_c & operator=(Serializer_c const &) = delete;

    /// Begins a pass. With bStaticPointers the i-th static object of the file is bound to the i-th registered one. Save
    /// and load must pass the same flag. If the file has another number of static objects, a line is logged, and the
    /// list is cut or filled with nulls to the file's number.
    static void StartSerialize(Serializeable_c & archive, bool bStaticPointers);

    /// Frees every slot. Costs nothing if all are free.
    static void ResetCache();

    /// Adds a static object that has no contents in files. Does not add null or an object that was added before.
    /// Requires calls before the first pass, in the same order in each run.
    static void RegisterStaticPointer(void * pPointer);

    /// Assigns an identifier to an address. Only a body calls it: for its object, so that parts of the object can point
    /// to it, or for a part. Save and load must call it at the same place. A load must have set pObject before.
    static void RegisterPointer(Serializeable_c & archive, void const * pPointer);

    /// List of all serializers, the latest first.
    static Link_T<Serializer_c *> * pSerializerList;

    /// Addresses of the pass, indexed by identifier.
    static PointerTable_c const dPointers;

protected:
    /// Registers the serializer of a class. The name is case-sensitive and is cut at 31 characters. If two share a
    /// name, the last one registered loads. Discards the pass under way.
    explicit Serializer_c(String_T<32> const & sClassName);

    /// Removes the serializer from the list.
    ~Serializer_c();

    /// Stores the object at pObject, or makes or finds an object, sets pObject and loads it.
    virtual void SerializeObject(Serializeable_c & archive, void *& pObject) = 0;

    /// Registers a part that other objects reach by pointers to its class. Writes the same record as RegisterPointer
    /// and notes this serializer's class for ReadOwnPointer.
    void RegisterOwnPointer(Serializeable_c & archive, void const * pPointer);

    /// Stores a pointer to an object of this serializer's class, or null. Asserts that the pass has not seen the object
    /// under another class: such a pointer is stored, but ReadOwnPointer refuses it.
    void WritePointer(Serializeable_c & archive, void *& pObject);

    /// Loads a pointer to an object of the class that the file names. A class without a serializer, and an identifier
    /// out of range, assert and fail the archive.
    static void ReadPointer(Serializeable_c & archive, void *& pObject);

    /// Loads a pointer to an object of this serializer's class. An object of another class, to which a damaged file can
    /// lead, asserts and fails the archive. A static object has the class that it was registered with, a part the class
    /// of the serializer whose RegisterOwnPointer was called. Static objects and parts that were registered without a
    /// class are not checked.
    void ReadOwnPointer(Serializeable_c & archive, void *& pObject);

    /// Stores or loads a pointer to an address that the pass has already seen. Calls Abort otherwise.
    static void FixupVoidPointer(Serializeable_c & archive, void const *& pPointer);

    /// Registers a static object, as RegisterStaticPointer does, whose contents the class's serializer stores. The body
    /// finds pObject set in both directions, and a change of pObject is ignored.
    static void RegisterSerializedStaticPointer(void * pPointer, String_T<32> const & sClassName);

    /// Returns the latest serializer of that name, or null.
    static Serializer_c * FindSerializer(String_T<32> const & sClassName);

    /// Loads a class name and returns it.
    static String_T<32> LoadName(Serializeable_c & archive);

    /// Returns whether the identifier has an address, or is -1, which means null. Asserts that it is in range, and
    /// returns false otherwise.
    static bool IsInCache(int iPointer);

    /// Stores an address without a class in a slot. The identifier -1 stores nothing. Asserts that it is in range, and
    /// stores nothing otherwise.
    static void SetCacheData(int iPointer, void const * pPointer);

    /// Returns the slot at which the search for an address starts.
    static int HashFunc(void const * pPointer);

    /// Sets *pIndex to the identifier of an address, -1 for null, and returns whether it is new. Calls Abort if all
    /// slots are in use.
    static bool AddVoidToCache(void const * pPointer, int * pIndex);

    /// Sets pPointer to the address of an identifier. Asserts that the slot is not free; a free slot and -1 set null.
    template <typename T>
    static void Reconstruct(int iPointer, T *& pPointer);

    /// A static object and the class whose serializer stores its contents.
    struct RegisteredStaticPointer_t
    {
        void * pPointer = nullptr;
        String_T<32> sClassName;   // empty if the object has no contents in files
    };

    /// All static objects, in the order of registration.
    static SortedArray_T<RegisteredStaticPointer_t, ArrayTraits_T<RegisteredStaticPointer_t, 1024, 0>>
        dRegisteredStaticPointers;

    /// Name of the class, as passed to the constructor.
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

    std::uint16_t m_iClass;   // number of the class, the same for all serializers of a name

    static OpenRecord_s * s_pOpen;        // innermost object that is being loaded
    static Serializer_c * s_pLastFound;   // latest result of FindSerializer
    static std::uint16_t s_nClasses;
};

/// Removes all serializers. Afterwards nothing can be loaded, and static objects have no contents.
ZQ_API void SerializerListFree();

/// Module of serialization; needs ModuleFile_c. Resets the table at start. At shutdown it removes the static objects
/// and the serializers. Serializers register at load time, so a process serializes only until the first shutdown.
class ZQ_API ModuleSerialize_c : public Module_c
{
public:
    ModuleSerialize_c()
        : Module_c("ModuleSerialize_c")
    {}

    /// Returns the only instance.
    static ModuleSerialize_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
    Module_c ** GetPrerequisites() const override;
};

#include "zqcore/cserializer.inl"
