// netaddress.h: the hardware address of the machine's network.
#pragma once

#include "platform/compiler.h"

namespace plat
{
    constexpr int NET_ADDRESS_SIZE = 6;

    /// What an address is good for.
    enum class NetAddress_e
    {
        Missing,   // there is no address
        Local,     // given by whoever runs the machine or by software: other machines may have the same
        Global     // given by the maker of the hardware: no other machine has it
    };

    using NetAddressSource_t = NetAddress_e (*)(unsigned char (&dAddress)[NET_ADDRESS_SIZE]);

    /// The address of an Ethernet-like interface: one with a global address if there is one, then one that is up, then
    /// the system's first. With Missing dAddress is unchanged. Asks the system each time.
    NetAddress_e NetAddressGet(unsigned char (&dAddress)[NET_ADDRESS_SIZE]);

    /// Replaces the system's interfaces by a function of the host; null restores them. Returns the previous function.
    ZQ_API NetAddressSource_t NetAddressSetSource(NetAddressSource_t fnSource);

    /// How often a source was set: what was learnt under another number may be wrong now.
    unsigned NetAddressSourceNumber();
}
