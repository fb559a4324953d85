// carray.inl: bodies of the arrays.
#pragma once

/// Moves or copies elements to others, which are assigned to. The places may overlap if pTo is before pFrom.
template <typename T>
void ArrayTransfer(T * pFrom, T * pEnd, T * pTo)
{
    if constexpr (std::is_nothrow_move_assignable_v<T> || !std::is_copy_assignable_v<T>)
    {
        std::move(pFrom, pEnd, pTo);
    }
    else
    {
        std::copy(pFrom, pEnd, pTo);
    }
}

template <typename T, int GROW, int UNUSED>
ArrayTraits_T<T, GROW, UNUSED> & ArrayTraits_T<T, GROW, UNUSED>::operator=(ArrayTraits_T && Other) noexcept
{
    ArrayTraits_T Taken(std::move(Other));   // also when both are the same
    Swap(Taken);
    return *this;
}

template <typename T, int GROW, int UNUSED>
void ArrayTraits_T<T, GROW, UNUSED>::Swap(ArrayTraits_T & Other) noexcept
{
    std::swap(iAllocated, Other.iAllocated);
    std::swap(pData, Other.pData);
    std::swap(iLength, Other.iLength);
}

template <typename T, int GROW, int UNUSED>
void ArrayTraits_T<T, GROW, UNUSED>::Grow(int iAccessIndex)
{
    if (iAccessIndex >= iAllocated)
    {
        int nElements = iAllocated;
        while (nElements <= iAccessIndex)
        {
            nElements = nElements ? nElements * 2 : GROW;
        }
        Reallocate(nElements);
    }
    iLength = iAccessIndex;
}

template <typename T, int GROW, int UNUSED>
void ArrayTraits_T<T, GROW, UNUSED>::Reallocate(int nElements)
{
    if (nElements <= iAllocated)
    {
        return;
    }
    T * const pNew = Allocate(nElements);
    ::ArrayTransfer(pData, pData + iLength, pNew);
    Deallocate(pData);
    pData = pNew;
    iAllocated = nElements;
}

template <typename T, int GROW, int UNUSED>
T * ArrayTraits_T<T, GROW, UNUSED>::Allocate(int nElements)
{
    auto const nCount = static_cast<std::size_t>(nElements);
    if constexpr (std::is_pointer_v<T>)
    {
        auto const iWord = static_cast<int>(MemoryBlockWord(MEMORY_CLIENT_BLOCK));   // the thread's category
        return static_cast<T *>(aligned_malloc_dbg(nCount * sizeof(T), 1, iWord, __FILE__, __LINE__));
    }
    else
    {
        return ZQ_NEW T[nCount];
    }
}

template <typename T, int GROW, int UNUSED>
void ArrayTraits_T<T, GROW, UNUSED>::Deallocate(T * pElements)
{
    if constexpr (std::is_pointer_v<T>)
    {
        aligned_free_dbg(pElements);
    }
    else
    {
        delete[] pElements;
    }
}

template <typename T, int GROW, int UNUSED>
void ArrayTraits_T<T, GROW, UNUSED>::Free()
{
    Deallocate(pData);
    iAllocated = 0;
    pData = nullptr;
    iLength = 0;
}

template <typename T, int LENGTH>
void StaticArrayLenTraits_T<T, LENGTH>::Grow(int iAccessIndex)
{
    ZQ_ASSERT_TEXT(iAccessIndex >= 0 && iAccessIndex <= LENGTH, "iAccessIndex >= 0 && iAccessIndex <= LENGTH");
    iLength = iAccessIndex <= LENGTH ? iAccessIndex : LENGTH;   // Add to a full array replaces the last element
}

template <typename T, typename TRAITS>
int SortedArray_T<T, TRAITS>::Add(T const & Element)
{
    // The element may be one of this array, whose storage Grow may free.
    T const Copy(Element);   // NOLINT(performance-unnecessary-copy-initialization)
    this->Grow(this->iLength + 1);
    this->pData[this->iLength - 1] = Copy;
    return this->iLength - 1;
}

