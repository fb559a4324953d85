#include "platform/breakpoints.h"

#include "platform/compiler.h"

#include <cerrno>
#include <linux/hw_breakpoint.h>
#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>

// The kernel lends debug registers as events that send SIGTRAP. An event ends when its last descriptor is closed, so
// the register file of a thread is four descriptors, closed when the thread ends.

namespace plat
{
    namespace
    {
        constexpr int CLOSED = -1;

        struct File_s
        {
            DebugRegisters_t Registers;
            int dEvents[DEBUG_REGISTERS];
            int iProcess;   // whose events these are; 0 while nothing was written
        };

        constinit ZQ_THREAD_LOCAL File_s t_File = { {}, { CLOSED, CLOSED, CLOSED, CLOSED }, 0 };

        void CloseEvent(int i)
        {
            if (t_File.dEvents[i] != CLOSED)
            {
                int const iError = errno;
                ::close(t_File.dEvents[i]);
                errno = iError;
                t_File.dEvents[i] = CLOSED;
            }
        }

        void CloseEvents()
        {
            for (int i = 0; i < DEBUG_REGISTERS; ++i)
            {
                CloseEvent(i);
            }
            t_File.Registers = {};
        }

        // The first call on a thread makes its end close what is open then.
        void CloseAtThreadEnd()
        {
            struct Closer_s
            {
                ~Closer_s() { CloseEvents(); }
            };
            [[maybe_unused]] static thread_local Closer_s const s_Closer;
        }

        // A forked process has copies of descriptors whose events watch its parent.
        void DropEventsOfParent()
        {
            int const iProcess = ::getpid();
            if (t_File.iProcess != iProcess)
            {
                CloseEvents();
                t_File.iProcess = iProcess;
            }
        }

        int OpenOnThisThread(perf_event_attr & Event)
        {
            constexpr int THIS_THREAD = 0;
            constexpr int ANY_PROCESSOR = -1;
            constexpr int NO_GROUP = -1;
            return static_cast<int>(
                ::syscall(SYS_perf_event_open, &Event, THIS_THREAD, ANY_PROCESSOR, NO_GROUP, PERF_FLAG_FD_CLOEXEC));
        }

        int OpenEvent(DebugRegisters_t const & Registers, int i)
        {
            constexpr std::uint32_t KINDS[] = { HW_BREAKPOINT_X, HW_BREAKPOINT_W, HW_BREAKPOINT_EMPTY,
                HW_BREAKPOINT_RW };
            constexpr std::uint64_t LENGTHS[] = { 1, 2, 8, 4 };
            constexpr std::uint64_t EXECUTE_LENGTH = 8;   // the kernel's word, whatever the program's

            std::uint32_t const nAccess = Registers.GetAccess(i);
            if (nAccess == DEBUG_PORT || (nAccess == DEBUG_EXECUTE && Registers.GetLength(i) != DEBUG_LENGTH_1))
            {
                errno = EINVAL;
                return CLOSED;
            }
            perf_event_attr Event{};
            Event.size = sizeof Event;
            Event.type = PERF_TYPE_BREAKPOINT;
            Event.bp_type = KINDS[nAccess];
            Event.bp_addr = Registers.dAddress[i];
            Event.bp_len = nAccess == DEBUG_EXECUTE ? EXECUTE_LENGTH : LENGTHS[Registers.GetLength(i)];
            Event.sample_period = 1;
            Event.exclude_kernel = 1;
            Event.exclude_hv = 1;
            Event.sigtrap = 1;
            Event.remove_on_exec = 1;
            return OpenOnThisThread(Event);
        }

        bool IsSame(DebugRegisters_t const & Left, DebugRegisters_t const & Right, int i)
        {
            bool const bBothOff = !Left.IsEnabled(i) && !Right.IsEnabled(i);
            return bBothOff
                   || (Left.IsEnabled(i) == Right.IsEnabled(i) && Left.dAddress[i] == Right.dAddress[i]
                       && Left.GetAccess(i) == Right.GetAccess(i) && Left.GetLength(i) == Right.GetLength(i));
        }

        // What is switched off goes first, so that its register is free for what is switched on.
        bool Apply(DebugRegisters_t const & Registers)
        {
            DebugRegisters_t const Former = t_File.Registers;
            t_File.Registers = Registers;
            for (int i = 0; i < DEBUG_REGISTERS; ++i)
            {
                if (!IsSame(Former, Registers, i))
                {
                    CloseEvent(i);
                }
            }
            bool bAll = true;
            for (int i = 0; i < DEBUG_REGISTERS; ++i)
            {
                if (Registers.IsEnabled(i) && t_File.dEvents[i] == CLOSED)
                {
                    t_File.dEvents[i] = OpenEvent(Registers, i);
                    bAll = bAll && t_File.dEvents[i] != CLOSED;
                }
            }
            return bAll;
        }
    }

    bool DebugRegistersRead(DebugRegisters_t & Registers)
    {
        DropEventsOfParent();
        Registers = t_File.Registers;
        return true;
    }

    bool DebugRegistersWrite(DebugRegisters_t const & Registers)
    {
        CloseAtThreadEnd();
        DropEventsOfParent();
        DebugRegisters_t const Former = t_File.Registers;
        if (Apply(Registers))
        {
            return true;
        }
        int const iError = errno;
        Apply(Former);
        errno = iError;
        return false;
    }
}
