// chash.h: open-addressing tables of a fixed size that never allocate.
//
// StringHash_T maps names to objects. IndexHash_T maps 32-bit keys to values that the slot holds. The chain of slots
// that a key may occupy is fixed: it starts at the key's hash and continues in a fixed step, for two thirds of the
// slots. Many file names share a chain. So a StringHash_T also has an index of its entries. With the index, a lookup
// costs a hash and one comparison for a chain of any length. It walks the chain only if a name may be in the table
// twice (Add).
//
// Ownership: a StringHash_T owns neither objects nor names. Requires that both outlive their entries.
// Threads: no lock. Requires that the caller locks a table that several threads use, unless none of them changes it.
// Cost: no allocation. A table in static storage is constant-initialised: it costs nothing at load, and is usable
// before any constructor runs.
// Failure: Add returns HASH_PRESENT or HASH_FULL and changes nothing. A search returns null, a deletion false.
//
//     struct Item_s { String_T<32> sName; } Sword{ "sword" };
//     static StringHash_T<Item_s, 32, 256, 3> s_Items;
//     s_Items.Add(&Sword, &Sword.sName);                     // HASH_ADDED
//     Item_s * const pFound = s_Items.FindByName("sword");   // &Sword
//     s_Items.Reset();
#pragma once

#include "zqcore/cstring.h"

#include <bit>
#include <cstring>

/// Results of Add. The table is unchanged unless the result is HASH_ADDED.
enum HashAdd_e : int
{
    HASH_ADDED = 0,
    HASH_PRESENT = 1,   // the key is in the table already
    HASH_FULL = 2       // no slot of the chain is free
};

/// Index of slots by the second hash of their names: open addressing with linear probing over ENTRIES words. It
/// serves StringHash_T.
template <int ENTRIES>
class NameIndex_T
{
public:
    /// Add and remove a slot under the hash of its name. Insert requires that the index is not crowded.
    void Insert(std::uint32_t iHash, int iSlot);
    void Remove(std::uint32_t iHash, int iSlot);

    /// Returns the first slot that fnMatches accepts, or -1. Calls it for slots of other hashes too, because the words
    /// hold only a part of a hash.
    template <typename MATCHES>
    int Find(std::uint32_t iHash, MATCHES const & fnMatches) const;

    /// Prefetches the word that Find reads first.
    void Prefetch(std::uint32_t iHash) const { ZQ_PREFETCH(&m_dEntries[iHash & MASK]); }

    /// Returns whether the used and removed words are so many that the index must be rebuilt.
    bool IsCrowded() const { return m_nUsed >= ENTRIES / 4 * 3; }

    /// Removes all slots.
    void Reset();

private:
    static constexpr std::uint32_t FREE = 0;             // a word that is neither used nor removed
    static constexpr std::uint32_t SLOT_MASK = 0xFFFF;   // the low half is the slot plus 1; 0 in a removed word
    static constexpr std::uint32_t MASK = ENTRIES - 1;
    static_assert(std::has_single_bit(static_cast<unsigned>(ENTRIES)));
    static_assert(static_cast<unsigned>(ENTRIES) / 2 < SLOT_MASK);

    /// Returns the high half of a word. It is not 0, so that a removed word is not free.
    static std::uint32_t Tag(std::uint32_t iHash) { return (iHash & ~SLOT_MASK) | (SLOT_MASK + 1); }

    std::uint32_t m_dEntries[ENTRIES] = {};
    int m_nUsed = 0;   // words that are not free
};

/// Table of objects of type T by names of at most KEYLEN - 1 characters, exact case. SIZE is a power of 2, at most
/// 32,768. STEP, an odd number, is the distance from one slot of a chain to the next.
template <typename T, int KEYLEN, int SIZE, int STEP>
class StringHash_T
{
    static_assert(std::has_single_bit(static_cast<unsigned>(SIZE)), "the index is masked");

public:
    using Key_t = String_T<KEYLEN>;   // a name

