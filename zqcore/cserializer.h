// cserializer.h: graphs of objects in archives.
//
// Serializer_c stores each object of a graph once, at its first reference, and every later reference as a number. A
// load turns each number into the object's new address. Static objects, which exist in every run, keep their identity.
// Only their contents are stored, if they were registered with a class. Each class has one static Serializer_T, which a
// load finds by the class's name. An archive then serializes pointers to its objects. A class that needs more has a
// subclass of Serializer_c of its own. Its SerializeObject, the body, stores or makes an object and transfers its
// fields.
//
// Ownership: the caller owns the objects that a body makes, also after a failed load.
// Threads: all state of a pass is static. One pass at a time runs, on one thread, from one StartSerialize to the next.
// Cost: the table of pointers does not use the heap. It has 10 MiB, 6 MiB in a 32-bit process, of which only the pages
// in use are touched. A level of the graph needs some 200 bytes of stack in a save and 350 in a load, besides the
// body's own. The graph may be as deep as it is large: when less than BODY_STACK bytes of stack are left, a body runs
// on a fresh stack. Requires that a body itself needs at most BODY_STACK.
// Failure: a graph of more than HASH_SIZE addresses, 1,048,576, ends in Abort. A damaged file asserts and fails the
// archive, or ends in Abort. In a check (cserializecheck.h) it only fails the archive. If the system has no fresh
// stack, a line is logged and the archive fails. A pointer that could not be loaded is null, unless the body of its
// object had begun. Then it is the object that the body made, so the caller can free it. On a failed archive a save
// stores nothing, and a load sets pointers to null.
//
//     class Item_c
//     {
//     public:
//         virtual ~Item_c() = default;
//         virtual void Serialize(Serializeable_c & archive) { archive.Serialize(m_sName).Serialize(m_dParts); }
//         virtual Serializer_c & GetSerializer() const { return s_Serializer; }
//         static Serializer_T<Item_c> s_Serializer;
//
//         String_T<32> m_sName;
//         std::vector<Item_c *> m_dParts;   // needs zqcore/cserializestd.h
//     };
//     Serializer_T<Item_c> Item_c::s_Serializer("Item");
//
//     class Sword_c : public Item_c
//     {
//     public:
//         void Serialize(Serializeable_c & archive) override
//         {
//             Item_c::Serialize(archive);
//             archive.Serialize(m_iEdge);
//         }
//         Serializer_c & GetSerializer() const override { return s_Serializer; }
//         static Serializer_T<Sword_c, Item_c> s_Serializer;   // a pointer to an Item_c may lead to it
//
//         int m_iEdge = 0;
//     };
//     Serializer_T<Sword_c, Item_c> Sword_c::s_Serializer("Sword");
//
// A pass saves the items that a pointer leads to, or loads them, whichever class each one has:
//
//     void Pass(Serializeable_c & archive, Item_c *& pItem)
//     {
//         Serializer_c::StartSerialize(archive, false);
//         archive.Serialize(pItem);
//     }
#pragma once

#include "zqcore/carray.h"
#include "zqcore/clink.h"
#include "zqcore/cmemory.h"
#include "zqcore/cmodule.h"
#include "zqcore/cserialize.h"
#include "zqcore/cstring.h"

class Serializer_c;

namespace graphs
{
    /// Identity of a type that pointers of a graph have: the address of its Class_T::s_pSerializer.
    using Type_t = void const *;

    /// Direction of a conversion.
    enum class Way_e
    {
        Ask,        // return any address if the type is known
        ToObject,   // from a pointer of the type to the object
        ToType      // from the object to a pointer of the type
    };

    /// Function that converts a pointer between an object and one of the types that its serializer names. It returns
    /// null for others.
    using Convert_t = void * (*)(void * pFrom, Type_t Type, Way_e eWay);

    /// Serializer of a class.
    template <typename T>
    struct Class_T
    {
        static inline Serializer_c * s_pSerializer = nullptr;   // null if the class has none
    };

    /// Classes whose objects return their serializer.
    template <typename T>
    concept Chooser_T = requires(T const & Object)
    {
        Object.GetSerializer();
    };
}

