#include "platform/breakpoints.h"

#include "platform/compiler.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/forkdrop.h"

#include <atomic>
#include <cerrno>
#include <linux/hw_breakpoint.h>
#include <linux/perf_event.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

// The kernel provides debug registers as events that send SIGTRAP. An event ends when its last descriptor is closed.
// Therefore the register file of a thread is four descriptors, which are closed when the thread ends. A forked child
// has copies of all threads' descriptors, whose events watch the parent, and closes them at once.

namespace plat
{
    namespace
    {
        struct RegisterFile_s
        {
            DebugRegisters_t Registers;
            KeptDescriptor_c dEvents[DEBUG_REGISTERS];
            ForkDrop_s Drop;
        };

        constinit ZQ_THREAD_LOCAL RegisterFile_s t_Registers = {};

        void CloseEvent(RegisterFile_s & File, int iRegister)
        {
            int const iError = errno;
            int const iEvent = File.dEvents[iRegister].Get();
            if (iEvent >= 0)
            {
                ::ioctl(iEvent, PERF_EVENT_IOC_DISABLE, 0);   // a child may not have closed its copy yet
            }
            File.dEvents[iRegister].Reset(-1);
            errno = iError;
        }

        // Closes the child's copies only: disabling an event would disable the parent's.
        void CloseEventsInChild(void * pFile)
        {
            RegisterFile_s & File = *static_cast<RegisterFile_s *>(pFile);
            for (KeptDescriptor_c & Event : File.dEvents)
            {
                Event.Reset(-1);
            }
            File.Registers = {};
        }

        void CloseEvents(RegisterFile_s & File)
        {
            for (int i = 0; i < DEBUG_REGISTERS; ++i)
            {
                CloseEvent(File, i);
            }
            File.Registers = {};
        }

        // Makes the thread's end close the open events, and a fork close the child's copies of them. Only the first
        // call on a thread has an effect, and the first in a forked child.
        void CloseAtForkAndThreadEnd()
        {
            struct Closer_c
            {
                ~Closer_c()
                {
                    ForkDropRemove(t_Registers.Drop);
                    CloseEvents(t_Registers);
                }
            };
            [[maybe_unused]] static thread_local Closer_c const t_Closer;
            ForkDropAdd(t_Registers.Drop, CloseEventsInChild, &t_Registers);
        }

        int OpenOnThisThread(perf_event_attr & Event)
        {
            constexpr int THIS_THREAD = 0;
            constexpr int ANY_PROCESSOR = -1;
            constexpr int NO_GROUP = -1;
            return static_cast<int>(
                ::syscall(SYS_perf_event_open, &Event, THIS_THREAD, ANY_PROCESSOR, NO_GROUP, PERF_FLAG_FD_CLOEXEC));
        }

        perf_event_attr NewEvent(std::uint32_t iKind, std::uintptr_t Address, std::uint64_t nLength)
        {
            perf_event_attr Event{};
            Event.size = sizeof Event;
            Event.type = PERF_TYPE_BREAKPOINT;
            Event.bp_type = iKind;
            Event.bp_addr = Address;
            Event.bp_len = nLength;
            Event.exclude_kernel = 1;
            Event.exclude_hv = 1;
            return Event;
        }

        // Tests whether registers fire: whether the kernel counts one access. Returns the result, and stores it if it
        // is true. Some hypervisors ignore the debug registers: the kernel grants events that never fire. Returns false
        // with ENOTSUP if the access is not counted, and with the system's errno if the system refuses a register.
        bool RegistersFire()
        {
            static constinit std::atomic<bool> s_bFired = false;
            if (s_bFired.load(std::memory_order_relaxed))
            {
                return true;
            }
            int volatile iTouched = 0;
            auto const Address = reinterpret_cast<std::uintptr_t>(&iTouched);
            perf_event_attr Event = NewEvent(HW_BREAKPOINT_W, Address, sizeof iTouched);
            Descriptor_c const Counter(OpenOnThisThread(Event));
            iTouched = 1;
            std::uint64_t nCount = 0;
            if (!Counter.IsOpen() || ::read(Counter.Get(), &nCount, sizeof nCount) != sizeof nCount)
            {
                return false;
            }
            errno = ENOTSUP;
            s_bFired.store(nCount > 0, std::memory_order_relaxed);
            return nCount > 0;
        }

