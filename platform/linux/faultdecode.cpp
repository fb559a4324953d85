// The Intel SDM has the processor's exceptions (volume 3, chapter 6) and the opcodes (volume 2, appendix A).
#include "platform/linux/faultdecode.h"

#include "platform/linux/callingthread.h"
#include "platform/linux/maps.h"
#include "platform/memory.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        // The processor's exceptions, as the kernel numbers them in a thread's state.
        enum Trap_e : long
        {
            TRAP_DIVIDE = 0,
            TRAP_OVERFLOW = 4,
            TRAP_BOUND = 5,
            TRAP_PROTECTION = 13,
            TRAP_PAGE = 14,
            TRAP_X87 = 16,
            TRAP_ALIGNMENT = 17,
            TRAP_SIMD = 19
        };

        constexpr std::uintptr_t UNKNOWN_ADDRESS = ~std::uintptr_t{ 0 };
        constexpr std::size_t LONGEST_INSTRUCTION = 15;   // bytes
        constexpr std::size_t AFTER_PREFIXES = 8;         // bytes, more than are read after the prefixes
        constexpr unsigned char INT3 = 0xCC;
        constexpr unsigned char INTO = 0xCE;

        // The exception flags of the x87 status word and of MXCSR. A set bit in the x87 control word, or in MXCSR
        // shifted by MXCSR_MASK_SHIFT, masks the flag's exception (volume 1, 8.1.3, 8.1.5 and 10.2.3).
        constexpr unsigned FLOAT_INVALID_FLAG = 0x01;
        constexpr unsigned FLOAT_DENORMAL_FLAG = 0x02;
        constexpr unsigned FLOAT_DIVIDE_FLAG = 0x04;
        constexpr unsigned FLOAT_OVERFLOW_FLAG = 0x08;
        constexpr unsigned FLOAT_UNDERFLOW_FLAG = 0x10;
        constexpr unsigned FLOAT_INEXACT_FLAG = 0x20;
        constexpr unsigned FLOAT_STACK_FLAG = 0x40;   // x87 only
        constexpr unsigned MXCSR_MASK_SHIFT = 7;

        // The bytes of an instruction, and what its prefixes say.
        struct Instruction_t
        {
            unsigned char dBytes[LONGEST_INSTRUCTION + AFTER_PREFIXES];   // zero after the bytes that could be read
            unsigned char const * pOpcode;
            unsigned dwRex;       // 0 without a REX prefix
            bool bOperandSize;    // whether it has the prefix of another operand size
            bool bOtherAddress;   // whether its address is in a segment of its own, or shorter than a register
        };

        void ReadInstruction(std::uintptr_t Address, Instruction_t & Instruction)
        {
            Instruction = {};
            MemoryRead(Address, Instruction.dBytes, LONGEST_INSTRUCTION);
            unsigned char const * pByte = Instruction.dBytes;
            while (*pByte != 0 && std::strchr("\x26\x2E\x36\x3E\x64\x65\x66\x67\xF0\xF2\xF3", *pByte) != nullptr)
            {
                Instruction.bOperandSize = Instruction.bOperandSize || *pByte == 0x66;
                Instruction.bOtherAddress =
                    Instruction.bOtherAddress || *pByte == 0x64 || *pByte == 0x65 || *pByte == 0x67;
                ++pByte;
            }
            if (sizeof(void *) == 8 && (*pByte & 0xF0) == 0x40)
            {
                Instruction.dwRex = *pByte++;
            }
            Instruction.pOpcode = pByte;
        }

        bool IsPrivileged(std::uintptr_t Address)
        {
            Instruction_t Instruction;
            ReadInstruction(Address, Instruction);
            unsigned char const cFirst = Instruction.pOpcode[0];
            unsigned char const cSecond = Instruction.pOpcode[1];
            unsigned char const cThird = Instruction.pOpcode[2];
            unsigned const iGroup = (cThird >> 3) & 7;
            if (cFirst != 0x0F)
            {
                // These are ins and outs, in and out by number and by register, hlt, cli and sti.
                return (cFirst >= 0x6C && cFirst <= 0x6F) || (cFirst >= 0xE4 && cFirst <= 0xE7)
                       || (cFirst >= 0xEC && cFirst <= 0xEF) || cFirst == 0xF4 || cFirst == 0xFA || cFirst == 0xFB;
            }
            switch (cSecond)
            {
            case 0x00:   // lldt, ltr
                return iGroup == 2 || iGroup == 3;
            case 0x01:   // lmsw; xsetbv, swapgs; lgdt, lidt, invlpg, which have an operand in memory
                return iGroup == 6 || cThird == 0xD1 || cThird == 0xF8
                       || (cThird < 0xC0 && (iGroup == 2 || iGroup == 3 || iGroup == 7));
            case 0x06:   // clts
            case 0x07:   // sysret
            case 0x08:   // invd
            case 0x09:   // wbinvd
            case 0x30:   // wrmsr
            case 0x32:   // rdmsr
            case 0x33:   // rdpmc
            case 0x35:   // sysexit
                return true;
            default:   // mov with control and debug registers
                return cSecond >= 0x20 && cSecond <= 0x23;
            }
        }

        // Returns a register by its number in an instruction.
        std::uintptr_t RegisterOf(FaultContext_t const & Context, unsigned iRegister)
        {
            std::uintptr_t const dRegisters[] = { Context.nAx, Context.nCx, Context.nDx, Context.nBx, Context.nSp,
                Context.nBp, Context.nSi, Context.nDi };
            constexpr std::size_t FIRST_EXTENDED = std::size(dRegisters);
            return iRegister < FIRST_EXTENDED ? dRegisters[iRegister] : Context.dExtended[iRegister - FIRST_EXTENDED];
        }

        // Returns the address of a ModR/M byte's memory operand (volume 2, chapter 2). An address relative to the
        // instruction counts from the instruction's end. Requires a memory operand, no immediate one, and that
        // bOtherAddress is false.
        std::uintptr_t OperandAddress(Instruction_t const & Instruction, FaultContext_t const & Context)
        {
            unsigned char const * pByte = Instruction.pOpcode + 1;
            unsigned const iMode = *pByte >> 6;
            unsigned const iBase = *pByte++ & 7;
            unsigned iRegister = iBase;
            std::uintptr_t Address = 0;
            if (iBase == 4)   // a SIB byte follows
            {
                unsigned const iIndex = ((*pByte >> 3) & 7) | (Instruction.dwRex & 2) << 2;
                Address += iIndex == 4 ? 0 : RegisterOf(Context, iIndex) << (*pByte >> 6);
                iRegister = *pByte++ & 7;
            }
            std::int32_t nWide = 0;
            std::memcpy(&nWide, pByte, sizeof nWide);
            if (iMode == 0 && iRegister == 5)
            {
                bool const bRelative = sizeof(void *) == 8 && iBase == 5;
                std::uintptr_t const End = Context.nIp + static_cast<std::uintptr_t>(pByte + 4 - Instruction.dBytes);
                return Address + static_cast<std::uintptr_t>(nWide) + (bRelative ? End : 0);
            }
            Address += RegisterOf(Context, iRegister | (Instruction.dwRex & 1) << 3);
            std::intptr_t const nOffset = iMode == 1 ? static_cast<signed char>(*pByte) : iMode == 2 ? nWide : 0;
            return Address + static_cast<std::uintptr_t>(nOffset);
        }

        // Returns whether the divisor is zero. A quotient that does not fit raises the same exception. Also returns
        // true in these cases:
        // - The divisor can't be read or found.
        // - The instruction is not a div or idiv.
        bool DividesByZero(FaultContext_t const & Context)
        {
            Instruction_t Instruction;
            ReadInstruction(Context.nIp, Instruction);
            unsigned char const cOpcode = Instruction.pOpcode[0];
            unsigned char const cForm = Instruction.pOpcode[1];
            if (cOpcode != 0xF6 && cOpcode != 0xF7)
            {
                return true;
            }
            std::size_t const nBytes = cOpcode == 0xF6                ? 1
                                       : (Instruction.dwRex & 8) != 0 ? 8
                                       : Instruction.bOperandSize     ? 2
                                                                      : 4;
            std::uint64_t nDivisor = 0;
            if (cForm < 0xC0)
            {
                if (Instruction.bOtherAddress)
                {
                    return true;
                }
                MemoryRead(OperandAddress(Instruction, Context), &nDivisor, nBytes);
                return nDivisor == 0;
            }
            unsigned const iRegister = (cForm & 7) | (Instruction.dwRex & 1) << 3;
            bool const bHighByte = nBytes == 1 && Instruction.dwRex == 0 && iRegister >= 4;   // ah, ch, dh, bh
            nDivisor = bHighByte ? RegisterOf(Context, iRegister - 4) >> 8 : RegisterOf(Context, iRegister);
            return nBytes < 8 ? (nDivisor & ((std::uint64_t{ 1 } << (8 * nBytes)) - 1)) == 0 : nDivisor == 0;
        }

        // Returns the code of the first raised flag in this order: invalid, divide, overflow, underflow, denormal,
        // inexact. With bX87Stack the code of invalid is FAULT_FLOAT_STACK. Returns FAULT_FLOAT_INVALID if no flag is
        // raised.
        std::uint32_t FloatCode(unsigned dwRaised, bool bX87Stack)
        {
            if (dwRaised & FLOAT_INVALID_FLAG)
            {
                return bX87Stack ? FAULT_FLOAT_STACK : FAULT_FLOAT_INVALID;
            }
            struct Row_s
            {
                unsigned dwFlag;
                std::uint32_t nCode;
            };
            for (Row_s const & Row :
                { Row_s{ FLOAT_DIVIDE_FLAG, FAULT_FLOAT_DIVIDE }, Row_s{ FLOAT_OVERFLOW_FLAG, FAULT_FLOAT_OVERFLOW },
                    Row_s{ FLOAT_UNDERFLOW_FLAG, FAULT_FLOAT_UNDERFLOW },
                    Row_s{ FLOAT_DENORMAL_FLAG, FAULT_FLOAT_DENORMAL },
                    Row_s{ FLOAT_INEXACT_FLAG, FAULT_FLOAT_INEXACT } })
            {
                if (dwRaised & Row.dwFlag)
                {
                    return Row.nCode;
                }
            }
            return FAULT_FLOAT_INVALID;
        }

