// cguid.h: 128-bit identifiers and their text forms.
//
// The platform's sequential generator makes an identifier of version 1 (RFC 4122): the time, the machine's hardware
// address and a number that no other live process of the machine has, if the system has a socket for each process. So
// no two are equal, with one very unlikely exception: after the clock was set back, an identifier may equal that of a
// process that has ended, or that has changed its number 8 times since. A machine without an address of its own makes
// identifiers that are unique on that machine only. Create refuses them unless SetGlobalOnly(false) allows them.
//
// Ownership: a Guid_c is a plain value.
// Threads: any thread may create one.
// Cost: identifiers created in a row take 100 ns each or more, because each has a tick of 100 ns of its own. Create
// allocates only when it reads the network interfaces:
// - the first time.
// - after a host has set another source of addresses.
// - while no address is global, at most once a second.
// Failure: Create and the readers return false and leave their output as it was. CreateNewId asserts.
//
//     Guid_c Guid, Copy;
//     bool const bCreated = Guid_c::Create(Guid);
//     String_T<256> const sText = Guid.ToText();   // "f81d4fae-7dec-11d0-a765-00a0c91e6bf6"
//     bool const bSame = Guid_c::FromText(sText, Copy) && Copy == Guid;
#pragma once

#include "zqcore/cstring.h"

#include "platform/guid.h"

/// A 128-bit identifier.
class ZQ_API Guid_c
{
public:
    /// Makes the null identifier, all zero.
    Guid_c() = default;

    /// Makes an identifier of 11 fields, in the order of ToInitializerText.
    Guid_c(std::uint32_t dwData1, std::uint16_t iData2, std::uint16_t iData3, std::uint8_t c0, std::uint8_t c1,
        std::uint8_t c2, std::uint8_t c3, std::uint8_t c4, std::uint8_t c5, std::uint8_t c6, std::uint8_t c7);

    /// Makes an identifier of 16 bytes, as four little-endian words.
    Guid_c(std::uint32_t dw0, std::uint32_t dw1, std::uint32_t dw2, std::uint32_t dw3);

    /// Sets Guid to a new identifier and returns true. On failure states the reason in a Warning and returns false,
    /// with Guid unchanged.
    static bool Create(Guid_c & Guid);

    /// Sets whether Create refuses identifiers that are unique on this machine only. At start it refuses them.
    /// Create warns of such an identifier even if it is allowed. Any thread may call this function.
    static void SetGlobalOnly(bool bGlobalOnly);

    /// Reads 8-4-4-4-12 hexadecimal digits of either case. Returns false for any other text or null, with Guid
    /// unchanged.
    static bool FromText(char const * szText, Guid_c & Guid);

    /// Returns 8-4-4-4-12 hexadecimal digits in lower case.
    String_T<256> ToText() const;

    /// Returns "( 0x..., ... )" with the 11 fields, to paste into source text.
    String_T<256> ToInitializerText() const;

    /// Returns a name that XML allows: `_` and the text form.
    String_T<256> ToXmlName() const;

    /// Reads a name as ToXmlName returns it, with or without the `_`. Asserts that text is not null. Returns false for
    /// null and for any text that is not such a name, with Guid unchanged.
    static bool FromXmlName(char const * text, Guid_c & Guid);

    /// Return whether the identifiers are equal, and their order, which is that of the text forms.
    bool operator==(Guid_c const & Other) const = default;
    auto operator<=>(Guid_c const & Other) const = default;

    /// Returns whether this is the null identifier.
    bool IsNull() const { return *this == Guid_c(); }

    plat::Guid_t m_guid;   // the 16 bytes
};

/// Hash of the 16 bytes, for the unordered containers.
template <>
struct std::hash<Guid_c>
{
    std::size_t operator()(Guid_c const & Guid) const noexcept
    {
        return std::hash<std::string_view>()({ reinterpret_cast<char const *>(&Guid), sizeof(Guid) });
    }
};

/// Base of objects that carry an identifier, which is null until one is created or set.
class ZQ_API GuidObject_c
{
public:
    /// Creates a new identifier for this object. Asserts that one could be created, and keeps the previous one
    /// otherwise.
    void CreateNewId();

    /// Return and replace the identifier.
    Guid_c const & GetId() const { return m_Guid; }
    void SetId(Guid_c const & Guid) { m_Guid = Guid; }

private:
    Guid_c m_Guid;
};
