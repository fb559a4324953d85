// cpagemap.h: a map from pages of the address space to values. A lookup usually probes once.
//
// The map is a hash table. The home slot of a page is the slot that the lower bits of its number select. Memory that is
// allocated together has neighbouring pages, whose home slots differ. If the home slot of a page is in use, the page is
// stored in another slot, and the table grows sooner.
//
// Ownership: the map owns copies of the values. A reference to one is valid until the next Add or Remove.
// Threads: no lock. Requires that one thread at a time uses a map.
// Cost: a lookup usually reads one slot. Add allocates when the table grows, to 16 slots or more: 4 to 8 slots for each
// page, up to 32 if home slots are in use. The table does not shrink until the last page is removed.
// Failure: an exhausted heap ends in Abort (cmemory.h). Misuse is not reported: adding a page twice, or removing a page
// that is not in the map, breaks the map.
//
//     PageMap_T<int> Pages;
//     static int s_iObject;
//     Pages.Add(Pages.PageOf(&s_iObject), 7);
//     int const iValue = Pages.Find(Pages.PageOf(&s_iObject));   // 7
#pragma once

#include "zqcore/cconfig.h"

#include "platform/bytes.h"

#include <bit>
#include <cstddef>
#include <utility>

/// Map from page numbers to values. A default-constructed value means that there is no page. Requires a VALUE that is
/// copyable and has a constexpr default constructor. The compiler refuses it if a value and a page number, rounded up
/// to a multiple of 16 bytes, do not have a size that is a power of 2.
template <typename VALUE>
class PageMap_T
{
public:
    static constexpr int PAGE_BITS = 16;   // a page has 64 KiB

    PageMap_T() = default;
    ~PageMap_T() { Reset(); }
    PageMap_T(PageMap_T const &) = delete;
    PageMap_T & operator=(PageMap_T const &) = delete;

    /// Returns the number of the page on which an address lies.
    static std::uintptr_t PageOf(void const * pAddress)
    {
        return reinterpret_cast<std::uintptr_t>(pAddress) >> PAGE_BITS;
    }

    /// Returns the value in the home slot of an address's page. That may be another page's value or a default one: the
    /// caller must check. This is the fast path for values that show which addresses they belong to.
    VALUE const & AtHome(void const * pAddress) const
    {
        constexpr int SLOT_BITS = std::bit_width(sizeof(Slot_s)) - 1;
        auto const nOffset = (reinterpret_cast<std::uintptr_t>(pAddress) >> (PAGE_BITS - SLOT_BITS)) & m_nHomeMask;
        return reinterpret_cast<Slot_s const *>(reinterpret_cast<std::byte const *>(m_pSlots) + nOffset)->Value;
    }

    /// Returns the value of a page, or a default value if there is no such page.
    VALUE const & Find(std::uintptr_t iPage) const { return m_pSlots[SlotOf(iPage)].Value; }

    /// Adds a page. Requires that it is not in the map.
    void Add(std::uintptr_t iPage, VALUE const & Value)
    {
        bool const bAtHome = SlotOf(iPage) == (iPage & (m_nSlots - 1));
        if ((m_nUsed + 1) * (bAtHome ? 4 : 16) > m_nSlots)
        {
            Grow();
        }
        m_pSlots[SlotOf(iPage)] = { Value, iPage };
        ++m_nUsed;
    }

    /// Removes a page. Releases the storage with the last page. Requires that the page is in the map.
    void Remove(std::uintptr_t iPage)
    {
        std::size_t i = SlotOf(iPage);
        m_pSlots[i] = {};
        for (i = NextSlot(i); m_pSlots[i].iPage != NO_PAGE; i = NextSlot(i))
        {
            Slot_s const Slot = std::exchange(m_pSlots[i], {});   // its probe may have passed the removed page
            m_pSlots[SlotOf(Slot.iPage)] = Slot;
        }
        if (--m_nUsed == 0)
        {
            Reset();
        }
    }

private:
    static constexpr std::uintptr_t NO_PAGE = ~std::uintptr_t{ 0 };

    struct alignas(16) Slot_s
    {
        VALUE Value = {};
        std::uintptr_t iPage = NO_PAGE;
    };
    static_assert(std::has_single_bit(sizeof(Slot_s)), "AtHome shifts by the size");

    /// Returns the slot of a page, or the free slot in which Add would store it.
    std::size_t SlotOf(std::uintptr_t iPage) const
    {
        std::size_t i = iPage & (m_nSlots - 1);
        while (m_pSlots[i].iPage != NO_PAGE && m_pSlots[i].iPage != iPage)
        {
            i = NextSlot(i);
        }
        return i;
    }

    /// Returns the slot that follows in a probe. The step is the table's size divided by the golden ratio, so a run of
    /// pages that collides with another run leaves it after a step or two.
    std::size_t NextSlot(std::size_t iSlot) const
    {
        std::uint64_t const nProduct = m_nSlots * (plat::GOLDEN_RATIO >> 32);
        auto const nStep = static_cast<std::size_t>(nProduct >> 32) | 1;   // odd: it reaches all slots
        return (iSlot + nStep) & (m_nSlots - 1);
    }

    void Grow()
    {
        constexpr std::size_t FIRST_SLOTS = 16;
        Slot_s * const pOld = m_pSlots;
        std::size_t const nOld = m_nSlots;
        std::size_t const nSlots = nOld < FIRST_SLOTS ? FIRST_SLOTS : nOld * 2;
        SetSlots(new Slot_s[nSlots], nSlots);
        for (std::size_t i = 0; i < nOld; ++i)
        {
            if (pOld[i].iPage != NO_PAGE)
            {
                m_pSlots[SlotOf(pOld[i].iPage)] = pOld[i];
            }
        }
        Delete(pOld, nOld);
    }

    void Reset()
    {
        Delete(m_pSlots, m_nSlots);
        SetSlots(&s_NoSlot, 1);
    }

    void SetSlots(Slot_s * pSlots, std::size_t nSlots)
    {
        m_pSlots = pSlots;
        m_nSlots = nSlots;
        m_nHomeMask = (nSlots - 1) * sizeof(Slot_s);
    }

    static void Delete(Slot_s * pSlots, std::size_t nSlots)
    {
        if (nSlots > 1)
        {
            delete[] pSlots;
        }
    }

    static constinit inline Slot_s s_NoSlot;   // the only slot of a map without pages; always free

    Slot_s * m_pSlots = &s_NoSlot;
    std::size_t m_nSlots = 1;      // a power of 2
    std::size_t m_nHomeMask = 0;   // mask of the offset in bytes of a home slot
    std::size_t m_nUsed = 0;       // at most a quarter of the slots
};
