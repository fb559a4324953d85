#include "platform/symbols.h"

#include "platform/faults.h"
#include "platform/linux/symbolprotocol.h"
#include "tests/machine_support.h"
#include "tests/notinlined.h"

#include <array>
#include <execinfo.h>

using Look_t = std::function<void(plat::FaultContext_t const &)>;

// A stack of functions of many kinds. Each but the innermost notes the line of its call.
namespace symbols_test
{
    std::vector<unsigned> g_dLines;   // of the calls, outermost first

    NOT_INLINED unsigned Note(unsigned iLine)
    {
        g_dLines.push_back(iLine);
        return iLine;
    }

    // Calls fnLook. Each function of the stack does more after its call, so that none is a tail call. Their results
    // mean nothing.
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
}

namespace
{
    using namespace symbols_test;

    struct Frame_s
    {
        plat::SymbolFrame_t Frame;
        std::string sName;
        std::string sPlace;   // "file:line", empty if unknown
    };

    std::vector<Frame_s> Walk(plat::Symbols_c & Symbols)
    {
        std::vector<Frame_s> dFrames;
        std::array<char, 4096> szText{};
        std::uint64_t nDisplacement;
        unsigned iLine;
        for (Frame_s At{}; Symbols.NextFrame(&At.Frame); dFrames.push_back(At))
        {
            std::uintptr_t const nInside = At.Frame.Address - (dFrames.empty() ? 0 : 1);
            Symbols.FunctionAt(nInside, szText.data(), szText.size(), &nDisplacement);
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

    // Scope in which sPath is the path of the helper, empty for none.
    class HelperScope_c
    {
    public:
        explicit HelperScope_c(std::string const & sPath) { plat::SymbolsSetHelper(sPath.c_str()); }
        ~HelperScope_c() { plat::SymbolsSetHelper(ZQSYMBOLS_PATH); }
        HelperScope_c & operator=(HelperScope_c &&) = delete;
    };

    // Ends the helper, a child of the main thread. Returns false if the system does not list it.
    bool KillHelper()
    {
        std::string const sOwn = std::to_string(getpid());
        std::ifstream Children("/proc/self/task/" + sOwn + "/children");
        for (int iChild = 0; Children >> iChild;)
        {
            std::string sName;
            std::ifstream("/proc/" + std::to_string(iChild) + "/comm") >> sName;
            if (sName == "zqsymbols")
            {
                return kill(iChild, SIGKILL) == 0;
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
        NEEDS_ZQSYMBOLS;
        NEEDS_VFORK;
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
        if (i != 0)   // the innermost notes no line
        {
            EXPECT_EQ(dFrames[i].sPlace, __FILE__ ":" + std::to_string(g_dLines[NAMES.size() - 1 - i]));
        }
    }
    EXPECT_EQ(std::count_if(dFrames.begin(), dFrames.end(), [](Frame_s const & At) { return At.sName == "main"; }), 1);
    // Both walks end at the same frame. The runtime's begins further in.
    ASSERT_GT(nTheirs, dFrames.size());
    for (std::size_t i = 1; i < dFrames.size(); ++i)
    {
        std::uintptr_t const nOurs = dFrames[dFrames.size() - i].Frame.Address;
        EXPECT_EQ(nOurs, reinterpret_cast<std::uintptr_t>(dTheirs[nTheirs - i])) << i;
    }
}

TEST_F(SymbolWalk, AWalkGoesOnWhenTheHelperDies)
{
    Hidden(
        [&](plat::FaultContext_t const & Context)
        {
            std::vector<std::uintptr_t> const dReal = Addresses(WalkFrom(Context));
            plat::Symbols_c Symbols;
            plat::SymbolFrame_t Frame;
            EXPECT_EACH(Symbols.Start(&Context), Symbols.NextFrame(&Frame));
            SKIP_IF(!KillHelper(), "the kernel does not list a thread's children");
            for (std::size_t i = 1; i < NAMES.size(); ++i)
            {
                ASSERT_TRUE(Symbols.NextFrame(&Frame)) << i;
                EXPECT_EQ(Frame.Address, dReal[i]) << i;
                EXPECT_FALSE(Symbols.IsRunning()) << i;
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
            // Instruction, stack pointer, frame pointer, and the addresses that the walk reports.
            Rows_t<std::uintptr_t, std::uintptr_t, std::uintptr_t, std::vector<std::uintptr_t>> const dRows = {
                { Real.nIp, 8, 8, { Real.nIp } }, { 0, 8, 8, { 0 } }, { 0, nSlot, 8, { 0, nReturn } }
            };
            for (bool const bHelper : { true, false })
            {
                HelperScope_c const Scope(bHelper ? ZQSYMBOLS_PATH : "");
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
    plat::SymbolStart_t const Start{ plat::SYMBOL_MAGIC, 0, 0, 0, 0, {}, {}, 0 };   // addresses of 0 bytes
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
