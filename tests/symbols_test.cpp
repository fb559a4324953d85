#include "platform/symbols.h"

#include "platform/checker.h"
#include "platform/faults.h"
#include "platform/linux/symbolprotocol.h"
#include "platform/memory.h"
#include "tests/machine_support.h"

#include <array>
#include <execinfo.h>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#ifdef __clang__
    #define NOT_INLINED __attribute__((noinline))
#else
    #define NOT_INLINED __attribute__((noipa))
#endif

using Look_t = std::function<void(plat::FaultContext_t const &)>;

// A stack of functions of many kinds. Each notes the line of its call.
namespace symbols_test
{
    std::vector<unsigned> g_dLines;   // of the calls, outermost first

    NOT_INLINED unsigned Note(unsigned iLine)
    {
        g_dLines.push_back(iLine);
        return iLine;
    }

    // What the calls return is used after them, so that none is a jump.
    NOT_INLINED unsigned Innermost(Look_t const & fnLook)
    {
        plat::FaultContext_t Context;
        plat::FaultContextCapture(&Context);
        fnLook(Context);
        return Context.iThread & 1;
    }

    struct Shape_s
    {
        explicit Shape_s(Look_t const & fn)
            : fnLook(fn)
        {}
        virtual ~Shape_s() = default;
        NOT_INLINED unsigned operator()(unsigned n) const { return Note(__LINE__) + Innermost(fnLook) + n; }
        NOT_INLINED operator unsigned() const { return Note(__LINE__) + (*this)(1); }
        NOT_INLINED virtual unsigned Turn() { return Note(__LINE__) + unsigned(*this); }

        Look_t const & fnLook;
    };

    template <typename T, int N>
    NOT_INLINED unsigned Twice(T & Shape)
    {
        return Note(__LINE__) + Shape.Turn() + N;
    }

    namespace
    {
        NOT_INLINED unsigned Hidden(Look_t const & fnLook)
        {
            Shape_s Shape(fnLook);
            auto const fnCall = [&](int) NOT_INLINED { return Note(__LINE__) + Twice<Shape_s, 2>(Shape); };
            return Note(__LINE__) + fnCall(1);
        }
    }

    std::vector<std::string> const NAMES = { "symbols_test::Innermost", "symbols_test::Shape_s::operator()",
        "symbols_test::Shape_s::operator unsigned int", "symbols_test::Shape_s::Turn",
        "symbols_test::Twice<symbols_test::Shape_s, 2>", "::operator()",
        "symbols_test::(anonymous namespace)::Hidden" };
    constexpr std::size_t LAMBDA = 5;   // each compiler has a name of its own for it

    enum Colour_e : short
    {
        COLOUR_RED = 3
    };
    struct Base_s
    {
        int nBase = 17;
    };
    struct Inner_s
    {
        short nShort = -2;
        float fValue = 0.5f;
    };
    struct Whole_s : Base_s
    {
        Inner_s Inner;
        static int s_nShared;
        unsigned nLow : 3 = 5;
    };
    using Alias_t = Whole_s const;

    std::vector<std::string> const LOCALS = { "bBool=1", "fFloat=3FC00000", "fDouble=BFD0000000000000", "pNone=0",
        "dArray:12", "eColour symbols_test::Colour_e=3",
        "Whole symbols_test::Whole_s{symbols_test::Base_s{nBase=11}, Inner{nShort=FFFE, fValue=3F000000}, "
        "nLow=5}",
        "nStatic=5A", "nInBlock=FFFFFFFF" };

    // The compiler must keep what has these addresses in memory.
    template <typename... T>
    void Keep(T const &... Variables)
    {
        void const volatile * const dAddresses[] = { &Variables... };
        asm volatile("" ::"r"(dAddresses) : "memory");
    }

    NOT_INLINED unsigned Locals(Look_t const & fnLook, int nParameter)
    {
        bool bBool = true;
        float fFloat = 1.5f;
        double fDouble = -0.25;
        int * pNone = nullptr;
        int dArray[3] = { 1, 2, 3 };
        Colour_e eColour = COLOUR_RED;
        Alias_t Whole{};
        static int volatile nStatic = 90;
        Keep(bBool, fFloat, fDouble, pNone, dArray, eColour, Whole);
        if (nParameter > 0)
        {
            int nInBlock = -1;
            Keep(nInBlock);
            return Innermost(fnLook) + static_cast<unsigned>(nInBlock + nStatic);
        }
        else
        {
            int nElsewhere = 1;
            Keep(nElsewhere);
            return static_cast<unsigned>(nElsewhere + nStatic);
        }
    }
}

namespace
{
    using namespace symbols_test;

    struct Frame_s
    {
        plat::SymbolFrame_t Frame;
        std::string sName;
        std::string sPlace;   // "file:line", empty if unknown
        std::uint64_t nDisplacement;
    };