#if defined(__x86_64__)
        unsigned MxcsrOf(fpregset_t pFloats)
        {
            return pFloats->mxcsr;
        }

        std::uint16_t X87Status(fpregset_t pFloats)
        {
            return pFloats->swd;
        }

        // Returns the flags that are raised and not masked. Other bits have no meaning.
        unsigned X87Raised(fpregset_t pFloats)
        {
            return pFloats->swd & ~unsigned{ pFloats->cwd };
        }

        void const * VectorsOf(fpregset_t pFloats)
        {
            return pFloats->_xmm;
        }
#else
        // Returns MXCSR, which is after the C library's frame. That ends with the status and the magic word. The
        // kernel's continues with 6 words and MXCSR.
        unsigned MxcsrOf(fpregset_t pFloats)
        {
            constexpr std::size_t MXCSR_OFFSET = 136;   // of mxcsr in the kernel's _fpstate_32 (asm/sigcontext.h)
            unsigned dwMxcsr;
            std::memcpy(&dwMxcsr, reinterpret_cast<char const *>(pFloats) + MXCSR_OFFSET, sizeof dwMxcsr);
            return dwMxcsr;
        }

        std::uint16_t X87Status(fpregset_t pFloats)
        {
            return static_cast<std::uint16_t>(pFloats->sw);
        }

        unsigned X87Raised(fpregset_t pFloats)
        {
            return static_cast<unsigned>(pFloats->sw & ~pFloats->cw);
        }

        // Returns the vectors. Returns null if the frame has none: then its magic word is not 0.
        void const * VectorsOf(fpregset_t pFloats)
        {
            constexpr std::size_t VECTORS_OFFSET = 272;   // of _xmm in the kernel's _fpstate_32 (asm/sigcontext.h)
            bool const bPresent = pFloats->status >> 16 == 0;
            return bPresent ? reinterpret_cast<char const *>(pFloats) + VECTORS_OFFSET : nullptr;
        }