/// Read-only view of the table that holds the addresses of a pass. The identifier of an address is the number of its
/// slot. The table itself is not exported: the loader copies exported data into each program that refers to it.
class ZQ_API PointerTable_c
{
public:
    /// Number of slots.
    static constexpr int SIZE = 0x100000;

    /// Contents of a free slot.
    static constexpr std::intptr_t NO_ELEMENT = -2;

    /// Returns the contents of a slot. Asserts that 0 <= iSlot < SIZE, and returns NO_ELEMENT otherwise.
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

    /// Limit of the static objects of a file. If their number is not below it, a pass asserts and fails the archive.
    static constexpr int MAX_STATIC_POINTERS = 1000;

    /// Limit of the bytes of a class's name, with its terminator.
    static constexpr int NAME_SIZE = 32;

    /// Number of bytes of stack that each body has at least.
    static constexpr std::size_t BODY_STACK = 256 * 1024;

    Serializer_c(Serializer_c const &) = delete;
    Serializer_c & operator=(Serializer_c const &) = delete;

    /// Begins a pass. With bStaticPointers, also stores the static objects, or binds the i-th one of the file to the
    /// i-th registered one and loads it. Requires the same flag in save and load.
    ///
    /// If the file has another number of static objects, logs a line, and cuts the list or fills it with nulls to the
    /// file's number, for later passes too. Requires that the static objects that an older file lacks are registered
    /// again after its load. A check (cserializecheck.h) changes nothing.
    static void StartSerialize(Serializeable_c & archive, bool bStaticPointers);

    /// Frees every slot. Costs nothing if all are free.
    static void ResetCache();

    /// Adds a static object that has no contents in files. Does not add null, or an object that was added since the
    /// table was last reset, by ResetCache or the constructor of a serializer. Requires calls before the first pass, in
    /// the same order in each run, or after a load that has cut the object from the list (StartSerialize).
    static void RegisterStaticPointer(void * pPointer);

    /// Assigns an identifier to the address of a body's object or of one of its parts, so that pointers can lead there.
    /// Requires that a body calls it, at the same place in save and load, and in a load that the body has set its
    /// pObject.
    static void RegisterPointer(Serializeable_c & archive, void const * pPointer);

    /// Stores or loads a pointer to an object of a class that has a Serializer_T, or null. Serialize of the archive
    /// calls it. A load makes an object of the class that was stored.
    /// - Writing: asserts that the object's class has a Serializer_T of its own, which names T. Otherwise fails the
    ///   archive.
    /// - Reading: a class whose Serializer_T does not name T asserts and fails the archive. An address that was
    ///   registered without a class is not checked, and is returned as it was registered.
    template <typename T>
    static void SerializePointer(Serializeable_c & archive, T *& pObject);

    /// List of all serializers, the latest first. Requires that no caller changes it, because searches remember what
    /// they found in it.
    static Link_T<Serializer_c *> * pSerializerList;

    /// Addresses of the pass, indexed by identifier.
    static PointerTable_c const dPointers;

protected:
    /// Static object and the class whose serializer stores its contents.
    struct RegisteredStaticPointer_t
    {
        void * pPointer = nullptr;        // the object
        String_T<NAME_SIZE> sClassName;   // empty if the object has no contents in files
    };

    /// Registers the serializer of a class. Discards the pass under way. If two serializers share a name, the last one
    /// registered loads. The name is case-sensitive and is cut at 31 characters. Asserts that at most 65,534 times in
    /// the process a name was registered that no other serializer had at the time.
    explicit Serializer_c(String_T<NAME_SIZE> const & sClassName)
        : Serializer_c(sClassName, nullptr)
    {}

    /// Removes the serializer from the list.
    ~Serializer_c();

    /// Stores the object at pObject, or makes or finds an object, sets pObject and loads it.
    virtual void SerializeObject(Serializeable_c & archive, void *& pObject) = 0;

    /// Registers an address, usually of a part, that pointers to this serializer's class may lead to. Stores or
    /// loads the same record as RegisterPointer, and notes the class, which ReadOwnPointer and SerializePointer check.
    void RegisterOwnPointer(Serializeable_c & archive, void const * pPointer);

