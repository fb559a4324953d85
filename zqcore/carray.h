// carray.h: arrays whose growth is part of their type.
//
// Array_T<T, GROW, 0> keeps its elements on the heap: no storage before the first Add, then GROW elements, doubled
// whenever the length would reach the capacity, and never shrunk but by Reset. StaticArrayLenTraits_T keeps them in
// place. In spite of its name a SortedArray_T keeps no order by itself: it is sorted when Sort is called. Storage
// counts under the memory category of the moment. No lock; elements move when the array grows.
#pragma once

#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"

#include <type_traits>
#include <utility>

/// Storage on the heap; the capacity is always above the length.
template <typename T, int GROW, int UNUSED>
class ArrayTraits_T
{
public:
    ArrayTraits_T() = default;
    ArrayTraits_T(ArrayTraits_T const &) = delete;
    ArrayTraits_T & operator=(ArrayTraits_T const &) = delete;
    ~ArrayTraits_T() { Free(); }

    /// Elements that fit before the array grows again.
    int GetCapacity() const { return iAllocated; }

protected:
    void Grow(int iAccessIndex);
    void Free();

    int iAllocated = 0;
    T * pData = nullptr;
    int iLength = 0;

private:
    void Reallocate(int nElements);
    static T * Allocate(int nElements);
    static void Deallocate(T * pElements);
};

/// Storage for LENGTH elements in place, all of them constructed from the start.
template <typename T, int LENGTH>
class StaticArrayLenTraits_T
{
public:
    int GetCapacity() const { return LENGTH; }

protected:
    void Grow(int iAccessIndex);
    void Free() { iLength = 0; }

    T pData[LENGTH] = {};
    int iLength = 0;
};

template <typename T, typename TRAITS>
class SortedArray_T : public TRAITS
{
public:
    /// Appends a copy; its index. An array in place must not be full; if the developer goes on, the copy replaces the
    /// last element.
    int Add(T const & Element);

    /// Requires 0 <= index < GetLength().
    T & operator[](int index);
    T const & operator[](int index) const;

    /// Removes an element and moves the later ones down, in their order. Capacity stays. Requires
    /// 0 <= index < GetLength(); if the developer goes on, nothing is removed.
    void Delete(int index);

    /// The first element equal to this one, or null.
    T * Find(T const & Element);

    int GetLength() const { return this->iLength; }
    bool IsEmpty() const { return this->iLength == 0; }

    /// Sorts the elements from iStart to iEnd; a negative bound counts from the end (0 and -1: all). The comparator
    /// gets two elements; a positive result puts the first one ahead: `a - b` sorts in descending order. Not stable.
    template <typename COMPARE>
    void Sort(COMPARE Compare, int iStart, int iEnd);

    /// Empties the array; storage on the heap is freed.
    void Reset() { this->Free(); }

    T * begin() { return this->pData; }
    T * end() { return this->pData + this->iLength; }
    T const * begin() const { return this->pData; }
    T const * end() const { return this->pData + this->iLength; }

private:
    template <typename COMPARE>
    void Partition(COMPARE & Compare, int & i, int & j);
};

/// The growing array.
template <typename T, int GROW, int UNUSED>
class Array_T : public SortedArray_T<T, ArrayTraits_T<T, GROW, UNUSED>>
{};

/// A bare array whose access is checked.
template <typename T, int LENGTH>
class StaticArray_T
{
public:
    static constexpr int iLength = LENGTH;

    /// Requires 0 <= nIndex < LENGTH.
    T & operator[](int nIndex)
    {
        ZQ_ASSERT_TEXT((nIndex >= 0) && (nIndex < iLength), "(nIndex>=0) && (nIndex<iLength)");
        return m_dElements[nIndex];
    }

private:
    T m_dElements[LENGTH] = {};
};

/// Spells an array's type for Sort's complaint: szFunction is the compiler's spelling of a function that names it.
ZQ_API void ArrayTypeName(char const * szFunction, char * szBuffer, std::size_t nSize);

#include "zqcore/carray.inl"
