// cserializer.inl: body of Reconstruct.
#pragma once

template <typename T>
void Serializer_c::Reconstruct(int iPointer, T *& pPointer)
{
    void const * const p = iPointer == -1 ? nullptr : dPointers[iPointer];
    bool const bFilled = reinterpret_cast<std::intptr_t>(p) != HASH_NO_ELEMENT;
    ZQ_ASSERT_TEXT(bFilled, "dPointers[iPointer] != HASH_NO_ELEMENT");
    pPointer = bFilled ? static_cast<T *>(const_cast<void *>(p)) : nullptr;
}
