#include "platform/linux/faultdecode.h"
#include "tests/test_support.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <typeinfo>
#include <utility>

namespace
{
    using plat::FaultAccess_e;
    using Word_t = std::uintptr_t;

    // The processor's exceptions in the kernel's numbers: Intel SDM, volume 3, chapter 6.
    enum Exception_e : Word_t
    {
        DIVISION = 0,
        BREAKPOINT = 3,
        INTO_OVERFLOW = 4,
        BOUND_RANGE = 5,
        PROTECTION = 13,
        PAGE = 14,
        ALIGNMENT = 17,
        SIMD = 19
    };
#if defined(__x86_64__)
    constexpr int IP = REG_RIP, SP = REG_RSP, BP = REG_RBP, BX = REG_RBX, CX = REG_RCX, DI = REG_RDI;
#else
    constexpr int IP = REG_EIP, SP = REG_ESP, BP = REG_EBP, BX = REG_EBX, CX = REG_ECX, DI = REG_EDI;
#endif
    namespace outer
    {
        struct Thrown_s
        {};
    }

    constexpr std::size_t DIVISOR = 20;   // index of its word in dWords

    // Returns the bytes of numbers such as "F7 3B".
    std::string BytesFromHex(std::string_view sHex)
    {
        std::string sBytes;
        for (; !sHex.empty(); sHex.remove_prefix(std::min<std::size_t>(3, sHex.size())))
        {
            sBytes += static_cast<char>(std::stoi(std::string(sHex.substr(0, 2)), nullptr, 16));
        }
        return sBytes;
    }

    // A signal at an instruction, and words that the instruction may use.
    struct Signal_s
    {
        Signal_s(int iRaised, int iCode, Word_t nException, std::string_view sInstruction)
            : iSignal(iRaised)
        {
            std::string const sBytes = BytesFromHex(sInstruction);
            std::memcpy(dBytes + 1, sBytes.data(), sBytes.size());
            Info.si_code = iCode;
            Set(IP, AddressOf(dBytes + 1));
            Set(REG_TRAPNO, nException);
        }

        static Word_t AddressOf(void const * p) { return reinterpret_cast<Word_t>(p); }
        void Set(int iRegister, Word_t nValue) { Thread.uc_mcontext.gregs[iRegister] = static_cast<greg_t>(nValue); }

        std::uint32_t Decode()
        {
            plat::FaultFromSignal(iSignal, Info, Thread, Context, Record);
            return Record.nCode;
        }

        int iSignal;
        unsigned char dBytes[32] = {};   // the instruction from the second byte on
        std::uint32_t dWords[64] = {};
        siginfo_t Info{};
        ucontext_t Thread{};
        plat::FaultContext_t Context{};
        plat::FaultRecord_t Record{};
    };

    // Returns the code of a division. In dWords only the divisor is zero, or without bZero only the divisor is not.
    std::uint32_t CodeOfDivision(std::string_view sInstruction, bool bZero)
    {
        Signal_s Fault(SIGFPE, FPE_INTDIV, DIVISION, sInstruction);
        std::fill(std::begin(Fault.dWords), std::end(Fault.dWords), bZero ? ~0u : 0);
        Fault.dWords[DIVISOR] = Fault.dWords[DIVISOR + 1] = bZero ? 0 : ~0u;
        Fault.Set(BX, Fault.AddressOf(&Fault.dWords[DIVISOR]));
        Fault.Set(CX, 3);
        Fault.Set(SP, Fault.AddressOf(&Fault.dWords[DIVISOR - 4]));
        Fault.Set(BP, Fault.AddressOf(&Fault.dWords[DIVISOR + 8]));
        Fault.Set(DI, Fault.AddressOf(&Fault.dWords[DIVISOR - 3]));
#if defined(__x86_64__)
        Fault.Set(REG_R10, 4);
        Fault.Set(REG_R11, Fault.AddressOf(&Fault.dWords[DIVISOR - 4]));
#endif
        return Fault.Decode();
    }
}

TEST(FaultDecode, ADivisorInMemoryIsFoundInEachFormOfAnAddress)
{
    std::vector<std::string_view> dInstructions = {
        "F7 3B",                  // idiv dword [bx]
        "F6 3B",                  // idiv byte [bx]
        "66 F7 33",               // div word [bx]
        "F7 7D E0",               // idiv dword [bp-32]
        "F7 7C 24 10",            // idiv dword [sp+16]
        "F7 3C 8F",               // idiv dword [di+cx*4]
        "F7 BF 0C 00 00 00",      // idiv dword [di+12]
        "F7 3C 1D 00 00 00 00",   // idiv dword [bx*1+0]
    };
#if defined(__x86_64__)
    dInstructions.insert(dInstructions.end(),
        {
            "48 F7 3B",            // idiv qword [rbx]
            "43 F7 3C 93",         // idiv dword [r11+r10*4]
            "41 F7 7B 10",         // idiv dword [r11+16]
            "F7 3D 69 00 00 00",   // idiv dword [rip+0x69], from the instruction's end to the divisor
        });
#endif
    for (std::string_view const sInstruction : dInstructions)
    {
        EXPECT_EQ(CodeOfDivision(sInstruction, true), plat::FAULT_INTEGER_DIVIDE) << sInstruction;
        EXPECT_EQ(CodeOfDivision(sInstruction, false), plat::FAULT_INTEGER_OVERFLOW) << sInstruction;
    }
    // Operands of fs, of gs and of a short address, and aam.
    for (std::string_view const sUnknown : { "64 F7 3B", "65 F7 3B", "67 F7 3B", "D4 00" })
    {
        EXPECT_EQ(CodeOfDivision(sUnknown, false), plat::FAULT_INTEGER_DIVIDE) << sUnknown;
    }
}

