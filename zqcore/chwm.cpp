#include "zqcore/chwm.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include <algorithm>
#include <climits>

namespace
{
    int ClampToInt(unsigned int nValue)
    {
        return static_cast<int>(std::min<unsigned int>(nValue, INT_MAX));
    }
}

StaticMemoryPool_c::StaticMemoryPool_c(char const * sName)
{
    ZQ_ASSERT(sName);
    m_sName = sName;
}

StaticMemoryPool_c::~StaticMemoryPool_c()
{
    for (AllocGroup_s & Group : m_dGroups)
    {
        if (!Group.pPool)
        {
            continue;
        }
        int const nOut = Group.pPool->WaterMark();
        std::size_t const nBytes = static_cast<std::size_t>(nOut) * Group.element_size;
        int const nPeak = Group.pPool->HighWaterMark();
        char const * const szName = m_sName;
        if (nBytes > 0)
        {
            Debugf("pool %s group %u: leaked %zu bytes in %i allocations, high-water-mark %i", szName,
                Group.element_size, nBytes, nOut, nPeak);
        }
        else
        {
            Debugf("pool %s group %u: high-water-mark %i", szName, Group.element_size, nPeak);
        }
        delete Group.pPool;
        Group.pPool = nullptr;
    }
}

void StaticMemoryPool_c::AddGroup(unsigned int element_size, unsigned int elements_total)
{
    ZQ_ASSERT(elements_total > 0);
    int const nGroups = m_dGroups.GetLength();
    if (element_size > INT_MAX || (nGroups > 0 && m_dGroups[nGroups - 1].element_size >= element_size))
    {
        Abort("Invalid element size!");
    }
    if (nGroups == MAX_GROUPS)
    {
        // Asserts instead of the array, which would replace its last class.
        ZQ_ASSERT_TEXT(nGroups < MAX_GROUPS, "iAccessIndex >= 0 && iAccessIndex <= LENGTH");
        return;
    }
    auto * const pPool = ZQ_NEW GigaPoolResizeable_c(m_Map, ClampToInt(elements_total), ClampToInt(element_size));
    m_dGroups.Add({ elements_total, element_size, pPool, false });
    SetPools();
}

void StaticMemoryPool_c::SetPools()
{
    for (unsigned int i = 0; i <= STEPS; ++i)
    {
        unsigned int const nSmallest = i == 0 ? 0 : (i - 1) * STEP + 1;   // smallest size that takes this many steps
        auto const * const pGroup = std::find_if(m_dGroups.begin(), m_dGroups.end(),
            [nSmallest](AllocGroup_s const & Group) { return Group.element_size >= nSmallest; });
        m_dPools[i] = pGroup != m_dGroups.end() && pGroup->element_size >= i * STEP ? pGroup->pPool : nullptr;
    }
}

// Handles all cases, including large blocks and those that end in Abort. Returns what Alloc returns.
void * StaticMemoryPool_c::AllocSlow(unsigned int nBytes, bool bArray)
{
    char const * const szName = m_sName;
    for (AllocGroup_s const & Group : m_dGroups)
    {
        if (nBytes > Group.element_size)
        {
            continue;
        }
        GigaPoolResizeable_c * const pPool = Group.pPool;
        ZQ_ASSERT(pPool);
        bool const bFailed = pPool == PoolFor(nBytes);   // the pool has complained already
        if (void * const pBlock = pPool && !bFailed ? pPool->Alloc(bArray) : nullptr)
        {
            return pBlock;
        }
        Abort("pool %s: %u bytes group too small (%u items)", szName, Group.element_size, Group.elements_total);
    }
    Abort("pool %s: allocation size %u too big", szName, nBytes);
}

int StaticMemoryPool_c::IsValid(void const * pPtr)
{
    GigaPoolResizeable_c const * const pPool = m_Map.FindPool(pPtr);
    return pPool ? pPool->ElementSize() : 0;
}

bool StaticMemoryPool_c::IsArray(void const * pPtr)
{
    if (GigaPoolResizeable_c const * const pPool = m_Map.FindPool(pPtr))
    {
        return pPool->IsArray(pPtr);
    }
    ZQ_ASSERT(0);
    return false;
}

void StaticMemoryPool_c::ResetHighWaterMarks()
{
    for (AllocGroup_s const & Group : m_dGroups)
    {
        if (Group.pPool)
        {
            Group.pPool->ResetHighWaterMark();
        }
    }
}

int StaticMemoryPool_c::GetHighWaterMark(int iGroup)
{
    if (iGroup < 0 || iGroup >= m_dGroups.GetLength())
    {
        ZQ_ASSERT_TEXT(false, "index>=0 && index<iLength");
        return -1;
    }
    GigaPoolResizeable_c const * const pPool = m_dGroups[iGroup].pPool;
    return pPool ? pPool->HighWaterMark() : -1;
}
