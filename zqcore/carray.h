// carray.h: arrays whose growth is part of their type.
//
// Array_T<T, GROW, 0> keeps its elements on the heap. StaticArrayLenTraits_T keeps them in place. In spite of its name,
// a SortedArray_T keeps no order by itself: Sort sorts it.
//
// An array is a contiguous range: range-for, standard algorithms and std::span accept it.
//
// Ownership: an array owns its storage and elements. Pointers to elements are valid until the array grows or is reset.
// An array on the heap can be moved but not copied. A move leaves the source empty. Pointers to the elements stay
// valid. All elements of the storage are constructed. Delete destroys none: the place of the last element keeps its old
// value until it is used again. Reset destroys the elements of an array on the heap, but none of an array in place.
// Threads: one thread at a time for each array.
// Cost: an array on the heap allocates at the first Add and doubles when the length would reach the capacity. Delete
// does not shrink it. Reset frees its storage. The storage counts under the memory category of the moment.
// Failure: an index or a bound of Sort out of range, and a full array in place, assert. Requires that the length stays
// below 2^30.
//
//     Array_T<int, 16, 0> dScores;
//     for (int const iScore : { 30, 10, 20 })
//     {
//         dScores.Add(iScore);
//     }
//     dScores.Sort([](int a, int b) { return a - b; }, 0, -1);   // 30, 20, 10
//     dScores.Delete(0);
//     Log("%i scores, best %i", dScores.GetLength(), dScores[0]);
#pragma once

#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"

#include <algorithm>
#include <type_traits>
#include <utility>

/// Storage on the heap: nothing before the first Add, then GROW elements, doubled as needed. While there is storage,
/// its capacity is above the length. UNUSED has no effect. Requires that GROW is above 0.
template <typename T, int GROW, int UNUSED>
class ArrayTraits_T
{
public:
    ArrayTraits_T() = default;

    /// Move the elements here, and leave the other array empty. The assignment frees this array's elements.
    ArrayTraits_T(ArrayTraits_T && Other) noexcept { Swap(Other); }
    ArrayTraits_T & operator=(ArrayTraits_T && Other) noexcept;

    ~ArrayTraits_T() { Free(); }

    /// Returns the number of elements for which there is storage.
    int GetCapacity() const { return iAllocated; }

protected:
    /// Makes iAccessIndex the length, with storage for one element more.
    void Grow(int iAccessIndex);

    /// Empties the array and frees the storage.
    void Free();

    int iAllocated = 0;    // elements for which there is storage
    T * pData = nullptr;   // the elements, null without storage
    int iLength = 0;       // elements in use

private:
    void Swap(ArrayTraits_T & Other) noexcept;
    void Reallocate(int nElements);
    static T * Allocate(int nElements);
    static void Deallocate(T * pElements);
};

/// Storage for LENGTH elements in place. All of them are constructed with the array.
template <typename T, int LENGTH>
class StaticArrayLenTraits_T
{
public:
    /// Returns LENGTH.
    int GetCapacity() const { return LENGTH; }

protected:
    /// Makes iAccessIndex the length. Asserts that it is 0 to LENGTH. More counts as LENGTH.
    void Grow(int iAccessIndex);

    /// Empties the array.
    void Free() { iLength = 0; }

    T pData[LENGTH] = {};   // the elements
    int iLength = 0;        // elements in use
};

/// The operations of all arrays but StaticArray_T. TRAITS is the storage. Requires that T has a default constructor and
/// copies, and == for Find.
template <typename T, typename TRAITS>
class SortedArray_T : public TRAITS
{
public:
    using value_type = T;   // as in standard containers

    /// Appends a copy and returns its index. The element may be one of this array. Asserts that an array in place is
    /// not full; otherwise the copy replaces the last element.
    int Add(T const & Element);

    /// Return an element. Assert that 0 <= index < GetLength(); another index accesses memory outside the elements.
    T & operator[](int index);
    T const & operator[](int index) const;

    /// Removes an element and moves the later ones down, in their order. The capacity stays. Asserts that
    /// 0 <= index < GetLength(); otherwise removes nothing.
    void Delete(int index);

    /// Returns the first element that equals Element, or null. It takes linear time.
    T * Find(T const & Element);

    /// Return the number of elements, and whether it is 0.
    int GetLength() const { return this->iLength; }
    bool IsEmpty() const { return this->iLength == 0; }

    /// Sorts the elements from iStart to iEnd, both included. A negative bound counts from the end: 0 and -1 select the
    /// whole array. Asserts that the bounds lie inside the array, the start not after the end; otherwise sorts nothing.
    /// Accepts any bounds if there are fewer than two elements.
    ///
    /// If Compare(a, b) is positive, a comes before b: `a - b` sorts in descending order. The sort is not stable.
    template <typename COMPARE>
    void Sort(COMPARE Compare, int iStart, int iEnd);

    /// Empties the array and frees its storage on the heap.
    void Reset() { this->Free(); }

    /// Return the start and the end of the elements, for range-for and algorithms. They are valid until the array
    /// changes.
    T * begin() { return this->pData; }
    T * end() { return this->pData + this->iLength; }
    T const * begin() const { return this->pData; }
    T const * end() const { return this->pData + this->iLength; }

private:
    template <typename COMPARE>
    void Partition(COMPARE & Compare, int & i, int & j);
};

/// A growing array.
template <typename T, int GROW, int UNUSED>
class Array_T : public SortedArray_T<T, ArrayTraits_T<T, GROW, UNUSED>>
{};

/// An array of LENGTH elements whose index is checked.
template <typename T, int LENGTH>
class StaticArray_T
{
public:
    using value_type = T;                    // as in standard containers
    static constexpr int iLength = LENGTH;   // number of elements

    /// Returns an element. Asserts that 0 <= nIndex < LENGTH; another index accesses memory outside the elements.
    T & operator[](int nIndex)
    {
        ZQ_ASSERT_TEXT((nIndex >= 0) && (nIndex < iLength), "(nIndex>=0) && (nIndex<iLength)");
        return m_dElements[nIndex];
    }

    /// Return the start and the end of the elements, for range-for and algorithms.
    T * begin() { return m_dElements; }
    T * end() { return m_dElements + LENGTH; }
    T const * begin() const { return m_dElements; }
    T const * end() const { return m_dElements + LENGTH; }

private:
    T m_dElements[LENGTH] = {};
};

/// Writes an array's type to szBuffer, cut at nSize - 1 bytes, for Sort's complaint. szFunction is the compiler's
/// spelling of a function that names the type. Requires that nSize is above 0.
ZQ_API void ArrayTypeName(char const * szFunction, char * szBuffer, std::size_t nSize);

#include "zqcore/carray.inl"