    /// Stores a pointer to an object of this serializer's class, or null. If the pass has seen the address under
    /// another class, as that of an object whose first member is the object, ReadOwnPointer refuses the stored pointer.
    void WritePointer(Serializeable_c & archive, void *& pObject);

    /// Loads a pointer to an object of the class that the file names, or null. Asserts and fails the archive in these
    /// cases:
    /// - the class has no serializer.
    /// - the identifier is out of range.
    /// - the object is inside itself.
    static void ReadPointer(Serializeable_c & archive, void *& pObject);

    /// Loads a pointer to an object of this serializer's class, or null. An object of another class, to which a damaged
    /// file can lead, asserts and fails the archive. A static object has the class that it was registered with. A part
    /// has that of the serializer whose RegisterOwnPointer was called. An object without a class is not checked.
    void ReadOwnPointer(Serializeable_c & archive, void *& pObject);

    /// Stores or loads a pointer to an address that the pass has already seen, or null. Calls Abort otherwise. A loaded
    /// identifier out of range asserts and fails the archive.
    static void FixupVoidPointer(Serializeable_c & archive, void const *& pPointer);

    /// Registers a static object, as RegisterStaticPointer does, whose contents the class's serializer stores. The body
    /// finds pObject set in both directions. A change of pObject is ignored.
    static void RegisterSerializedStaticPointer(void * pPointer, String_T<NAME_SIZE> const & sClassName);

    /// Returns the latest serializer of that name, or null.
    static Serializer_c * FindSerializer(String_T<NAME_SIZE> const & sClassName);

    /// Loads a class name and returns it. Returns an empty text if the archive has failed.
    static String_T<NAME_SIZE> LoadName(Serializeable_c & archive);

    /// Returns whether the identifier has an address, or is -1, which means null. Asserts that it is in range, and
    /// returns false otherwise.
    static bool IsInCache(int iPointer);

    /// Stores an address without a class in the slot of an identifier. -1 stores nothing. Asserts that the identifier
    /// is in range, and stores nothing otherwise.
    static void SetCacheData(int iPointer, void const * pPointer);

    /// Returns the slot at which the search for an address starts.
    static int HashFunc(void const * pPointer);

    /// Sets *pIndex to the identifier of an address, -1 for null, and returns whether it is new. Calls Abort if a new
    /// address finds all slots in use.
    static bool AddVoidToCache(void const * pPointer, int * pIndex);

    /// Sets pPointer to the address of an identifier. Asserts that the slot is not free. A free slot and -1 set null.
    template <typename T>
    static void Reconstruct(int iPointer, T *& pPointer);

    /// All static objects, in the order of registration.
    static SortedArray_T<RegisteredStaticPointer_t, ArrayTraits_T<RegisteredStaticPointer_t, 1024, 0>>
        dRegisteredStaticPointers;

    /// Name of the class, as passed to the constructor.
    String_T<NAME_SIZE> m_sClassName;

private:
    friend class ModuleSerialize_c;
    friend ZQ_API void SerializerListFree();
    template <typename T, typename... BASES>
    friend class Serializer_T;

    struct OpenRecord_s;

    /// Objects that a pointer may lead to: those of one serializer's class, of classes that are or name a type, or all.
    struct Expected_s
    {
        Serializer_c const * pOwn = nullptr;
        graphs::Type_t Type = nullptr;
        char const * szName = "";   // for messages

        bool Accepts(Serializer_c const & Found) const;
    };

    Serializer_c(String_T<NAME_SIZE> const & sClassName, graphs::Convert_t fnConvert);

    /// Returns whether a body must make its object: it loads one that is not static.
    static bool MustMake(Serializeable_c const & archive, void * const & pObject);

    static void WriteTyped(
        Serializeable_c & archive, void * pObject, Serializer_c * pSerializer, Expected_s const & Expected);
    static void * ReadTyped(Serializeable_c & archive, Expected_s const & Expected);
    static Serializer_c const * FindClass(std::uint16_t iClass);