    /// One cache line. A key that fits is copied into it, so that a lookup reads no object.
    struct alignas(ZQ_CACHE_LINE) Slot_s
    {
        static constexpr int KEY_ROOM = ZQ_CACHE_LINE - 2 * static_cast<int>(sizeof(void *)) - 9;   // bytes of szKey

        T * pObject = nullptr;   // null in a free or deleted slot

        /// Name of the entry, usually a part of the object. Requires that it stays unchanged while the entry exists.
        Key_t const * pName = nullptr;

        std::uint32_t iHash = 0;        // hash of the name that selects the chain
        std::uint32_t iIndexHash = 0;   // hash of the name that finds the slot in the table's index
        bool bDeleted = false;          // whether its entry was removed
        char szKey[KEY_ROOM] = {};      // a copy of the key if it fits
    };

    /// A name to add in two steps, for many names in a row: Prepare prefetches what Add reads, while the caller does
    /// other work.
    struct Entry_s
    {
        T * pObject;                // object to add
        Key_t const * pName;        // its name
        std::size_t nLength;        // characters of the name
        std::uint32_t iHash;        // hash as in Slot_s
        std::uint32_t iIndexHash;   // hash as in Slot_s
    };

    /// Forward iterator over the objects in slot order. While the caller works on one object, the processor loads the
    /// cache lines of the next one. Requires that the entry of the next object is not deleted. That of the present one
    /// may be.
    class ObjectIterator_c
    {
    public:
        using value_type = T;                     // as in standard iterators
        using difference_type = std::ptrdiff_t;   // as in standard iterators

        ObjectIterator_c() = default;

        /// Makes an iterator at an occupied slot, or at the end if pSlot is null.
        ObjectIterator_c(StringHash_T & Table, Slot_s * pSlot);

        /// Return the present object. Require that the iterator is not at the end, and that the entry still exists.
        T & operator*() const { return *m_pSlot->pObject; }
        T * operator->() const { return m_pSlot->pObject; }

        /// Step to the next object, as a forward iterator does.
        ObjectIterator_c & operator++();
        ObjectIterator_c operator++(int)
        {
            ObjectIterator_c const Present = *this;
            ++*this;
            return Present;
        }

        /// Returns whether both are at the same slot, or both at the end.
        bool operator==(ObjectIterator_c const & Other) const { return m_pSlot == Other.m_pSlot; }

    private:
        void FindNext();

        StringHash_T * m_pTable = nullptr;
        Slot_s * m_pSlot = nullptr;   // null at the end
        Slot_s * m_pNext = nullptr;   // the next occupied slot, or null
    };

    static constexpr int iMask = SIZE - 1;            // bits of a hash that select the first slot of its chain
    static constexpr int iMaxProbes = SIZE * 2 / 3;   // slots of a chain

    constexpr StringHash_T() = default;

    /// Adds an object under a name. Returns a HashAdd_e. Uses the first deleted slot of the chain, even if the same
    /// name lies further along it: the name is then in the table twice. Requires that the object is not null.
    int Add(T * pObject, Key_t const * pName) { return Add(Prepare(pObject, pName, std::strlen(*pName))); }

    /// Prefetches what Add reads, and returns the entry of a name of nLength characters.
    Entry_s Prepare(T * pObject, Key_t const * pName, std::size_t nLength) const;

    /// Adds the entry. Returns a HashAdd_e.
    int Add(Entry_s const & Entry);

    /// Returns the object of a name, or null.
    T * FindByName(char const * szName) const { return FindByName(szName, std::strlen(szName)); }

    /// Returns the object of a name of nLength characters and a terminator, or null.
    T * FindByName(char const * szName, std::size_t nLength) const;

    /// Removes the entry of a name. If the name is in the table twice, removes the earlier entry of the chain, and the
    /// other one stays. Returns false if there is none.
    bool DeleteByName(char const * szName);

    /// Removes the entry of a slot, if it has one. Next may continue from that slot.
    void Delete(Slot_s * pSlot);

