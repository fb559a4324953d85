#include "zqcore/cserializer_internal.h"

#include "zqcore/cdebug_internal.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/chash.h"
#include "zqcore/clink.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/ctexterror.h"

#include "platform/stack.h"

#include <algorithm>
#include <cstring>
#include <iterator>

constinit Link_T<Serializer_c *> * Serializer_c::pSerializerList = nullptr;
PointerTable_c const Serializer_c::dPointers;
constinit SortedArray_T<Serializer_c::RegisteredStaticPointer_t,
    ArrayTraits_T<Serializer_c::RegisteredStaticPointer_t, 1024, 0>>
    Serializer_c::dRegisteredStaticPointers;
constinit Serializer_c::OpenRecord_s * Serializer_c::s_pOpen = nullptr;
constinit std::uint16_t Serializer_c::s_nClasses = 0;

namespace
{
    // Classes of slots. Other numbers belong to serializers.
    constexpr std::uint16_t CLASS_NONE = 0;        // registered without a class
    constexpr std::uint16_t CLASS_OPEN = 0xFFFF;   // the object's body is running

    constexpr std::size_t FRESH_STACK = 8 * 1024 * 1024;   // bytes
    constexpr int PROBE_STEP = 0xCD;                       // odd, so that every slot is visited

    // Latest results of searches of the list: of the last name, and by hash of the name and by number of the class.
    // Each is null or in the list.
    struct Found_s
    {
        Serializer_c * pLast;
        Serializer_c * dOfName[256];
        Serializer_c * dOfClass[256];
    };
    constinit Found_s g_Found = {};

    void const * FreeSlot()
    {
        return reinterpret_cast<void const *>(Serializer_c::HASH_NO_ELEMENT);
    }

    // Table of the pass's addresses. Its pages are prepared at their first use. Zeroed memory is an empty table.
    struct Table_s
    {
        static constexpr int SIZE = Serializer_c::HASH_SIZE;
        static constexpr int PAGE_SLOTS = 512;

        bool bUsed;                       // whether any page is ready
        bool dReady[SIZE / PAGE_SLOTS];   // pages that hold this pass's contents
        std::uint16_t dClasses[SIZE];     // of the slots' objects (Serializer_c::m_iClass)
        void const * dSlots[SIZE];

        void const * Get(int iSlot) const { return dReady[iSlot / PAGE_SLOTS] ? dSlots[iSlot] : FreeSlot(); }

        // Return the place of a slot's address, or that of its class, for the caller to write. Prepare the slot's page.
        void const *& UseSlot(int iSlot)
        {
            if (!dReady[iSlot / PAGE_SLOTS]) [[unlikely]]
            {
                MakeReady(iSlot / PAGE_SLOTS);
            }
            return dSlots[iSlot];
        }

        std::uint16_t & UseClass(int iSlot)
        {
            UseSlot(iSlot);
            return dClasses[iSlot];
        }

        ZQ_COLD void MakeReady(int iPage)
        {
            std::fill_n(dSlots + iPage * PAGE_SLOTS, PAGE_SLOTS, FreeSlot());
            std::fill_n(dClasses + iPage * PAGE_SLOTS, PAGE_SLOTS, CLASS_NONE);
            dReady[iPage] = true;
            bUsed = true;
        }

        void Reset()
        {
            if (bUsed)
            {
                std::fill(std::begin(dReady), std::end(dReady), false);
                bUsed = false;
            }
        }
    };
    static_assert(std::is_trivially_default_constructible_v<Table_s>, "no constructor touches the table");
    Table_s g_Table;

    // Stores the label, or compares the file's with it.
    void TransferLabel(Serializeable_c & archive, SerializerLabel_t const & Label)
    {
        archive.Label(Label.szName, Label.dwLabel);
    }

    constexpr char IS_OWN[] = "dPointers[iPointer] is of class m_sClassName";   // text of assertions