        // Opens the event of a register and returns its descriptor. On failure returns -1, with errno.
        int OpenEvent(DebugRegisters_t const & Registers, int iRegister)
        {
            // By the codes Access_e and Length_e.
            constexpr std::uint32_t KINDS[] = { HW_BREAKPOINT_X, HW_BREAKPOINT_W, HW_BREAKPOINT_EMPTY,
                HW_BREAKPOINT_RW };
            constexpr std::uint64_t LENGTHS[] = { 1, 2, 8, 4 };
            constexpr std::uint64_t EXECUTE_LENGTH = 8;   // a kernel word, in programs of both word sizes

            std::uint32_t const iAccess = Registers.GetAccess(iRegister);
            if (iAccess == DebugRegisters_t::ACCESS_PORT
                || (iAccess == DebugRegisters_t::ACCESS_EXECUTE
                    && Registers.GetLength(iRegister) != DebugRegisters_t::LENGTH_1))
            {
                errno = EINVAL;
                return -1;
            }
            std::uint64_t const nLength =
                iAccess == DebugRegisters_t::ACCESS_EXECUTE ? EXECUTE_LENGTH : LENGTHS[Registers.GetLength(iRegister)];
            perf_event_attr Event = NewEvent(KINDS[iAccess], Registers.dAddress[iRegister], nLength);
            Event.sample_period = 1;
            Event.sigtrap = 1;
            Event.remove_on_exec = 1;
            return OpenOnThisThread(Event);
        }

        bool IsSame(DebugRegisters_t const & Left, DebugRegisters_t const & Right, int iRegister)
        {
            bool const bBothOff = !Left.IsEnabled(iRegister) && !Right.IsEnabled(iRegister);
            return bBothOff
                   || (Left.IsEnabled(iRegister) == Right.IsEnabled(iRegister)
                       && Left.dAddress[iRegister] == Right.dAddress[iRegister]
                       && Left.GetAccess(iRegister) == Right.GetAccess(iRegister)
                       && Left.GetLength(iRegister) == Right.GetLength(iRegister));
        }

        // Opens the events that Registers needs. Closes the others first, so that their debug registers are free.
        // Returns false if an event can't be opened.
        bool Apply(DebugRegisters_t const & Registers)
        {
            DebugRegisters_t const Previous = t_Registers.Registers;
            t_Registers.Registers = Registers;
            for (int i = 0; i < DEBUG_REGISTERS; ++i)
            {
                if (!IsSame(Previous, Registers, i))
                {
                    CloseEvent(t_Registers, i);
                }
            }
            bool bAll = true;
            for (int i = 0; i < DEBUG_REGISTERS; ++i)
            {
                if (Registers.IsEnabled(i) && t_Registers.dEvents[i].Get() < 0)
                {
                    t_Registers.dEvents[i].Reset(RegistersFire() ? OpenEvent(Registers, i) : -1);
                    bAll = bAll && t_Registers.dEvents[i].GetNumber() >= 0;
                }
            }
            return bAll;
        }
    }

    bool DebugRegistersRead(DebugRegisters_t & Registers)
    {
        Registers = t_Registers.Registers;
        return true;
    }

    bool DebugRegistersWrite(DebugRegisters_t const & Registers)
    {
        CloseAtForkAndThreadEnd();
        DebugRegisters_t const Previous = t_Registers.Registers;
        if (Apply(Registers))
        {
            return true;
        }
        int const iError = errno;
        Apply(Previous);
        errno = iError;
        return false;
    }
}