#endif

        // Returns the code of a floating-point fault, FAULT_FLOAT_INVALID if its flags are unknown.
        std::uint32_t FloatCode(long iTrap, ucontext_t const & Thread)
        {
            fpregset_t const pFloats = Thread.uc_mcontext.fpregs;
            if (pFloats == nullptr)
            {
                return FAULT_FLOAT_INVALID;
            }
            if (iTrap == TRAP_X87)
            {
                return FloatCode(X87Raised(pFloats), (X87Status(pFloats) & FLOAT_STACK_FLAG) != 0);
            }
            unsigned const dwMxcsr = MxcsrOf(pFloats);
            return FloatCode(dwMxcsr & ~(dwMxcsr >> MXCSR_MASK_SHIFT), false);
        }

        constexpr std::uintptr_t LARGEST_FRAME = 16 << 20;   // bytes of one function's frame, at most

        // Finds the lowest writable memory that ends above an address. Returns false if the system reports none.
        bool FindWritableAbove(std::uintptr_t Address, Mapping_t & Mapping)
        {
            Maps_c Maps;
            while (Maps.Next(Mapping))
            {
                if (Mapping.bWritable && Mapping.End > Address)
                {
                    return true;
                }
            }
            return false;
        }

        // Returns whether an inaccessible address lies where the thread's stack would have grown to. That is below the
        // memory whose low end the stack pointer is at, or has just left.
        bool IsStackOverflow(std::uintptr_t Address, std::uintptr_t nSp)
        {
            constexpr std::uintptr_t ABOVE_END = 1024;          // bytes in which a stack pointer is still at the end
            constexpr std::uintptr_t FARTHEST_PUSH = 0x10000;   // bytes that pushes and probes reach below, at most
            bool const bNear = nSp > Address ? nSp - Address <= FARTHEST_PUSH : Address - nSp <= LARGEST_FRAME;
            Mapping_t Mapping;
            return bNear && FindWritableAbove(Address, Mapping) && Mapping.Start > Address
                   && Mapping.Start - Address <= LARGEST_FRAME && nSp < Mapping.Start + ABOVE_END;
        }

        // The bits of the error code that the processor pushes for a page fault. It sets ERROR_FETCH only if pages can
        // forbid execution.
        constexpr long ERROR_WRITE = 0x02;
        constexpr long ERROR_FETCH = 0x10;

        void DecodePageFault(
            long nError, siginfo_t const & Info, FaultContext_t const & Context, FaultRecord_t & Record)
        {
            Record.dParameters[0] = (nError & ERROR_WRITE) != 0 ? 1 : 0;
            Record.dParameters[1] = reinterpret_cast<std::uintptr_t>(Info.si_addr);
            bool const bFetch = (nError & ERROR_FETCH) != 0 || Record.dParameters[1] == Context.nIp;
            Record.eAccess = bFetch                        ? FaultAccess_e::Execute
                             : (nError & ERROR_WRITE) != 0 ? FaultAccess_e::Write
                                                           : FaultAccess_e::Read;
        }

        // Records an access of unknown kind and address: the processor does not report the address, for instance
        // because it is not canonical, or a process sent the signal.
        void SetUnknownAccess(FaultRecord_t & Record)
        {
            Record.dParameters[1] = UNKNOWN_ADDRESS;
            Record.eAccess = FaultAccess_e::Unknown;
        }

        void DecodeAccess(
            long iTrap, long nError, siginfo_t const & Info, FaultContext_t const & Context, FaultRecord_t & Record)
        {
            Record.nCode = FAULT_ACCESS;
            if (iTrap == TRAP_PAGE)
            {
                DecodePageFault(nError, Info, Context, Record);
                if (IsStackOverflow(Record.dParameters[1], Context.nSp))
                {
                    Record.nCode = FAULT_STACK_OVERFLOW;
                }
            }
            else if (iTrap == TRAP_PROTECTION && IsPrivileged(Context.nIp))
            {
                Record.nCode = FAULT_PRIVILEGED;
            }
            else
            {
                SetUnknownAccess(Record);
            }
        }

        void DecodeBus(
            long iTrap, long nError, siginfo_t const & Info, FaultContext_t const & Context, FaultRecord_t & Record)
        {
            Record.nCode = Info.si_code == BUS_ADRALN ? FAULT_MISALIGNED
                           : iTrap == TRAP_PAGE       ? FAULT_IN_PAGE
                                                      : FAULT_ACCESS;
            if (iTrap == TRAP_PAGE)
            {
                DecodePageFault(nError, Info, Context, Record);
            }
            else
            {
                SetUnknownAccess(Record);
            }
        }

        // Moves the place of a trap back to its one-byte instruction, if that is the byte before. The processor reports
        // a trap after the instruction has run.
        void StepBackOver(unsigned char cInstruction, FaultContext_t & Context, FaultRecord_t & Record)
        {
            unsigned char cBefore = 0;
            if (MemoryReadObject(Context.nIp - 1, cBefore) && cBefore == cInstruction)
            {
                --Context.nIp;
                Record.Address = Context.nIp;
            }
        }

        // Returns the code of a signal that a process sent, of which only the number is known.
        std::uint32_t CodeOfSent(int iSignal)
        {
            switch (iSignal)
            {
            case SIGBUS:
                return FAULT_IN_PAGE;
            case SIGILL:
                return FAULT_ILLEGAL_INSTRUCTION;
            case SIGFPE:
                return FAULT_FLOAT_INVALID;
            case SIGTRAP:
                return FAULT_BREAKPOINT;
            case SIGABRT:
                return FAULT_ABORT;
            default:
                return FAULT_ACCESS;
            }
        }

        void DecodeSegmentation(
            long iTrap, long nError, siginfo_t const & Info, FaultContext_t & Context, FaultRecord_t & Record)
        {
            switch (iTrap)
            {
            case TRAP_OVERFLOW:
                Record.nCode = FAULT_INTEGER_OVERFLOW;
                StepBackOver(INTO, Context, Record);
                break;
            case TRAP_BOUND:
                Record.nCode = FAULT_ARRAY_BOUNDS;
                break;
            default:
                DecodeAccess(iTrap, nError, Info, Context, Record);
                break;
            }
        }

        void DecodeRecord(int iSignal, siginfo_t const & Info, ucontext_t const & Thread, FaultContext_t & Context,
            FaultRecord_t & Record)
        {
            long const iTrap = static_cast<long>(Thread.uc_mcontext.gregs[REG_TRAPNO]);
            long const nError = static_cast<long>(Thread.uc_mcontext.gregs[REG_ERR]);
            if (Info.si_code <= 0 || iSignal == SIGABRT)
            {
                Record.nCode = CodeOfSent(iSignal);
                if (iSignal == SIGSEGV || iSignal == SIGBUS)
                {
                    SetUnknownAccess(Record);
                }
                return;
            }
            switch (iSignal)
            {
            case SIGSEGV:
                DecodeSegmentation(iTrap, nError, Info, Context, Record);
                break;
            case SIGBUS:
                DecodeBus(iTrap, nError, Info, Context, Record);
                break;
            case SIGFPE:
                Record.nCode = iTrap != TRAP_DIVIDE     ? FloatCode(iTrap, Thread)
                               : DividesByZero(Context) ? FAULT_INTEGER_DIVIDE
                                                        : FAULT_INTEGER_OVERFLOW;
                break;
            case SIGTRAP:
                // For a breakpoint the kernel reports itself as the sender. Steps and watched data have codes.
                Record.nCode =
                    Info.si_code == SI_KERNEL || Info.si_code == TRAP_BRKPT ? FAULT_BREAKPOINT : FAULT_SINGLE_STEP;
                if (Record.nCode == FAULT_BREAKPOINT)
                {
                    StepBackOver(INT3, Context, Record);
                }
                break;
            default:
                Record.nCode = FAULT_ILLEGAL_INSTRUCTION;
                break;
            }
        }

        void CopyX87(fpregset_t pFloats, FaultContext_t & Context)
        {
            if (pFloats == nullptr)
            {
                return;
            }
            for (std::size_t iEntry = 0; iEntry < std::size(Context.dX87); ++iEntry)
            {
                std::memcpy(Context.dX87[iEntry], &pFloats->_st[iEntry], sizeof Context.dX87[iEntry]);
            }
            Context.nX87Status = X87Status(pFloats);
        }

        void CopyVectors(fpregset_t pFloats, FaultContext_t & Context)
        {
            constexpr std::size_t VECTOR_SIZE = 16;
            auto const * const pVectors = static_cast<char const *>(pFloats != nullptr ? VectorsOf(pFloats) : nullptr);
            Context.nVectors = pVectors == nullptr ? 0 : sizeof(void *) == 8 ? 16 : 8;
            for (std::uint32_t i = 0; i < Context.nVectors; ++i)
            {
                std::memcpy(&Context.dVectors[i], pVectors + i * VECTOR_SIZE, sizeof Context.dVectors[i]);
            }
        }

        void CopyRegisters(ucontext_t const & Thread, FaultContext_t & Context)
        {
            auto const Register = [&Thread](int iRegister)
            { return static_cast<std::uintptr_t>(Thread.uc_mcontext.gregs[iRegister]); };
#if defined(__x86_64__)
            constexpr int EXTENDED[] = { REG_R8, REG_R9, REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15 };
            Context.nIp = Register(REG_RIP);
            Context.nSp = Register(REG_RSP);
            Context.nBp = Register(REG_RBP);
            Context.nAx = Register(REG_RAX);
            Context.nBx = Register(REG_RBX);
            Context.nCx = Register(REG_RCX);
            Context.nDx = Register(REG_RDX);
            Context.nSi = Register(REG_RSI);
            Context.nDi = Register(REG_RDI);
            for (std::size_t i = 0; i < std::size(EXTENDED); ++i)
            {
                Context.dExtended[i] = Register(EXTENDED[i]);
            }
            std::uint16_t dSegments[4];   // CS, GS, FS, SS
            std::memcpy(dSegments, &Thread.uc_mcontext.gregs[REG_CSGSFS], sizeof dSegments);
            Context.nCs = dSegments[0];
            Context.nGs = dSegments[1];
            Context.nFs = dSegments[2];
            Context.nSs = dSegments[3];
            __asm__ volatile("mov %%ds, %0" : "=r"(Context.nDs));   // the kernel leaves these two as they are
            __asm__ volatile("mov %%es, %0" : "=r"(Context.nEs));
#else
            Context.nIp = Register(REG_EIP);
            Context.nSp = Register(REG_ESP);
            Context.nBp = Register(REG_EBP);
            Context.nAx = Register(REG_EAX);
            Context.nBx = Register(REG_EBX);
            Context.nCx = Register(REG_ECX);
            Context.nDx = Register(REG_EDX);
            Context.nSi = Register(REG_ESI);
            Context.nDi = Register(REG_EDI);
            Context.nCs = Register(REG_CS) & 0xFFFF;
            Context.nSs = Register(REG_SS) & 0xFFFF;
            Context.nDs = Register(REG_DS) & 0xFFFF;
            Context.nEs = Register(REG_ES) & 0xFFFF;
            Context.nFs = Register(REG_FS) & 0xFFFF;
            Context.nGs = Register(REG_GS) & 0xFFFF;
#endif
            Context.nFlags = Register(REG_EFL);
        }
    }

    // The C library keeps its record of a thread in the page at the far end of the thread's stack. Memory above it may
    // belong to the same mapping. The first thread's stack grows as far as its limit allows.
    bool FaultFindStack(FaultContext_t const & Context, FaultStack_t * pStack)
    {
        Mapping_t Mapping;
        bool const bFound = FindWritableAbove(Context.nSp, Mapping);
        if (!bFound || (Mapping.Start > Context.nSp && Mapping.Start - Context.nSp > LARGEST_FRAME))
        {
            return false;
        }
        std::uintptr_t const AfterThread = (std::uintptr_t{ ::pthread_self() } | (MEMORY_PAGE - 1)) + 1;
        bool const bOfThread = AfterThread > Context.nSp && AfterThread > Mapping.Start && AfterThread <= Mapping.End;
        pStack->FarEnd = bOfThread ? AfterThread : Mapping.End;
        pStack->nSize = pStack->FarEnd - Mapping.Start;
        rlimit Limit;
        if (std::strcmp(Mapping.szPath, "[stack]") == 0 && ::getrlimit(RLIMIT_STACK, &Limit) == 0
            && Limit.rlim_cur != RLIM_INFINITY)
        {
            pStack->nSize = std::max(pStack->nSize, static_cast<std::size_t>(Limit.rlim_cur));
        }
        pStack->nUsed = std::min(pStack->FarEnd - Context.nSp, pStack->nSize);
        return true;
    }

    void FaultFromSignal(int iSignal, siginfo_t const & Info, ucontext_t const & Thread, FaultContext_t & Context,
        FaultRecord_t & Record)
    {
        Context = {};
        CopyRegisters(Thread, Context);
        CopyX87(Thread.uc_mcontext.fpregs, Context);
        CopyVectors(Thread.uc_mcontext.fpregs, Context);
        Context.iThread = static_cast<std::uint32_t>(CallingThread());
        Record = {};
        Record.Address = Context.nIp;
        DecodeRecord(iSignal, Info, Thread, Context, Record);
    }
}