    // Returns whether a slot in use may hold an object of the class. A slot that was registered without a class may
    // hold any.
    bool IsOfClass(int iPointer, std::uint16_t iClass)
    {
        std::uint16_t const iOfSlot = g_Table.dClasses[iPointer];
        return iOfSlot == iClass || iOfSlot == CLASS_NONE;
    }

    [[noreturn]] ZQ_COLD void AbortOfFixup(Serializeable_c const & archive)
    {
        Abort("Serializer_c: Can't fixup pointer in '%s' file", TextForLog(archive.GetFileName()).GetBuffer());
    }
}

// Record of an object that is being loaded. It lives while the object's body runs.
struct Serializer_c::OpenRecord_s
{
    int iPointer;
    std::uint16_t iClass;
    void *& pObject;
    OpenRecord_s * pOuter;

    OpenRecord_s(int iSlot, Serializer_c const & Serializer, void *& pTarget)
        : iPointer(iSlot)
        , iClass(Serializer.m_iClass)
        , pObject(pTarget)
        , pOuter(s_pOpen)
    {
        g_Table.UseClass(iSlot) = CLASS_OPEN;
        s_pOpen = this;
    }
    ~OpenRecord_s() { s_pOpen = pOuter; }
    OpenRecord_s(OpenRecord_s const &) = delete;
    OpenRecord_s & operator=(OpenRecord_s const &) = delete;
};

void const * PointerTable_c::operator[](int iSlot) const
{
    bool const bInside = iSlot >= 0 && iSlot < SIZE;
    ZQ_ASSERT_TEXT(bInside, "iSlot >= 0 && iSlot < HASH_SIZE");
    return bInside ? g_Table.Get(iSlot) : FreeSlot();
}

Serializer_c::Serializer_c(String_T<NAME_SIZE> const & sClassName, graphs::Convert_t fnConvert)
    : m_sClassName(sClassName)
    , m_fnConvert(fnConvert)
{
    Serializer_c const * const pNamesake = FindSerializer(m_sClassName);
    ZQ_ASSERT(pNamesake || s_nClasses < CLASS_OPEN - 1);
    m_iClass = pNamesake ? pNamesake->m_iClass : ++s_nClasses;

    MemCategoryScope_c const Category(mem::Noise);
    pSerializerList = (ZQ_NEW Link_T<Serializer_c *>(this))->Link(pSerializerList);
    g_Found = {};
    ResetCache();
}

Serializer_c::~Serializer_c()
{
    for (Link_T<Serializer_c *> * pLink = pSerializerList; pLink; pLink = pLink->pNext)
    {
        if (pLink->Get() == this)
        {
            pSerializerList = pLink->Unlink(pSerializerList);
            delete pLink;
            break;
        }
    }
    g_Found = {};
}

Serializer_c * Serializer_c::FindSerializer(String_T<NAME_SIZE> const & sClassName)
{
    if (g_Found.pLast && g_Found.pLast->m_sClassName == sClassName)
    {
        return g_Found.pLast;
    }
    std::uint32_t const iHash = NameIndexHash(sClassName, std::strlen(sClassName));
    Serializer_c *& pFound = g_Found.dOfName[iHash % std::size(g_Found.dOfName)];
    if (pFound && pFound->m_sClassName == sClassName)
    {
        return g_Found.pLast = pFound;
    }
    for (Link_T<Serializer_c *> * pLink = pSerializerList; pLink; pLink = pLink->pNext)
    {
        if (pLink->Get()->m_sClassName == sClassName)
        {
            return g_Found.pLast = pFound = pLink->Get();
        }
    }
    return nullptr;
}

String_T<Serializer_c::NAME_SIZE> Serializer_c::LoadName(Serializeable_c & archive)
{
    String_T<NAME_SIZE> sClassName;
    archive.SerializeString(sClassName);
    return sClassName;
}

