// graph.h: objects with an ident in the archive of a graph.
#pragma once

#include "zqcore/cserializer.h"
#include "zqcore/cstring.h"

/// Serializer of pointers to the objects of a class. Requires that T has a text sIdent of at most 63 characters, which
/// is stored first.
template <typename T>
class Graph_T : public Serializer_c
{
public:
    /// Registers the class under a name that archives store.
    explicit Graph_T(char const * szClass)
        : Serializer_c(szClass)
    {}

    /// Serializes one pointer, which may be null, and its object at the first pointer to it.
    void Serialize(Serializeable_c & Archive, T *& pTyped)
    {
        void * pObject = pTyped;
        if (Archive.IsReading())
        {
            ReadOwnPointer(Archive, pObject);
        }
        else
        {
            WritePointer(Archive, pObject);
        }
        pTyped = static_cast<T *>(pObject);
    }

protected:
    /// Finds or creates the object with an ident during a load, and returns it. On failure fails the archive and
    /// returns null.
    virtual T * Obtain(Serializeable_c & Archive, char const * szIdent) = 0;

    /// Serializes the fields of an object except its ident.
    virtual void SerializeFields(Serializeable_c & Archive, T & Object) = 0;

    void SerializeObject(Serializeable_c & Archive, void *& pObject) final
    {
        String_T<64> sIdent;
        if (!Archive.IsReading())
        {
            sIdent = static_cast<T *>(pObject)->sIdent;
        }
        Archive.SerializeString(sIdent);
        if (Archive.IsReading())
        {
            pObject = Archive.IsFailed() ? nullptr : Obtain(Archive, sIdent);
        }
        if (pObject)
        {
            RegisterPointer(Archive, pObject);   // its fields may point back to it
            SerializeFields(Archive, *static_cast<T *>(pObject));
        }
    }
};