    /// Return the first and the next occupied slot, in slot order. Return null after the last one.
    Slot_s * First() { return FirstFrom(m_dSlots); }
    Slot_s * Next(Slot_s * pSlot) { return FirstFrom(pSlot + 1); }

    /// Return the start and the end of a walk over the objects, for range-for.
    ObjectIterator_c begin() { return { *this, First() }; }
    ObjectIterator_c end() { return { *this, nullptr }; }

    /// Removes all entries.
    void Reset();

private:
    Slot_s * Find(char const * szName, std::size_t nLength) const;
    Slot_s * FindAlongChain(char const * szName) const;
    Slot_s * FirstFrom(Slot_s * pSlot);
    Slot_s * FindByHash(char const * szName, std::size_t nLength, std::uint32_t iIndexHash) const;
    void Store(Slot_s & Slot, Entry_s const & Entry);
    void RebuildIndex();

    bool IsTaken(int iSlot) const { return (m_dTaken[iSlot / 32] >> (iSlot % 32)) & 1; }
    static bool HasKey(Slot_s const & Slot, char const * szName, std::size_t nLength);

    Slot_s m_dSlots[SIZE] = {};
    std::uint32_t m_dTaken[SIZE / 32 + 1] = {};   // a bit for each slot that has an object
    NameIndex_T<SIZE * 2> m_Index;
    std::uint16_t m_dSkip[SIZE] = {};   // steps from here over occupied slots only; 0: not known
    int m_nHoles = 0;                   // slots of deleted entries; m_dSkip may be wrong while there are any
    bool m_bUsed = false;               // whether an entry was added since the last Reset

    /// Whether a key may be in the table twice. The earlier slot of the chain then hides the other.
    bool m_bTwins = false;
};

/// Hash of an IndexHash_T that uses the low bits of the key.
struct IndexHashLowBits_c
{
    /// Returns the key.
    static constexpr std::uint32_t HashOf(std::uint32_t iKey) { return iKey; }
};

/// Table of values by 32-bit keys. SIZE is a power of 2. STEP, an odd number, is the distance from one slot of a chain
/// to the next. HASH::HashOf makes the hash of a key. Entries are not removed one by one.
template <typename V, int SIZE, int STEP, typename HASH = IndexHashLowBits_c>
class IndexHash_T
{
    static_assert(std::has_single_bit(static_cast<unsigned>(SIZE)), "the index is masked");

public:
    static constexpr int iMask = SIZE - 1;            // bits of a hash that select the first slot of its chain
    static constexpr int iMaxProbes = SIZE * 2 / 3;   // slots of a chain

    constexpr IndexHash_T() = default;

    /// Adds a copy of a value under a key. Returns a HashAdd_e.
    int Add(V const & Value, std::uint32_t iKey);

    /// Returns a pointer to the value of a key, or null.
    V * Find(std::uint32_t iKey);

    /// Returns the number of entries.
    int GetCount() const { return m_nEntries; }

    /// Removes all entries. Touches no slot of an empty table.
    void Reset();

private:
    struct Slot_s
    {
        V Value = {};
        std::uint32_t iKey = 0;
        bool bDeleted = false;
        bool bUsed = false;
    };

    Slot_s m_dSlots[SIZE] = {};
    int m_nEntries = 0;
    int m_nDeleted = 0;   // deleted entries: always 0, because entries are not removed one by one
};

/// Return the hash of a name, of nLength characters or terminated: each character is sign-extended, rotated left by its
/// position, and XORed.
ZQ_API std::uint32_t StringHashOf(char const * szName, std::size_t nLength);
inline std::uint32_t StringHashOf(char const * szName)
{
    return StringHashOf(szName, std::strlen(szName));
}

/// Returns a second hash of a name of nLength characters for the index. All 32 bits are well distributed.
ZQ_API std::uint32_t NameIndexHash(char const * szName, std::size_t nLength);

#include "zqcore/chash.inl"