void Serializer_c::ResetCache()
{
    g_Table.Reset();
    s_pOpen = nullptr;
}

int Serializer_c::HashFunc(void const * pPointer)
{
    return static_cast<int>((reinterpret_cast<std::uintptr_t>(pPointer) >> 3) & (HASH_SIZE - 1));
}

bool Serializer_c::AddVoidToCache(void const * pPointer, int * pIndex)
{
    if (!pPointer)
    {
        *pIndex = -1;
        return false;
    }
    int iSlot = HashFunc(pPointer);
    for (int nProbes = 0; nProbes < HASH_SIZE; ++nProbes)
    {
        void const *& pSlot = g_Table.UseSlot(iSlot);
        bool const bNew = pSlot == FreeSlot();
        if (bNew || pSlot == pPointer)
        {
            pSlot = pPointer;
            *pIndex = iSlot;
            return bNew;
        }
        iSlot = (iSlot + PROBE_STEP) & (HASH_SIZE - 1);
    }
    Abort("Serializer_c Hash overflow");
}

bool Serializer_c::IsInCache(int iPointer)
{
    ZQ_ASSERT_TEXT(SerializerIsIdentifier(iPointer), "IsIdentifier(iPointer)");
    return iPointer == -1 || (SerializerIsIdentifier(iPointer) && g_Table.Get(iPointer) != FreeSlot());
}

void Serializer_c::SetCacheData(int iPointer, void const * pPointer)
{
    ZQ_ASSERT_TEXT(SerializerIsIdentifier(iPointer), "IsIdentifier(iPointer)");
    if (SerializerIsIdentifier(iPointer))
    {
        Store(iPointer, pPointer, CLASS_NONE);
    }
}

void Serializer_c::Store(int iPointer, void const * pPointer, std::uint16_t iClass)
{
    if (iPointer != -1)
    {
        g_Table.UseSlot(iPointer) = pPointer;
        g_Table.dClasses[iPointer] = iClass;
    }
}

// Loads an identifier. Returns false, with the archive failed, if there is no valid one.
bool Serializer_c::ReadIdentifier(Serializeable_c & archive, int & iPointer)
{
    archive.Serialize(iPointer);
    if (archive.IsFailed())
    {
        return false;
    }
    bool const bValid = SerializerIsIdentifier(iPointer);
    ZQ_ASSERT_ESCAPED(bValid || archive.IsChecked(), "iPointer >= -1 && iPointer < HASH_SIZE",
        "identifier %d in '%s' file", iPointer, archive.GetFileName());
    if (!bValid)
    {
        archive.Fail("identifier %d of an object", iPointer);
    }
    return bValid;
}

// Runs the body. Returns false, with the archive failed, if there is no stack for it.
bool Serializer_c::RunBody(Serializeable_c & archive, void *& pObject)
{
    if (plat::StackLeft() < BODY_STACK) [[unlikely]]
    {
        return RunBodyOnFreshStack(archive, pObject);
    }
    SerializeObject(archive, pObject);
    return true;
}

bool Serializer_c::RunBodyOnFreshStack(Serializeable_c & archive, void *& pObject)
{
    struct Call_s
    {
        Serializer_c & Serializer;
        Serializeable_c & archive;
        void *& pObject;
    } Call{ *this, archive, pObject };
    auto const fnRun = [](void * pArgument)
    {
        Call_s & This = *static_cast<Call_s *>(pArgument);
        This.Serializer.SerializeObject(This.archive, This.pObject);
    };
    bool const bRun = plat::StackCallOnFresh(FRESH_STACK, fnRun, &Call);
    if (!bRun)
    {
        LogWinLastError("Serializer_c: no stack for a deeper object");
        archive.Fail();
    }
    return bRun;
}

void Serializer_c::WritePointer(Serializeable_c & archive, void *& pObject)
{
    WriteRecord(archive, pObject);
}