template <typename T, typename TRAITS>
T & SortedArray_T<T, TRAITS>::operator[](int index)
{
    ZQ_ASSERT_TEXT(index >= 0 && index < this->iLength, "index>=0 && index<iLength");
    return this->pData[index];
}

template <typename T, typename TRAITS>
T const & SortedArray_T<T, TRAITS>::operator[](int index) const
{
    ZQ_ASSERT_TEXT(index >= 0 && index < this->iLength, "index>=0 && index<iLength");
    return this->pData[index];
}

template <typename T, typename TRAITS>
void SortedArray_T<T, TRAITS>::Delete(int index)
{
    bool const bInside = index >= 0 && index < this->iLength;
    ZQ_ASSERT_TEXT(bInside, "index >= 0 && index < iLength");
    if (!bInside)
    {
        return;
    }
    T * const pTo = this->pData + index;
    T * const pLast = this->pData + this->iLength - 1;
    if (pTo != pLast)
    {
        ::ArrayTransfer(pTo + 1, pLast, pTo);
        pLast[-1] = *pLast;   // a copy: the place of the last element keeps its value
    }
    --this->iLength;
}

template <typename T, typename TRAITS>
T * SortedArray_T<T, TRAITS>::Find(T const & Element)
{
    for (T & Candidate : *this)
    {
        if (Candidate == Element)
        {
            return &Candidate;
        }
    }
    return nullptr;
}

/// Returns the compiler's spelling of this function, which names the array's type.
template <typename ARRAY>
char const * ArraySpelling()
{
    return ZQ_FUNCTION;
}

template <typename T, typename TRAITS>
template <typename COMPARE>
void SortedArray_T<T, TRAITS>::Sort(COMPARE Compare, int iStart, int iEnd)
{
    constexpr int STACK_DEPTH = 32;   // the smaller part is sorted first, so the length's binary logarithm is enough
    int const nElements = this->iLength;
    if (nElements <= 1)
    {
        return;
    }
    int const iLeft = iStart < 0 ? iStart + nElements : iStart;
    int const iRight = iEnd < 0 ? iEnd + nElements : iEnd;
    if (iLeft > iRight || iLeft < 0 || iRight >= nElements)
    {
        char szType[512];
        ArrayTypeName(ArraySpelling<SortedArray_T>(), szType, sizeof szType);
        AssertFailed("%s::Sort: start=%d end=%d len=%d", szType, iStart, iEnd, nElements);
        return;
    }

    int st0[STACK_DEPTH] = { iLeft };
    int st1[STACK_DEPTH] = { iRight };
    for (int nStack = 1; nStack > 0;)
    {
        --nStack;
        int const L = st0[nStack];
        int const R = st1[nStack];
        int i = L;
        int j = R;
        Partition(Compare, i, j);

        auto const Push = [&](int iFrom, int iTo)
        {
            if (iFrom < iTo)
            {
                st0[nStack] = iFrom;
                st1[nStack] = iTo;
                ++nStack;
            }
        };
        bool const bLeftIsLarger = j - L > R - i;
        if (bLeftIsLarger)
        {
            Push(L, j);
            Push(i, R);
        }
        else
        {
            Push(i, R);
            Push(L, j);
        }
    }
}

/// Splits L..R, given as i..j, at its middle element (C. A. R. Hoare, "Quicksort", The Computer Journal 5, 1962). L..j
/// and i..R are left to be sorted. A comparator that contradicts itself does not lead out of the range.
template <typename T, typename TRAITS>
template <typename COMPARE>
void SortedArray_T<T, TRAITS>::Partition(COMPARE & Compare, int & i, int & j)
{
    int const L = i;
    int const R = j;
    T const Pivot(this->pData[(L + R) / 2]);
    while (i <= j)
    {
        while (i < R && Compare(this->pData[i], Pivot) > 0)
        {
            ++i;
        }
        while (j > L && Compare(Pivot, this->pData[j]) > 0)
        {
            --j;
        }
        if (i <= j)
        {
            std::swap(this->pData[i], this->pData[j]);
            ++i;
            --j;
        }
    }
}
