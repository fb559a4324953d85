// cserializer.inl: typed pointers of a graph.
#pragma once

#include <typeinfo>

template <typename T>
void Serializer_c::Reconstruct(int iPointer, T *& pPointer)
{
    void const * const pAddress = iPointer == -1 ? nullptr : dPointers[iPointer];
    bool const bFilled = reinterpret_cast<std::intptr_t>(pAddress) != HASH_NO_ELEMENT;
    ZQ_ASSERT_TEXT(bFilled, "dPointers[iPointer] != HASH_NO_ELEMENT");
    pPointer = bFilled ? static_cast<T *>(const_cast<void *>(pAddress)) : nullptr;
}

template <typename T>
void Serializer_c::SerializePointer(Serializeable_c & archive, T *& pObject)
{
    using Class_t = std::remove_cv_t<T>;
    static_assert(graphs::Chooser_T<Class_t> || !std::is_polymorphic_v<Class_t> || std::is_final_v<Class_t>,
        "A graph chooses a class by its dynamic type. Give this class a public member "
        "virtual Serializer_c & GetSerializer() const that returns its Serializer_T.");
    Expected_s const Expected{ nullptr, &graphs::Class_T<Class_t>::s_pSerializer, ZQ_FUNCTION };
    if (archive.IsReading())
    {
        pObject = static_cast<T *>(ReadTyped(archive, Expected));
        return;
    }
    Serializer_c * pSerializer = graphs::Class_T<Class_t>::s_pSerializer;
    if constexpr (graphs::Chooser_T<Class_t>)
    {
        pSerializer = pObject ? &pObject->GetSerializer() : nullptr;
    }
    WriteTyped(archive, const_cast<Class_t *>(pObject), pSerializer, Expected);
}

template <typename T, typename... BASES>
Serializer_T<T, BASES...>::Serializer_T(String_T<NAME_SIZE> const & sClassName)
    : Serializer_c(sClassName, &Convert)
{
    static_assert((std::is_base_of_v<BASES, T> && ...), "BASES are bases of T");
    graphs::Class_T<T>::s_pSerializer = this;
}

template <typename T, typename... BASES>
Serializer_T<T, BASES...>::~Serializer_T()
{
    if (graphs::Class_T<T>::s_pSerializer == this)
    {
        graphs::Class_T<T>::s_pSerializer = nullptr;
    }
}

template <typename T, typename... BASES>
void Serializer_T<T, BASES...>::SerializeObject(Serializeable_c & archive, void *& pObject)
{
    if (MustMake(archive, pObject))
    {
        pObject = Make();
    }
    if (!pObject)
    {
        return archive.Fail("no object of class '%s' was made", m_sClassName.CStr());
    }
    T & Object = *static_cast<T *>(pObject);
#ifdef __cpp_rtti
    if constexpr (std::is_polymorphic_v<T>)
    {
        bool const bOwn = typeid(Object) == typeid(T);
        ZQ_ASSERT_TEXT(bOwn, "the object's class overrides GetSerializer");
        if (!bOwn)
        {
            return archive.Fail();
        }
    }
#endif
    RegisterOwnPointer(archive, pObject);   // its fields may lead back to it
    archive.Serialize(Object);
}

template <typename T, typename... BASES>
void * Serializer_T<T, BASES...>::Convert(void * pFrom, graphs::Type_t Type, graphs::Way_e eWay)
{
    void * pFound = nullptr;
    ConvertFor<T>(pFrom, Type, eWay, pFound);
    (ConvertFor<BASES>(pFrom, Type, eWay, pFound), ...);
    return pFound;
}

/// Sets pFound if the type is TYPE, which is T or a base.
template <typename T, typename... BASES>
template <typename TYPE>
void Serializer_T<T, BASES...>::ConvertFor(void * pFrom, graphs::Type_t Type, graphs::Way_e eWay, void *& pFound)
{
    if (Type != &graphs::Class_T<TYPE>::s_pSerializer)
    {
        return;
    }
    switch (eWay)
    {
    case graphs::Way_e::Ask:
        pFound = &graphs::Class_T<TYPE>::s_pSerializer;
        break;
    case graphs::Way_e::ToObject:
        pFound = static_cast<T *>(static_cast<TYPE *>(pFrom));
        break;
    case graphs::Way_e::ToType:
        pFound = static_cast<TYPE *>(static_cast<T *>(pFrom));
        break;
    }
}