// Stores a pointer record. Returns false if the pass has seen the object under another class.
bool Serializer_c::WriteRecord(Serializeable_c & archive, void *& pObject)
{
    if (archive.IsFailed())
    {
        return true;
    }
    int iPointer;
    bool const bNew = AddVoidToCache(pObject, &iPointer);
    archive.Serialize(iPointer);
    if (!bNew)
    {
        TransferLabel(archive, SERIALIZER_PLAIN);
        return iPointer == -1 || IsOfClass(iPointer, m_iClass);
    }
    g_Table.dClasses[iPointer] = m_iClass;
    TransferLabel(archive, SERIALIZER_BEGIN);
    archive.SerializeString(m_sClassName);
    RunBody(archive, pObject);
    TransferLabel(archive, SERIALIZER_END);
    return true;
}

bool Serializer_c::Expected_s::Accepts(Serializer_c const & Found) const
{
    return pOwn ? Found.m_iClass == pOwn->m_iClass
                : !Type || (Found.m_fnConvert && Found.m_fnConvert(nullptr, Type, graphs::Way_e::Ask));
}

bool Serializer_c::MustMake(Serializeable_c const & archive, void * const & pObject)
{
    return archive.IsReading() && s_pOpen && &s_pOpen->pObject == &pObject;
}

void Serializer_c::WriteTyped(
    Serializeable_c & archive, void * pObject, Serializer_c * pSerializer, Expected_s const & Expected)
{
    bool const bKnown = !pObject || (pSerializer && Expected.Accepts(*pSerializer));
    ZQ_ASSERT_ESCAPED(bKnown, "a Serializer_T has this class and names this base", "%s, object of class '%s'",
        Expected.szName, pSerializer ? pSerializer->m_sClassName.CStr() : "");
    if (!bKnown)
    {
        return archive.Fail();
    }
    if (pObject)
    {
        pObject = pSerializer->m_fnConvert(pObject, Expected.Type, graphs::Way_e::ToObject);
        bool const bOwn = pSerializer->WriteRecord(archive, pObject);
        ZQ_ASSERT_ESCAPED(
            bOwn, IS_OWN, "'%s' expected for '%s' file", pSerializer->m_sClassName.CStr(), archive.GetFileName());
        return;
    }
    int iNull = -1;
    archive.Serialize(iNull);
    TransferLabel(archive, SERIALIZER_PLAIN);
}

void * Serializer_c::ReadTyped(Serializeable_c & archive, Expected_s const & Expected)
{
    void * pObject = nullptr;
    int const iPointer = ReadRecord(archive, pObject, Expected);
    std::uint16_t const iClass = iPointer == -1 ? CLASS_NONE : g_Table.dClasses[iPointer];
    if (iClass == CLASS_NONE)
    {
        return pObject;
    }
    Serializer_c const * const pClass = FindClass(iClass);
    void * const pFound =
        pClass && pClass->m_fnConvert ? pClass->m_fnConvert(pObject, Expected.Type, graphs::Way_e::ToType) : nullptr;
    ZQ_ASSERT_ESCAPED(pFound || archive.IsFailed() || archive.IsChecked(), IS_OWN, "%s, class '%s' in '%s' file",
        Expected.szName, pClass ? pClass->m_sClassName.CStr() : "", archive.GetFileName());
    if (!pFound)
    {
        archive.Fail("a pointer to an object of class '%s'", pClass ? pClass->m_sClassName.CStr() : "");
    }
    return pFound;
}

// Returns the latest serializer of a class by its number, or null.
Serializer_c const * Serializer_c::FindClass(std::uint16_t iClass)
{
    Serializer_c *& pFound = g_Found.dOfClass[iClass % std::size(g_Found.dOfClass)];
    if (pFound && pFound->m_iClass == iClass)
    {
        return pFound;
    }
    for (Link_T<Serializer_c *> * pLink = pSerializerList; pLink; pLink = pLink->pNext)
    {
        if (pLink->Get()->m_iClass == iClass)
        {
            return pFound = pLink->Get();
        }
    }
    return nullptr;
}

