// chash.h: open-addressing tables of a fixed size that never allocate.
//
// StringHash_T maps names to objects, IndexHash_T 32-bit keys to values held in the slot. Neither owns what it points
// at, neither locks, and a table in static storage costs nothing at load. Constant initialisation makes a table usable
// before any constructor runs.
//
// The chain of slots that a key may stand in is given: from its hash by a fixed step, for two thirds of the slots. File
// names crowd these chains, so a StringHash_T also keeps an index over its entries, and a lookup costs a hash and one
// compare however long the chain is.
#pragma once

#include "zqcore/cstring.h"

#include <bit>
#include <cstring>

/// Results of Add.
enum HashAdd_e : int
{
    HASH_ADDED = 0,
    HASH_PRESENT = 1,   // the key is there already; the table is unchanged
    HASH_FULL = 2       // no usable slot was found
};

/// The hash of a name of nLength characters: each, widened with its sign, rotated left by its position and XORed.
ZQ_API std::uint32_t StringHashOf(char const * szName, std::size_t nLength);

inline std::uint32_t StringHashOf(char const * szName)
{
    return StringHashOf(szName, std::strlen(szName));
}

/// A second hash of a name of nLength characters, well spread over its 32 bits, for the index.
ZQ_API std::uint32_t NameIndexHash(char const * szName, std::size_t nLength);

/// Finds slots by the second hash of their names: open addressing with linear probing over ENTRIES words.
template <int ENTRIES>
class NameIndex_T
{
public:
    void Insert(std::uint32_t iHash, int iSlot);
    void Remove(std::uint32_t iHash, int iSlot);

    /// The first slot of that hash which Matches accepts, or -1.
    template <typename MATCHES>
    int Find(std::uint32_t iHash, MATCHES const & Matches) const;

    /// Asks for what Find reads first.
    void Prefetch(std::uint32_t iHash) const { ZQ_PREFETCH(&m_dEntries[iHash & MASK]); }

    /// Whether removed words fill so much that the index had better be built anew.
    bool IsCrowded() const { return m_nUsed > ENTRIES / 4 * 3; }

    void Reset();

private:
    static constexpr std::uint32_t FREE = 0;
    static constexpr std::uint32_t SLOT_MASK = 0xFFFF;   // the low half holds the slot plus 1; 0 in a removed word
    static constexpr std::uint32_t MASK = ENTRIES - 1;
    static_assert(std::has_single_bit(static_cast<unsigned>(ENTRIES)) && ENTRIES / 2 < 0xFFFF);

    static std::uint32_t Tag(std::uint32_t iHash) { return (iHash & ~SLOT_MASK) | 0x10000; }

    std::uint32_t m_dEntries[ENTRIES] = {};
    int m_nUsed = 0;   // words that are not free
};

template <typename T, int KEYLEN, int SIZE, int STEP>
class StringHash_T
{
    static_assert(std::has_single_bit(static_cast<unsigned>(SIZE)), "the index is masked");

public:
    using Key_t = String_T<KEYLEN>;

    /// One line of the processor's cache. A key that fits is copied into it, so that a lookup touches no object.
    struct alignas(64) Slot_s
    {
        static constexpr int KEY_ROOM = 64 - 2 * static_cast<int>(sizeof(void *)) - 9;

        T * pObject = nullptr;           // null in a free or deleted slot
        Key_t const * pName = nullptr;   // lives, unchanged, as long as the entry; usually a part of the object
        std::uint32_t iHash = 0;
        std::uint32_t iIndexHash = 0;
        bool bDeleted = false;
        char szKey[KEY_ROOM] = {};   // the key, if it is shorter
    };

    static constexpr int iMask = SIZE - 1;
    static constexpr int iMaxProbes = SIZE * 2 / 3;

    constexpr StringHash_T() = default;

    /// Adds an object under a name, which is kept as a pointer; a HashAdd_e. A deleted slot on the way is taken at
    /// once, so a key that stands further along the chain is not seen.
    int Add(T * pObject, Key_t const * pName) { return Add(Prepare(pObject, pName, std::strlen(*pName))); }

    /// Adding in two steps, for many names in turn: what Prepare asks of memory comes near while the caller works on.
    struct Entry_s
    {
        T * pObject;
        Key_t const * pName;
        std::size_t nLength;
        std::uint32_t iHash;
        std::uint32_t iIndexHash;
    };
    Entry_s Prepare(T * pObject, Key_t const * pName, std::size_t nLength) const;   // nLength is the name's
    int Add(Entry_s const & Entry);

    /// The object of that name, exact case, or null.
    T * FindByName(char const * szName) const { return FindByName(szName, std::strlen(szName)); }

    /// The same for a terminated name of known length.
    T * FindByName(char const * szName, std::size_t nLength) const;

    /// Takes the entry out; false if there is none. The object is not freed.
    bool DeleteByName(char const * szName);

    /// Takes out the entry of this slot; for use while iterating.
    void Delete(Slot_s * pSlot);

    /// The occupied slots in slot order; null past the last.
    Slot_s * First() { return FirstFrom(m_dSlots); }
    Slot_s * Next(Slot_s * pSlot) { return FirstFrom(pSlot + 1); }

    /// Frees every slot.
    void Reset();

private:
    Slot_s * Find(char const * szName, std::size_t nLength) const;
    Slot_s * FindAlongChain(char const * szName) const;
    Slot_s * FirstFrom(Slot_s * pSlot);
    Slot_s * FindByHash(char const * szName, std::size_t nLength, std::uint32_t iIndexHash) const;
    void Store(Slot_s & Slot, Entry_s const & Entry);
    void RebuildIndex();

    bool IsTaken(int i) const { return (m_dTaken[i / 32] >> (i % 32)) & 1; }
    static bool HasKey(Slot_s const & Slot, char const * szName, std::size_t nLength);

    Slot_s m_dSlots[SIZE] = {};
    std::uint32_t m_dTaken[SIZE / 32 + 1] = {};   // a bit for each slot that has an object
    NameIndex_T<SIZE * 2> m_Index;
    std::uint16_t m_dSkip[SIZE] = {};   // steps from here over slots that all have one; 0 not known
    bool m_bHoles = false;              // something was deleted, so m_dSkip may be wrong
    bool m_bUsed = false;               // since the last Reset
    bool m_bTwins = false;              // a key may stand twice, the earlier in its chain hiding the later
};

/// The hash of an IndexHash_T whose index is the key's low bits.
struct IndexHashLowBits_s
{
    static constexpr std::uint32_t Of(std::uint32_t iKey) { return iKey; }
};

template <typename V, int SIZE, int STEP, typename HASH = IndexHashLowBits_s>
class IndexHash_T
{
    static_assert(std::has_single_bit(static_cast<unsigned>(SIZE)), "the index is masked");

public:
    static constexpr int iMask = SIZE - 1;
    static constexpr int iMaxProbes = SIZE * 2 / 3;

    constexpr IndexHash_T() = default;

    /// Adds a copy of the value under a key; a HashAdd_e.
    int Add(V const & Value, std::uint32_t iKey);

    /// The value of that key, in place, or null.
    V * Find(std::uint32_t iKey);

    int GetCount() const { return m_nEntries; }

    /// Frees every slot; touches nothing in an empty table.
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
    int m_nDeleted = 0;   // entries are never deleted one by one, so this stays 0
};

#include "zqcore/chash.inl"