TEST(FaultDecode, ADivisorInARegisterCountsInItsOwnWidth)
{
    auto const Code = [](std::string_view sInstruction, int iRegister, Word_t nValue)
    {
        Signal_s Fault(SIGFPE, FPE_INTDIV, DIVISION, sInstruction);
        Fault.Set(iRegister, nValue);
        return Fault.Decode();
    };
    EXPECT_EQ(Code("F7 FB", BX, 1), plat::FAULT_INTEGER_OVERFLOW);          // idiv ebx
    EXPECT_EQ(Code("66 F7 FB", BX, 0x10000), plat::FAULT_INTEGER_DIVIDE);   // idiv bx
    EXPECT_EQ(Code("F6 FB", BX, 0x100), plat::FAULT_INTEGER_DIVIDE);        // idiv bl
    EXPECT_EQ(Code("F6 FF", BX, 0x100), plat::FAULT_INTEGER_OVERFLOW);      // idiv bh
#if defined(__x86_64__)
    EXPECT_EQ(Code("F7 FB", BX, Word_t{ 1 } << 32), plat::FAULT_INTEGER_DIVIDE);        // idiv ebx
    EXPECT_EQ(Code("48 F7 FB", BX, Word_t{ 1 } << 32), plat::FAULT_INTEGER_OVERFLOW);   // idiv rbx
    EXPECT_EQ(Code("41 F7 FA", REG_R10, 5), plat::FAULT_INTEGER_OVERFLOW);              // idiv r10d
    EXPECT_EQ(Code("40 F6 FF", DI, 0x100), plat::FAULT_INTEGER_DIVIDE);                 // idiv dil
#endif
}

TEST(FaultDecode, PrivilegedInstructionsAreKnownByTheirBytes)
{
    auto const Decode = [](std::string_view sInstruction)
    { return Signal_s(SIGSEGV, SI_KERNEL, PROTECTION, sInstruction).Decode(); };
    // hlt; cli; sti; insb; outsw; in al, 16; in eax, dx; rep outsb; lgdt [ax]; invlpg [ax]; lmsw ax; xsetbv; swapgs;
    // lldt ax; ltr ax; clts; sysret; invd; wbinvd; wrmsr; rdmsr; rdpmc; sysexit; mov eax, cr0; mov dr0, eax
    for (std::string_view const sInstruction : { "F4", "FA", "FB", "6C", "66 6F", "E4 10", "ED", "F3 6E", "0F 01 10",
             "0F 01 38", "0F 01 F0", "0F 01 D1", "0F 01 F8", "0F 00 D0", "0F 00 D8", "0F 06", "0F 07", "0F 08", "0F 09",
             "0F 30", "0F 32", "0F 33", "0F 35", "0F 20 C0", "0F 23 C0" })
    {
        EXPECT_EQ(Decode(sInstruction), plat::FAULT_PRIVILEGED) << sInstruction;
    }
    // mov [bx], al; sgdt [ax]; xgetbv; rdtscp; sldt ax; rdtsc; nothing but prefixes
    for (std::string_view const sInstruction : { "88 03", "0F 01 00", "0F 01 D0", "0F 01 F9", "0F 00 C0", "0F 31",
             "66 66 66 66 66 66 66 66 66 66 66 66 66 66 66" })
    {
        EXPECT_EQ(Decode(sInstruction), plat::FAULT_ACCESS) << sInstruction;
    }
}

