#include "platform/netaddress.h"

#include <algorithm>
#include <atomic>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>

namespace plat
{
    namespace
    {
        constinit std::atomic<NetAddressSource_t> g_fnSource = nullptr;
        constinit std::atomic<unsigned> g_nSources = 0;

        // Bits of an address's first byte (IEEE 802).
        constexpr unsigned char GROUP_BIT = 1;   // the address is not that of a single interface
        constexpr unsigned char LOCAL_BIT = 2;   // the address was not assigned by a manufacturer

        constexpr int GLOBAL_RANK = 2;   // lowest rank of an interface with a global address

        // Returns the link-layer address of an entry, or null if the entry has no usable one.
        sockaddr_ll const * UsableAddress(ifaddrs const & Entry)
        {
            if (!Entry.ifa_addr || Entry.ifa_addr->sa_family != AF_PACKET || (Entry.ifa_flags & IFF_LOOPBACK) != 0)
            {
                return nullptr;
            }
            auto const * const pLink = reinterpret_cast<sockaddr_ll const *>(Entry.ifa_addr);
            bool const bEthernet = pLink->sll_hatype == ARPHRD_ETHER && pLink->sll_halen == NET_ADDRESS_SIZE;
            bool const bZero = std::all_of(
                pLink->sll_addr, pLink->sll_addr + NET_ADDRESS_SIZE, [](unsigned char cByte) { return cByte == 0; });
            return bEthernet && !bZero && (pLink->sll_addr[0] & GROUP_BIT) == 0 ? pLink : nullptr;
        }

        // Returns GLOBAL_RANK for a global address, 0 for another one, and 1 more if the interface is up. Higher is
        // better.
        int Rank(ifaddrs const & Entry, sockaddr_ll const & Link)
        {
            return ((Link.sll_addr[0] & LOCAL_BIT) == 0 ? GLOBAL_RANK : 0) + ((Entry.ifa_flags & IFF_UP) != 0 ? 1 : 0);
        }

        // Copies the address of the interface with the highest rank and returns its uniqueness. If several have that
        // rank, the one with the lowest number wins.
        NetAddress_e CopyFromInterfaces(unsigned char (&dAddress)[NET_ADDRESS_SIZE])
        {
            ifaddrs * pEntries = nullptr;
            if (getifaddrs(&pEntries) != 0)
            {
                return NetAddress_e::Missing;
            }
            sockaddr_ll const * pBest = nullptr;
            int iBestRank = -1;
            for (ifaddrs const * pEntry = pEntries; pEntry; pEntry = pEntry->ifa_next)
            {
                sockaddr_ll const * const pLink = UsableAddress(*pEntry);
                int const iRank = pLink ? Rank(*pEntry, *pLink) : -1;
                if (pLink && (iRank > iBestRank || (iRank == iBestRank && pLink->sll_ifindex < pBest->sll_ifindex)))
                {
                    pBest = pLink;
                    iBestRank = iRank;
                }
            }
            if (pBest)
            {
                std::copy_n(pBest->sll_addr, NET_ADDRESS_SIZE, dAddress);
            }
            freeifaddrs(pEntries);
            return iBestRank < 0             ? NetAddress_e::Missing
                   : iBestRank < GLOBAL_RANK ? NetAddress_e::Local
                                             : NetAddress_e::Global;
        }
    }

    NetAddress_e NetAddressGet(unsigned char (&dAddress)[NET_ADDRESS_SIZE])
    {
        NetAddressSource_t const fnSource = g_fnSource;
        return fnSource ? fnSource(dAddress) : CopyFromInterfaces(dAddress);
    }

    NetAddressSource_t NetAddressSetSource(NetAddressSource_t fnSource)
    {
        NetAddressSource_t const fnPrevious = g_fnSource.exchange(fnSource);
        ++g_nSources;
        return fnPrevious;
    }

    unsigned NetAddressSourceNumber()
    {
        return g_nSources;
    }
}