void Serializer_c::ReadPointer(Serializeable_c & archive, void *& pObject)
{
    ReadRecord(archive, pObject, Expected_s());
}

void Serializer_c::ReadOwnPointer(Serializeable_c & archive, void *& pObject)
{
    int const iPointer = ReadRecord(archive, pObject, Expected_s{ this, nullptr, m_sClassName });
    if (archive.IsFailed() || iPointer == -1)
    {
        return;
    }
    bool const bOwn = IsOfClass(iPointer, m_iClass);
    ZQ_ASSERT_ESCAPED(
        bOwn || archive.IsChecked(), IS_OWN, "'%s' expected in '%s' file", m_sClassName.CStr(), archive.GetFileName());
    if (!bOwn)
    {
        archive.Fail("a pointer to an object that is not of class '%s'", m_sClassName.CStr());
        pObject = nullptr;
    }
}

// Loads a pointer record and returns its identifier. Returns -1 for a null pointer and on failure. If the archive
// fails in an object's body or after it, still returns the identifier.
int Serializer_c::ReadRecord(Serializeable_c & archive, void *& pObject, Expected_s const & Expected)
{
    int iPointer = -1;
    bool bLoaded = ReadIdentifier(archive, iPointer);
    if (bLoaded && IsInCache(iPointer))
    {
        TransferLabel(archive, SERIALIZER_PLAIN);
        bLoaded = !archive.IsFailed();
        Reconstruct(bLoaded ? iPointer : -1, pObject);
    }
    else if (!bLoaded || !ReadObject(archive, iPointer, pObject, Expected))
    {
        bLoaded = false;
        pObject = nullptr;
    }
    return bLoaded ? iPointer : -1;
}

// Loads a first reference after its identifier. Returns false, with the archive failed, if ReadClass finds no class or
// there is no stack for the body.
bool Serializer_c::ReadObject(Serializeable_c & archive, int iPointer, void *& pObject, Expected_s const & Expected)
{
    TransferLabel(archive, SERIALIZER_BEGIN);
    Serializer_c * const pSerializer = ReadClass(archive, iPointer, Expected);
    if (!pSerializer)
    {
        return false;
    }
    {
        OpenRecord_s const Open(iPointer, *pSerializer, pObject);
        if (!pSerializer->RunBody(archive, pObject))
        {
            return false;
        }
    }
    Store(iPointer, pObject, pSerializer->m_iClass);
    TransferLabel(archive, SERIALIZER_END);
    return true;
}

// Loads a class name and returns its serializer. Returns null, with the archive failed, in these cases, of which the
// last three assert unless a check runs:
// - the name can't be read.
// - no serializer has the name.
// - the class is none of the expected ones.
// - the object is inside itself.
Serializer_c * Serializer_c::ReadClass(Serializeable_c & archive, int iPointer, Expected_s const & Expected)
{
    String_T<NAME_SIZE> const sClassName = LoadName(archive);
    if (archive.IsFailed())
    {
        return nullptr;
    }
    Serializer_c * const pSerializer = FindSerializer(sClassName);
    char const * const szClass = sClassName;
    bool const bSilent = archive.IsChecked();
    ZQ_ASSERT_ESCAPED(pSerializer || bSilent, "pSerializer", "class '%s' in '%s' file", szClass, archive.GetFileName());
    bool const bExpected = !pSerializer || Expected.Accepts(*pSerializer);
    ZQ_ASSERT_ESCAPED(bExpected || bSilent, "sClassName == m_sClassName", "class '%s' for '%s' in '%s' file", szClass,
        Expected.szName, archive.GetFileName());
    bool const bFirst = g_Table.UseClass(iPointer) != CLASS_OPEN;
    ZQ_ASSERT_ESCAPED(bFirst || bSilent, "object is not inside itself", "identifier %d in '%s' file", iPointer,
        archive.GetFileName());
    if (!pSerializer || !bExpected || !bFirst)
    {
        archive.Fail("an object of class '%s'%s", szClass, !pSerializer ? ", which has no serializer" : "");
        return nullptr;
    }
    return pSerializer;
}