    std::vector<Frame_s> Walk(plat::Symbols_c & Symbols)
    {
        std::vector<Frame_s> dFrames;
        std::array<char, 4096> szText{};
        unsigned iLine;
        for (Frame_s At{}; Symbols.NextFrame(&At.Frame); dFrames.push_back(At))
        {
            std::uintptr_t const nInside = At.Frame.Address - (dFrames.empty() ? 0 : 1);
            Symbols.FunctionAt(nInside, szText.data(), szText.size(), &At.nDisplacement);
            At.sName = szText.data();
            bool const bLine = Symbols.LineAt(nInside, szText.data(), szText.size(), &iLine);
            At.sPlace = bLine ? std::string(szText.data()) + ":" + std::to_string(iLine) : "";
        }
        return dFrames;
    }

    std::vector<Frame_s> WalkFrom(plat::FaultContext_t const & Context)
    {
        plat::Symbols_c Symbols;
        EXPECT_TRUE(Symbols.Start(&Context));
        return Walk(Symbols);
    }

    std::vector<std::uintptr_t> Addresses(std::vector<Frame_s> const & dFrames)
    {
        std::vector<std::uintptr_t> dAddresses;
        for (Frame_s const & Frame : dFrames)
        {
            dAddresses.push_back(Frame.Frame.Address);
        }
        return dAddresses;
    }

    // Sets the helper for a scope.
    struct HelperScope_s
    {
        explicit HelperScope_s(std::string const & sPath) { plat::SymbolsSetHelper(sPath.c_str()); }
        ~HelperScope_s() { plat::SymbolsSetHelper(ZQSYMBOLS_PATH); }
        HelperScope_s & operator=(HelperScope_s &&) = delete;
    };

    std::string Number(std::uint64_t nValue)
    {
        std::ostringstream Text;
        Text << std::hex << std::uppercase << nValue;
        return Text.str();
    }

    // The bits of a value, the members of a structure in braces.
    std::string Value(plat::Symbols_c & Symbols, plat::SymbolMember_t const & Of, std::uintptr_t Address)
    {
        std::string sText;
        std::array<char, 1024> szName{};
        plat::SymbolMember_t Member;
        for (unsigned i = 0; Symbols.TypeMember(Of.iType, i, &Member); ++i)
        {
            Symbols.TypeName(Member.iType, szName.data(), szName.size());
            sText += (i == 0 ? "{" : ", ") + std::string(szName.data()) + Value(Symbols, Member, Address);
        }
        std::uint64_t nValue = 0;
        std::uintptr_t const nFrom = Address + static_cast<std::uintptr_t>(Of.nOffset);
        bool const bSimple = Of.nSize <= sizeof(nValue)
                             && plat::MemoryRead(nFrom, &nValue, static_cast<std::size_t>(Of.nSize)) == Of.nSize;
        nValue = Of.nBits != 0 ? nValue >> Of.nFirstBit & ((1u << Of.nBits) - 1) : nValue;
        return !sText.empty() ? sText + "}" : bSimple ? "=" + Number(nValue) : ":" + std::to_string(Of.nSize);
    }

    // The local variables in memory of the frame around the innermost one.
    std::vector<std::string> VariablesAround(plat::FaultContext_t const & Context)
    {
        plat::Symbols_c Symbols;
        plat::SymbolFrame_t Frame;
        std::vector<std::string> dVariables;
        std::array<char, 1024> szType{};
        EXPECT_EACH(Symbols.Start(&Context), Symbols.NextFrame(&Frame), Symbols.NextFrame(&Frame));
        for (plat::SymbolVariable_t Variable; Symbols.NextVariable(&Variable);)
        {
            bool const bNamed = Symbols.TypeName(Variable.iType, szType.data(), szType.size());
            if (Variable.ePlace == plat::PLACE_MEMORY && Variable.eKind != plat::SYMBOL_PARAMETER)
            {
                dVariables.push_back(std::string(Variable.szName) + (bNamed ? " " : "") + szType.data()
                                     + Value(Symbols, { Variable.iType, 0, Variable.nSize, 0, 0 }, Variable.Address));
            }
        }
        return dVariables;
    }

    // Ends the helper among our children; false if it isn't listed.
    bool KillHelper()
    {
        std::string const sOwn = std::to_string(getpid());
        std::ifstream Children("/proc/self/task/" + sOwn + "/children");
        for (int nChild = 0; Children >> nChild;)
        {
            std::string sName;
            std::ifstream("/proc/" + std::to_string(nChild) + "/comm") >> sName;
            if (sName == "zqsymbols")
            {
                return kill(nChild, SIGKILL) == 0;
            }
        }
        return false;
    }
}

class SymbolWalk : public testing::Test
{
protected:
    void SetUp() override
    {
        SKIP_IF(access(ZQSYMBOLS_PATH, X_OK) != 0, "zqsymbols is not built here: libdw was not found");
        SKIP_IF(!SharesMemoryUntilExec(), "a child of vfork has its own memory, so no program starts from a fault");
        g_dLines.clear();
    }
};

