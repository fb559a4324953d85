// cguid.h: 128-bit identifiers and their text forms.
//
// New identifiers come from the platform's sequential generator: made of the time, the machine's hardware address and a
// number that no other process of the machine has, so that no two are equal. A machine without an address of its own
// can make identifiers that are unique on it alone; they are refused unless SetGlobalOnly(false) allows them. A Guid_c is
// a plain value; any thread may create one. Creating costs at least 100 ns, the clock's tick for identifiers.
#pragma once

#include "zqcore/cstring.h"

#include "platform/guid.h"

class ZQ_API Guid_c
{
public:
    /// The null identifier, all zero.
    Guid_c() = default;

    Guid_c(std::uint32_t dwData1, std::uint16_t nData2, std::uint16_t nData3, std::uint8_t n0, std::uint8_t n1,
        std::uint8_t n2, std::uint8_t n3, std::uint8_t n4, std::uint8_t n5, std::uint8_t n6, std::uint8_t n7);

    /// The 16 bytes as four little-endian words.
    Guid_c(std::uint32_t dw0, std::uint32_t dw1, std::uint32_t dw2, std::uint32_t dw3);

    /// Makes a new identifier. False, with a Warning that says why and Guid unchanged, if there is none to be had.
    static bool Create(Guid_c & Guid);

    /// Whether Create refuses identifiers that are unique on this machine only. True at start.
    static void SetGlobalOnly(bool bGlobalOnly);

    /// Reads 8-4-4-4-12 hexadecimal digits of either case, and nothing else; false, with Guid unchanged, for any other
    /// text.
    static bool FromText(char const * szText, Guid_c & Guid);

    /// 8-4-4-4-12 hexadecimal digits in lower case.
    String_T<256> ToText() const;

    /// "( 0x..., ... )" over the 11 fields, to paste into source text.
    String_T<256> ToInitializerText() const;

    /// A name that XML allows: `_` and the text form. Reading accepts it without the `_`, too; text must not be null.
    static bool FromXmlName(char const * text, Guid_c & Guid);
    String_T<256> ToXmlName() const;

    bool operator==(Guid_c const & Other) const = default;

    plat::Guid_t m_guid;
};

/// The base of things that carry an identifier: null until one is created.
class ZQ_API GuidObject_c
{
public:
    /// Gives this object a fresh identifier. Creating one must succeed; if it does not the former one stays.
    void CreateNewId();

    Guid_c const & GetId() const { return m_Guid; }
    void SetId(Guid_c const & Guid) { m_Guid = Guid; }

private:
    Guid_c m_Guid;
};
