// cserializer_internal.h: the labels of object graphs in an archive, for the serializers and for tools that read them.
#pragma once

#include "zqcore/cserializer.h"

/// Name of a label, and its value.
struct SerializerLabel_t
{
    char const * szName;
    std::uint32_t dwLabel;

    /// Makes the label of a name. Requires that the text outlives the object.
    constexpr explicit SerializerLabel_t(char const * szText)
        : szName(szText)
        , dwLabel(Serializeable_c::LabelCalc(szText))
    {}
};

/// The labels: of a pass, of a new object's begin and end, of a known or null pointer, of a registered pointer.
inline constexpr SerializerLabel_t SERIALIZER_PASS("Serializer_c");
inline constexpr SerializerLabel_t SERIALIZER_BEGIN("composite object begin");
inline constexpr SerializerLabel_t SERIALIZER_END("composite object end");
inline constexpr SerializerLabel_t SERIALIZER_PLAIN("just a pointer");
inline constexpr SerializerLabel_t SERIALIZER_REGISTERED("Registered pointer");

/// Returns whether a number can be an identifier of an object: -1 for null, or an index of the table.
inline bool SerializerIsIdentifier(int iPointer)
{
    return iPointer >= -1 && iPointer < Serializer_c::HASH_SIZE;
}