    static int ReadRecord(Serializeable_c & archive, void *& pObject, Expected_s const & Expected);
    static bool ReadObject(Serializeable_c & archive, int iPointer, void *& pObject, Expected_s const & Expected);
    static bool ReadIdentifier(Serializeable_c & archive, int & iPointer);
    static Serializer_c * ReadClass(Serializeable_c & archive, int iPointer, Expected_s const & Expected);
    static void Store(int iPointer, void const * pPointer, std::uint16_t iClass);
    static void Register(Serializeable_c & archive, void const * pPointer, std::uint16_t iClass);
    static void TransferStaticPointer(Serializeable_c & archive, RegisteredStaticPointer_t & Entry, int iPointer);
    static void WriteStaticPointers(Serializeable_c & archive);
    static void ReadStaticPointers(Serializeable_c & archive);
    static bool ReadStaticCount(Serializeable_c & archive, int & nRegisteredStaticPointers);
    bool WriteRecord(Serializeable_c & archive, void *& pObject);
    bool RunBody(Serializeable_c & archive, void *& pObject);
    ZQ_COLD bool RunBodyOnFreshStack(Serializeable_c & archive, void *& pObject);

    graphs::Convert_t m_fnConvert;   // of a Serializer_T, or null
    std::uint16_t m_iClass;          // number of the class, the same for all serializers of a name

    static OpenRecord_s * s_pOpen;     // innermost object that is being loaded
    static std::uint16_t s_nClasses;   // numbers assigned to classes
};

/// Serializer of a class T, by which its objects take part in graphs. It has one instance, which is static. The member
/// or the function `Serialize` of T (cserialize.h) transfers the fields. BASES are the bases of T whose pointers may
/// lead to objects of T.
///
/// Requires of a T that has virtual functions and is not final:
/// - T has a public member `virtual Serializer_c & GetSerializer() const`, which returns the instance.
/// - Each class that derives from T overrides that member.
/// - Each class that derives from T has a Serializer_T of its own.
template <typename T, typename... BASES>
class Serializer_T : public Serializer_c
{
public:
    /// Registers the class under a name that archives store, cut at 31 characters.
    explicit Serializer_T(String_T<NAME_SIZE> const & sClassName);
    ~Serializer_T();

    /// Registers a static object, whose contents each pass with static objects stores or loads first. Requires what
    /// RegisterStaticPointer does.
    void RegisterStatic(T & Object) { RegisterSerializedStaticPointer(&Object, m_sClassName); }

    /// Registers a T that is a part of another object. Requires that the other object's Serialize calls it, before any
    /// pointer to the part is serialized, and that the part does not lie at the address of the other object, as a first
    /// member can. That address has the other object's class, so a pointer to the part asserts.
    void RegisterPart(Serializeable_c & archive, T & Part) { RegisterOwnPointer(archive, &Part); }

protected:
    /// Makes and returns an object for a load to fill. A null result fails the archive. The caller of the load owns the
    /// object, also if the load fails. A subclass can keep a list of the objects.
    virtual T * Make() { return ZQ_NEW T; }

    void SerializeObject(Serializeable_c & archive, void *& pObject) override;

private:
    static void * Convert(void * pFrom, graphs::Type_t Type, graphs::Way_e eWay);
    template <typename TYPE>
    static void ConvertFor(void * pFrom, graphs::Type_t Type, graphs::Way_e eWay, void *& pFound);
};

/// Stores or loads a pointer to an object of a graph. Serialize of the archive calls it.
template <typename T>
requires std::is_class_v<T>
void Serialize(Serializeable_c & archive, T *& pObject)
{
    Serializer_c::SerializePointer(archive, pObject);
}

/// Removes all serializers. Afterwards no object can be loaded, and static objects have no contents.
ZQ_API void SerializerListFree();

/// Module of the serializers. It depends on ModuleFile_c. It resets the table at start. At shutdown it removes the
/// static objects and the serializers. Static serializers register when their module is loaded, so a process serializes
/// only until the first shutdown.
class ZQ_API ModuleSerialize_c : public Module_c
{
public:
    constexpr ModuleSerialize_c()
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
