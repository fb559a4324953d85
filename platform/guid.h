// guid.h: 128-bit identifiers from the machine's address and clock.
#pragma once

#include "platform/compiler.h"

#include <cstdint>

namespace plat
{
    struct Guid_t
    {
        std::uint32_t Data1 = 0;
        std::uint16_t Data2 = 0;
        std::uint16_t Data3 = 0;
        std::uint8_t Data4[8] = {};

        bool operator==(Guid_t const &) const = default;
    };

    /// What GuidCreateSequential says, in the low 16 bits; everything else is a failure. With the last two there is an
    /// identifier all the same.
    constexpr std::uint32_t GUID_OK = 0;
    constexpr std::uint32_t GUID_NO_ADDRESS = 1739;   // the machine has no hardware address
    constexpr std::uint32_t GUID_LOCAL_ONLY = 1824;   // unique on this machine, but perhaps not elsewhere

    using GuidSource_t = std::uint32_t (*)(Guid_t & Guid);

    /// A new identifier of version 1 of RFC 4122, of time, clock sequence and hardware address (a random one, marked as
    /// such, if the machine has none). No two are equal, in all threads and processes of the machine: a process holds
    /// its clock sequence for itself as long as it lives, takes another when it forks or when the clock was set back,
    /// and gives no tick of 100 nanoseconds twice. Any thread.
    std::uint32_t GuidCreateSequential(Guid_t & Guid);

    /// Replaces the generator by a function of the host; null restores it. Returns the previous function.
    ZQ_API GuidSource_t GuidSetSource(GuidSource_t fnSource);
}