TEST_F(SymbolWalk, HasTheNamesAndLinesOfTheFramesThatTheRuntimeWalks)
{
    std::vector<Frame_s> dFrames;
    std::array<void *, 200> dTheirs{};
    std::size_t nTheirs = 0;
    Hidden(
        [&](plat::FaultContext_t const & Context)
        {
            dFrames = WalkFrom(Context);
            nTheirs = static_cast<std::size_t>(backtrace(dTheirs.data(), static_cast<int>(dTheirs.size())));
        });
    ASSERT_GT(dFrames.size(), NAMES.size());
    for (std::size_t i = 0; i < NAMES.size(); ++i)
    {
        EXPECT_THAT(dFrames[i].sName, testing::EndsWith(NAMES[i]));
        EXPECT_EQ(dFrames[i].sName.size() == NAMES[i].size(), i != LAMBDA) << dFrames[i].sName;
        EXPECT_EQ(i == 0 ? "" : dFrames[i].sPlace,
            i == 0 ? "" : __FILE__ ":" + std::to_string(g_dLines[NAMES.size() - 1 - i]));
    }
    EXPECT_EQ(std::count_if(dFrames.begin(), dFrames.end(), [](Frame_s const & At) { return At.sName == "main"; }), 1);
    // Both end at the same frame; theirs begins further in.
    ASSERT_GT(nTheirs, dFrames.size());
    for (std::size_t i = 1; i < dFrames.size(); ++i)
    {
        std::uintptr_t const nOurs = dFrames[dFrames.size() - i].Frame.Address;
        EXPECT_EQ(nOurs, reinterpret_cast<std::uintptr_t>(dTheirs[nTheirs - i])) << i;
    }
}

TEST_F(SymbolWalk, ReadsTheVariablesInMemory)
{
    SKIP_IF(plat::ADDRESS_CHECKER, "the checker moves locals to places that the compiler does not report");
    std::vector<std::string> dVariables;
    Locals([&](plat::FaultContext_t const & Context) { dVariables = VariablesAround(Context); }, 7);
    EXPECT_THAT(dVariables, testing::UnorderedElementsAreArray(LOCALS));
}

TEST_F(SymbolWalk, AWalkGoesOnWhenTheHelperDies)
{
    Hidden(
        [&](plat::FaultContext_t const & Context)
        {
            std::vector<std::uintptr_t> dReal = Addresses(WalkFrom(Context));
            plat::Symbols_c Symbols;
            plat::SymbolFrame_t Frame;
            EXPECT_EACH(Symbols.Start(&Context), Symbols.NextFrame(&Frame));
            SKIP_IF(!KillHelper(), "the kernel does not list a thread's children");
            for (std::size_t i = 1; i < NAMES.size(); ++i)
            {
                ASSERT_TRUE(Symbols.NextFrame(&Frame));
                EXPECT_EQ(Frame.Address, dReal[i]);
                EXPECT_FALSE(Symbols.IsRunning());
            }
        });
}

TEST_F(SymbolWalk, MemoryThatCannotBeReadEndsTheWalk)
{
    Hidden(
        [&](plat::FaultContext_t const & Real)
        {
            std::uintptr_t nReturn = Addresses(WalkFrom(Real))[1];
            auto const nSlot = reinterpret_cast<std::uintptr_t>(&nReturn);
            // Instruction, stack pointer and frame pointer; the addresses that the walk reports.
            Rows_t<std::uintptr_t, std::uintptr_t, std::uintptr_t, std::vector<std::uintptr_t>> const dRows = {
                { Real.nIp, 8, 8, { Real.nIp } }, { 0, 8, 8, { 0 } }, { 0, nSlot, 8, { 0, nReturn } }
            };
            for (bool const bHelper : { true, false })
            {
                HelperScope_s const Scope(bHelper ? ZQSYMBOLS_PATH : "");
                for (auto const & [nIp, nSp, nBp, dExpected] : dRows)
                {
                    plat::FaultContext_t Context = Real;
                    Context.nIp = nIp;
                    Context.nSp = nSp;
                    Context.nBp = nBp;
                    plat::Symbols_c Symbols;
                    EXPECT_EQ(Symbols.Start(&Context), bHelper);
                    EXPECT_EQ(Addresses(Walk(Symbols)), dExpected) << bHelper << ' ' << nIp << ' ' << nSp;
                }
            }
        });
}

TEST_F(SymbolWalk, TheHelperRefusesAnotherWordSize)
{
    int dEnds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, dEnds), 0);
    plat::SymbolStart_t const Start{ plat::SYMBOL_MARK, 0, 0, 0, 0, {}, {}, 0 };
    plat::SymbolRequest_t const Request{ plat::ASK_FRAME, 0, 0 };
    plat::SymbolMemory_t const Memory{ 1, {} };
    send(dEnds[0], &Start, sizeof Start, 0);
    send(dEnds[0], &Request, sizeof Request, 0);
    send(dEnds[0], &Memory, sizeof Memory, 0);
    shutdown(dEnds[0], SHUT_WR);
    pid_t const iHelper = StartChild(
        [&] { return dup2(dEnds[1], plat::SYMBOL_SOCKET) >= 0 ? execl(ZQSYMBOLS_PATH, ZQSYMBOLS_PATH, nullptr) : 0; });
    EXPECT_EQ(StatusOfChild(iHelper), 1);
    close(dEnds[0]);
    close(dEnds[1]);
}