void Serializer_c::RegisterPointer(Serializeable_c & archive, void const * pPointer)
{
    Register(archive, pPointer, CLASS_NONE);
}

void Serializer_c::RegisterOwnPointer(Serializeable_c & archive, void const * pPointer)
{
    Register(archive, pPointer, m_iClass);
}

// Registers an address under a class. An object that registers itself has its own class, even if the call names another
// one.
void Serializer_c::Register(Serializeable_c & archive, void const * pPointer, std::uint16_t iClass)
{
    TransferLabel(archive, SERIALIZER_REGISTERED);
    if (archive.IsFailed())
    {
        return;
    }
    int iPointer = -1;
    if (!archive.IsReading())
    {
        if (AddVoidToCache(pPointer, &iPointer))
        {
            g_Table.dClasses[iPointer] = iClass;
        }
        archive.Serialize(iPointer);
    }
    else if (ReadIdentifier(archive, iPointer) && !IsInCache(iPointer))
    {
        bool const bItself = s_pOpen && s_pOpen->iPointer == iPointer && s_pOpen->pObject == pPointer;
        Store(iPointer, pPointer, bItself ? s_pOpen->iClass : iClass);
    }
}

void Serializer_c::FixupVoidPointer(Serializeable_c & archive, void const *& pPointer)
{
    int iPointer = -1;
    if (archive.IsReading())
    {
        bool bRead = ReadIdentifier(archive, iPointer);
        if (bRead && !IsInCache(iPointer))
        {
            if (!archive.IsChecked())
            {
                AbortOfFixup(archive);
            }
            archive.Fail("identifier %d of an object that does not come before", iPointer);
            bRead = false;
        }
        Reconstruct(bRead ? iPointer : -1, pPointer);
    }
    else if (!archive.IsFailed())
    {
        if (AddVoidToCache(pPointer, &iPointer))
        {
            AbortOfFixup(archive);
        }
        archive.Serialize(iPointer);
    }
}

void Serializer_c::RegisterStaticPointer(void * pPointer)
{
    RegisterSerializedStaticPointer(pPointer, "");
}

void Serializer_c::RegisterSerializedStaticPointer(void * pPointer, String_T<NAME_SIZE> const & sClassName)
{
    int iPointer;
    if (AddVoidToCache(pPointer, &iPointer))
    {
        dRegisteredStaticPointers.Add({ pPointer, sClassName });
    }
}

void Serializer_c::StartSerialize(Serializeable_c & archive, bool bStaticPointers)
{
    TransferLabel(archive, SERIALIZER_PASS);
    ResetCache();
    if (bStaticPointers && !archive.IsFailed())
    {
        if (archive.IsReading())
        {
            ReadStaticPointers(archive);
        }
        else
        {
            WriteStaticPointers(archive);
        }
    }
}

// Enters a static object in the table under its identifier. Then runs the body of its class, if that class has a
// serializer.
void Serializer_c::TransferStaticPointer(Serializeable_c & archive, RegisteredStaticPointer_t & Entry, int iPointer)
{
    Serializer_c * const pSerializer = FindSerializer(Entry.sClassName);
    Store(iPointer, Entry.pPointer, pSerializer ? pSerializer->m_iClass : CLASS_NONE);
    if (pSerializer)
    {
        pSerializer->RunBody(archive, Entry.pPointer);
    }
}