TEST(FaultDecode, SignalsWithoutAnInstructionToBlameHaveTheirOwnCodes)
{
    struct Row_s
    {
        int iSignal, iCode;
        Word_t nException;
        std::uint32_t nCode;
        FaultAccess_e eAccess;
    };
    for (Row_s const & Row : {
             Row_s{ SIGSEGV, SI_USER, PAGE, plat::FAULT_ACCESS, FaultAccess_e::Unknown },
             { SIGBUS, SI_USER, PAGE, plat::FAULT_IN_PAGE, FaultAccess_e::Unknown },
             { SIGILL, SI_USER, 0, plat::FAULT_ILLEGAL_INSTRUCTION, FaultAccess_e::NoMemory },
             { SIGFPE, SI_USER, 0, plat::FAULT_FLOAT_INVALID, FaultAccess_e::NoMemory },
             { SIGTRAP, SI_TKILL, 0, plat::FAULT_BREAKPOINT, FaultAccess_e::NoMemory },
             { SIGABRT, SI_TKILL, 0, plat::FAULT_ABORT, FaultAccess_e::NoMemory },
             { SIGTRAP, TRAP_TRACE, 0, plat::FAULT_SINGLE_STEP, FaultAccess_e::NoMemory },
             { SIGSEGV, SI_KERNEL, INTO_OVERFLOW, plat::FAULT_INTEGER_OVERFLOW, FaultAccess_e::NoMemory },
             { SIGSEGV, SI_KERNEL, BOUND_RANGE, plat::FAULT_ARRAY_BOUNDS, FaultAccess_e::NoMemory },
             { SIGFPE, FPE_FLTINV, SIMD, plat::FAULT_FLOAT_INVALID, FaultAccess_e::NoMemory },   // without its state
             { SIGBUS, BUS_ADRALN, ALIGNMENT, plat::FAULT_MISALIGNED, FaultAccess_e::Unknown },
             { SIGBUS, BUS_ADRERR, PAGE, plat::FAULT_IN_PAGE, FaultAccess_e::Read },
         })
    {
        Signal_s Fault(Row.iSignal, Row.iCode, Row.nException, "90");
        std::uint32_t const nCode = Fault.Decode();
        EXPECT_EQ(std::tuple(nCode, Fault.Record.eAccess, Fault.Record.Address),
            std::tuple(Row.nCode, Row.eAccess, Fault.AddressOf(Fault.dBytes + 1)))
            << Row.iSignal << ' ' << Row.iCode << ' ' << Row.nException;
    }

    Signal_s Break(SIGTRAP, SI_KERNEL, BREAKPOINT, "90");
    Break.dBytes[0] = 0xCC;   // the breakpoint before the place
    EXPECT_EQ(Break.Decode(), plat::FAULT_BREAKPOINT);
    EXPECT_EQ(Break.Record.Address, Break.AddressOf(Break.dBytes));
}

TEST(FaultDecode, APageFaultSaysWhatItsAccessWas)
{
    auto const Access = [](Word_t nErrorCode, bool bAtInstruction)
    {
        Signal_s Fault(SIGSEGV, SEGV_MAPERR, PAGE, "90");
        Fault.Set(REG_ERR, nErrorCode);
        Fault.Info.si_addr = bAtInstruction ? Fault.dBytes + 1 : nullptr;
        EXPECT_EQ(Fault.Decode(), plat::FAULT_ACCESS) << nErrorCode << ' ' << bAtInstruction;
        EXPECT_EQ(Fault.Record.dParameters[1], Fault.AddressOf(Fault.Info.si_addr)) << nErrorCode;
        return Fault.Record.eAccess;
    };
    // Bits of the error code (Intel SDM, volume 3, 4.7): 2 is a write, 4 the user's mode, 0x10 the fetch of an
    // instruction.
    EXPECT_EQ(Access(4, false), FaultAccess_e::Read);
    EXPECT_EQ(Access(6, false), FaultAccess_e::Write);
    EXPECT_EQ(Access(0x14, false), FaultAccess_e::Execute);
    EXPECT_EQ(Access(4, true), FaultAccess_e::Execute);   // no such bit if pages can't forbid execution
}

TEST(FaultDecode, AnExceptionIsDescribedByItsTypeAndItsMessage)
{
    auto const Describe = [](auto const & Thrown, std::size_t nSize = 200)
    {
        std::string sText(nSize, '?');
        try
        {
            throw Thrown;
        }
        catch (...)
        {
            plat::DescribeException(sText.data(), nSize);
        }
        return std::string(sText.c_str());
    };
    std::string const sHead = "Uncaught C++ exception ";
    EXPECT_EQ(Describe(5), sHead + "int");
    EXPECT_EQ(Describe(static_cast<char const *>("what\nit says")), sHead + "char const*: what\\nit says");
    EXPECT_EQ(Describe(static_cast<char const *>(nullptr)), sHead + "char const*");
    EXPECT_EQ(Describe(std::string("lost\n")), sHead + "std::string: lost\\n");
    EXPECT_EQ(Describe(static_cast<unsigned char const *>(nullptr)), sHead + "unsigned char const*");
    EXPECT_EQ(Describe(static_cast<char * const *>(nullptr)), sHead + "char* const*");
    EXPECT_EQ(Describe(std::runtime_error("\x1B[31m")), sHead + "std::runtime_error: \\x1B[31m");
    EXPECT_EQ(Describe(outer::Thrown_s()), sHead + "(anonymous namespace)::outer::Thrown_s");
    EXPECT_THAT(Describe(std::filesystem::filesystem_error("gone", {})),
        testing::ContainsRegex("exception std::filesystem::([a-z0-9_]+::)?filesystem_error: .*gone"));
    EXPECT_EQ(Describe(std::pair(1, 2)), sHead + typeid(std::pair<int, int>).name());   // forms that are not decoded
    EXPECT_EQ(Describe(&std::abort), sHead + typeid(void (*)() noexcept).name());
    EXPECT_EQ(Describe(std::runtime_error("cut"), sHead.size() + 9), sHead + "std::run");
}
