// netaddress.h: the hardware address of one of the machine's network interfaces.
//
// Threads: any thread. Any thread may call the host's function too.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    inline constexpr int NET_ADDRESS_SIZE = 6;   // bytes of an address (IEEE 802)

    /// Uniqueness of an address.
    enum class NetAddress_e
    {
        Missing,   // there is no address
        Local,     // assigned by an administrator or by software: other machines may have the same
        Global     // assigned by the manufacturer of the hardware: no other machine has it
    };

    /// Function of a host that copies an address as NetAddressGet does.
    using NetAddressSource_t = NetAddress_e (*)(unsigned char (&dAddress)[NET_ADDRESS_SIZE]);

    /// Copies the address of an Ethernet-like interface and returns its uniqueness. Prefers one with a global address,
    /// then one that is up, then the system's first. Asks the system each time, or the host's function if there is one.
    /// Leaves dAddress unchanged if the result is Missing.
    NetAddress_e NetAddressGet(unsigned char (&dAddress)[NET_ADDRESS_SIZE]);

    /// Replaces the system's interfaces by a function of the host; null restores them. Returns the previous function.
    ZQ_API NetAddressSource_t NetAddressSetSource(NetAddressSource_t fnSource);

    /// Returns how often a source was set. An address that was read under another number may be outdated.
    unsigned NetAddressSourceNumber();
}