void Serializer_c::WriteStaticPointers(Serializeable_c & archive)
{
    int nRegisteredStaticPointers = dRegisteredStaticPointers.GetLength();
    ZQ_ASSERT(nRegisteredStaticPointers < MAX_STATIC_POINTERS);
    if (nRegisteredStaticPointers >= MAX_STATIC_POINTERS)
    {
        return archive.Fail();
    }
    archive.Serialize(nRegisteredStaticPointers);
    for (int i = 0; i < nRegisteredStaticPointers && !archive.IsFailed(); ++i)
    {
        RegisteredStaticPointer_t Entry = dRegisteredStaticPointers[i];
        int iPointer;
        AddVoidToCache(Entry.pPointer, &iPointer);
        archive.Serialize(iPointer);
        TransferStaticPointer(archive, Entry, iPointer);
    }
}

void Serializer_c::ReadStaticPointers(Serializeable_c & archive)
{
    int nEntries = 0;
    if (!ReadStaticCount(archive, nEntries))
    {
        return;
    }
    for (int i = 0; i < nEntries && !archive.IsFailed(); ++i)
    {
        // A check leaves the list as it is, so the file may have more entries.
        bool const bRegistered = i < dRegisteredStaticPointers.GetLength();
        RegisteredStaticPointer_t Entry = bRegistered ? dRegisteredStaticPointers[i] : RegisteredStaticPointer_t{};
        int iPointer = -1;
        if (!ReadIdentifier(archive, iPointer))
        {
            return;
        }
        TransferStaticPointer(archive, Entry, iPointer);
    }
}

// Loads the number of static objects and, unless a check runs, changes the list to that length. Returns false, with the
// archive failed, if there is no valid one.
bool Serializer_c::ReadStaticCount(Serializeable_c & archive, int & nRegisteredStaticPointers)
{
    archive.Serialize(nRegisteredStaticPointers);
    if (archive.IsFailed())
    {
        return false;
    }
    if (nRegisteredStaticPointers != dRegisteredStaticPointers.GetLength() && !archive.IsChecked())
    {
        Log("Serializer_c: number of registered static pointers not match serialized");
    }
    bool const bValid = nRegisteredStaticPointers >= 0 && nRegisteredStaticPointers < MAX_STATIC_POINTERS;
    ZQ_ASSERT_TEXT(bValid || archive.IsChecked(),
        "nRegisteredStaticPointers >= 0 && nRegisteredStaticPointers < MAX_STATIC_POINTERS");
    if (!bValid)
    {
        archive.Fail("%d static objects", nRegisteredStaticPointers);
        return false;
    }
    if (archive.IsChecked())
    {
        return true;
    }
    while (dRegisteredStaticPointers.GetLength() > nRegisteredStaticPointers)
    {
        dRegisteredStaticPointers.Delete(dRegisteredStaticPointers.GetLength() - 1);
    }
    while (dRegisteredStaticPointers.GetLength() < nRegisteredStaticPointers)
    {
        dRegisteredStaticPointers.Add({});
    }
    return true;
}

void SerializerListFree()
{
    LinkFreeAll(Serializer_c::pSerializerList);
    Serializer_c::pSerializerList = nullptr;
    g_Found = {};
}

namespace
{
    constinit ModuleSerialize_c g_ModuleSerialize;
}

ModuleSerialize_c * ModuleSerialize_c::Get()
{
    return &g_ModuleSerialize;
}

Module_c ** ModuleSerialize_c::GetPrerequisites() const
{
    static constinit Module_c * s_dPrerequisites[2] = {};
    s_dPrerequisites[0] = ModuleFile_c::Get();   // at each call: a global constructor of a host may make the first one
    return s_dPrerequisites;
}

bool ModuleSerialize_c::Initialize()
{
    Serializer_c::ResetCache();
    return Module_c::Initialize();
}

void ModuleSerialize_c::Shutdown()
{
    Serializer_c::dRegisteredStaticPointers.Reset();
    SerializerListFree();
    Module_c::Shutdown();
}
