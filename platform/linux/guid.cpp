// Clock sequences: a process binds a socket to a name made of the number, in the abstract namespace. The kernel grants
// such a name to one process at a time and frees it when the process ends. The processes that share this namespace are
// exactly those that see the same interfaces. So no two live processes that hold their names use the same address,
// sequence and tick. A process without a socket tries again when it makes an identifier: at most once a second, and
// whenever the address has a new source. A process chooses its sequence at random. Even if the clock is set back
// between two processes, they are very unlikely to use the same sequence in the same tick.

#include "platform/guid.h"

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/fork.h"
#include "platform/linux/descriptor.h"
#include "platform/netaddress.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        constinit std::atomic<GuidSource_t> g_fnSource = nullptr;

        constexpr int SEQUENCES = 1 << 14;                                 // RFC 4122, section 4.1.5
        constexpr std::uint64_t TICKS_1582_TO_1970 = 0x01B21DD213814000;   // RFC 4122, appendix A
        constexpr std::uint64_t SMALL_STEP_BACK = 1000;   // ticks to wait out; after a larger step the clock was set

        // Returns the 100-nanosecond ticks since the Gregorian calendar began.
        std::uint64_t Now()
        {
            timespec Time;
            clock_gettime(CLOCK_REALTIME, &Time);
            return static_cast<std::uint64_t>(Time.tv_sec) * FILE_TIME_TICKS
                   + static_cast<std::uint64_t>(Time.tv_nsec) / (NANOSECONDS_OF_SECOND / FILE_TIME_TICKS)
                   + TICKS_1582_TO_1970;
        }

        // Fills a buffer with random bytes. If the system provides none, uses the clock and the process's number, mixed
        // by the generator of Knuth's MMIX (The Art of Computer Programming, volume 2, section 3.3.4).
        void FillRandom(unsigned char * pBytes, std::size_t nBytes)
        {
            if (getrandom(pBytes, nBytes, GRND_NONBLOCK) != static_cast<ssize_t>(nBytes))
            {
                std::uint64_t nMixed = Now() ^ static_cast<std::uint64_t>(getpid()) << 40;
                for (std::size_t i = 0; i < nBytes; ++i)
                {
                    nMixed = nMixed * 6364136223846793005u + 1442695040888963407u;
                    pBytes[i] = static_cast<unsigned char>(nMixed >> 56);
                }
            }
        }

        // Binds a new socket to the name of a sequence and returns it. Returns -1 on failure, with EADDRINUSE if
        // another socket has the name.
        int BindSequence(int iSequence)
        {
            int const iSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            sockaddr_un Name = {};
            Name.sun_family = AF_UNIX;
            int const nName = std::snprintf(Name.sun_path + 1, sizeof(Name.sun_path) - 1, "zqcore-clock-sequence-%04x",
                static_cast<unsigned>(iSequence));
            auto const nSize =
                static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(nName));
            if (iSocket >= 0 && bind(iSocket, reinterpret_cast<sockaddr const *>(&Name), nSize) != 0)
            {
                int const iError = errno;
                close(iSocket);
                errno = iError;
                return -1;
            }
            return iSocket;
        }

        // The generator of the process.
        class Generator_c
        {
        public:
            // Makes an identifier and returns its GUID_ result. Acquires m_Lock.
            std::uint32_t Create(Guid_t & Guid)
            {
                LockScope_c const Scope(m_Lock);
                std::uint64_t const tTick = NextTick();
                // If the clock was set back, the difference wraps to a large one.
                if (tTick - m_tChecked >= FILE_TIME_TICKS || m_nSource != NetAddressSourceNumber())
                {
                    Check(tTick);
                }
                Guid.Data1 = static_cast<std::uint32_t>(tTick);
                Guid.Data2 = static_cast<std::uint16_t>(tTick >> 32);
                Guid.Data3 = static_cast<std::uint16_t>((tTick >> 48 & 0x0FFF) | 0x1000);   // version 1
                Guid.Data4[0] = static_cast<std::uint8_t>(m_iSequence >> 8 | 0x80);         // the variant of RFC 4122
                Guid.Data4[1] = static_cast<std::uint8_t>(m_iSequence);
                std::copy_n(m_dAddress, NET_ADDRESS_SIZE, Guid.Data4 + 2);
                return m_dwStatus;
            }

            // Forgets the sequence: the child of a fork is another process and needs one of its own.
            void Restart()
            {
                for (KeptDescriptor_c & Socket : m_dSockets)
                {
                    Socket.Reset(-1);
                }
                m_iSequence = -1;
                m_tChecked = 0;
            }

            Lock_c m_Lock;

        private:
            // Chooses a sequence if there is none, or if the clock was set back by more than SMALL_STEP_BACK. After a
            // smaller step, or in the tick of the last identifier, waits until the clock has passed that tick. Returns
            // a tick that was not used yet with the sequence.
            std::uint64_t NextTick()
            {
                std::uint64_t tTick = Now();
                if (m_iSequence < 0)
                {
                    Start();
                    tTick = Now();
                }
                while (tTick <= m_tLast)
                {
                    if (m_tLast - tTick > SMALL_STEP_BACK)
                    {
                        ChooseSequence();
                        break;
                    }
                    tTick = Now();
                }
                m_tLast = tTick;
                return tTick;
            }

            void Start()
            {
                FillRandom(m_dRandomAddress, NET_ADDRESS_SIZE);
                m_dRandomAddress[0] |= 1;   // the mark of RFC 4122 for an address that is not the hardware's
                ChooseSequence();
            }

            // Chooses a free sequence at random. If none is free or there are no sockets, uses one without a socket.
            // Keeps the last SOCKETS sockets open, so that no process gets both an old sequence and a clock that was
            // set back.
            void ChooseSequence()
            {
                unsigned char dRandom[2];
                FillRandom(dRandom, sizeof(dRandom));
                int const iFirst = (dRandom[0] << 8 | dRandom[1]) % SEQUENCES;
                int iSocket = -1;
                errno = EADDRINUSE;
                for (int i = 0; iSocket < 0 && errno == EADDRINUSE && i < SEQUENCES; ++i)
                {
                    m_iSequence = (iFirst + i) % SEQUENCES;
                    iSocket = BindSequence(m_iSequence);
                }
                m_dSockets[m_nSequences++ % SOCKETS].Reset(iSocket);
            }

            // Chooses another sequence if the present one has no socket, or the host closed it. Reads the interfaces
            // again if the source is new, or if the address is not global, because a global one may have appeared. tNow
            // is the present tick.
            void Check(std::uint64_t tNow)
            {
                if (m_dSockets[(m_nSequences - 1) % SOCKETS].Get() < 0)
                {
                    ChooseSequence();
                }
                if (m_dwStatus != GUID_OK || m_nSource != NetAddressSourceNumber())
                {
                    LearnAddress();
                }
                m_tChecked = tNow;
            }

            void LearnAddress()
            {
                m_nSource = NetAddressSourceNumber();
                std::copy_n(m_dRandomAddress, NET_ADDRESS_SIZE, m_dAddress);
                switch (NetAddressGet(m_dAddress))
                {
                case NetAddress_e::Global:
                    m_dwStatus = GUID_OK;
                    break;
                case NetAddress_e::Local:
                    m_dwStatus = GUID_LOCAL_ONLY;
                    break;
                default:
                    m_dwStatus = GUID_NO_ADDRESS;
                }
            }

            static constexpr unsigned SOCKETS = 8;

            std::uint64_t m_tLast = 0;      // tick of the last identifier
            std::uint64_t m_tChecked = 0;   // tick of the last check
            std::uint32_t m_dwStatus = GUID_NO_ADDRESS;
            unsigned m_nSource = 0;      // number of the source that m_dAddress is from
            int m_iSequence = -1;        // -1 for none yet
            unsigned m_nSequences = 0;   // sequences chosen so far
            KeptDescriptor_c m_dSockets[SOCKETS];
            unsigned char m_dAddress[NET_ADDRESS_SIZE] = {};
            unsigned char m_dRandomAddress[NET_ADDRESS_SIZE] = {};
        };

        constinit Generator_c g_Generator;
        ForkLock_c const g_ForkLock(g_Generator.m_Lock);
        ForkHandler_c const g_ForkHandler({ nullptr, nullptr, [] { g_Generator.Restart(); } });
    }

    std::uint32_t GuidCreateSequential(Guid_t & Guid)
    {
        GuidSource_t const fnSource = g_fnSource.load(std::memory_order_relaxed);
        return fnSource ? fnSource(Guid) : g_Generator.Create(Guid);
    }

    GuidSource_t GuidSetSource(GuidSource_t fnSource)
    {
        return g_fnSource.exchange(fnSource);
    }
}
