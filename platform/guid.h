// guid.h: 128-bit identifiers from the machine's address and clock.
#pragma once

#include "platform/compiler.h"

#include <compare>
#include <cstdint>

namespace plat
{
    /// An identifier, in the fields of RFC 4122: time, version and clock sequence, address.
    struct Guid_t
    {
        std::uint32_t Data1 = 0;
        std::uint16_t Data2 = 0;
        std::uint16_t Data3 = 0;
        std::uint8_t Data4[8] = {};

        bool operator==(Guid_t const &) const = default;
        auto operator<=>(Guid_t const &) const = default;
    };

    /// Results of GuidCreateSequential, with the numbers of Windows (UuidCreateSequential). Only the low 16 bits of a
    /// result count. All three come with an identifier. Any other result is a failure.
    inline constexpr std::uint32_t GUID_OK = 0;
    inline constexpr std::uint32_t GUID_NO_ADDRESS = 1739;   // the machine has no hardware address
    inline constexpr std::uint32_t GUID_LOCAL_ONLY = 1824;   // unique on this machine, but perhaps not elsewhere

    /// Function of a host that creates an identifier and returns a GUID_ result. Several threads may call it at a time.
    using GuidSource_t = std::uint32_t (*)(Guid_t & Guid);

    /// Creates an identifier of version 1 (RFC 4122) of time, clock sequence and hardware address, and returns a GUID_
    /// result. Without a hardware address it uses a random one, which is marked as such. Identifiers of all threads and
    /// live processes of the machine differ, if the system has a socket for each process. Any thread may call it.
    ///
    /// A process holds its last 8 clock sequences for itself until it ends. It uses each tick of 100 nanoseconds only
    /// once with a sequence. A child of a fork gets a sequence of its own. A process changes its sequence after the
    /// clock was set back. Then an identifier may equal that of a process that has ended, or has changed its sequence 8
    /// times since, which is very unlikely.
    std::uint32_t GuidCreateSequential(Guid_t & Guid);

    /// Replaces the generator by a function of the host; null restores the default. Returns the previous function.
    ZQ_API GuidSource_t GuidSetSource(GuidSource_t fnSource);
}
