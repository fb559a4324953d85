// values.cpp: a program that crashes with variables of many kinds in its frames. compare.py compares what the report
// says of them with what a debugger says.
#include "tests/notinlined.h"
#include "zqcore/clog.h"
#include "zqcore/cstring.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace
{
    enum class Colour_e : short
    {
        Red = 3,
        Blue
    };
    enum class Wide_e : unsigned long long
    {
        Top = 1ull << 63
    };
    union Either_u
    {
        int nNumber;
        float fNumber;
    };
    struct Base_s
    {
        virtual ~Base_s() = default;
        long long iBase = -5;
    };
    struct Whole_s : Base_s
    {
        struct Inner_s
        {
            Colour_e eColour = Colour_e::Red;
            char const * szText = "inner";
        };
        Inner_s Inner;
        Either_u Either = { 7 };
        unsigned nLow : 3 = 5, nHigh : 9 = 300;
        double dNumbers[1] = { 2.5 };
        static int s_nShared;
    };
    int Whole_s::s_nShared = 1;

    // Structure that is passed by a hidden reference.
    struct Passed_s
    {
        explicit Passed_s(int n)
            : nPassed(n)
        {}
        Passed_s(Passed_s const & Other)
            : nPassed(Other.nPassed + 1)
        {}
        int nPassed;
    };

    int * volatile g_pNowhere = nullptr;

    // Make the compiler keep a variable in memory, or several.
    template <typename T>
    inline void KeepOne(T const & Variable)
    {
        asm volatile("" ::"r"(&Variable) : "memory");
    }
    template <typename... T>
    inline void Keep(T const &... Variables)
    {
        (KeepOne(Variables), ...);
    }

    // Faults. The register of the hidden reference is known only from the call.
    NOT_INLINED int Fault(Passed_s Passed, float fParameter)
    {
        bool bBool = true;
        char cChar = 'x';
        signed char iSigned = -1;
        unsigned short nShort = 65535;
        float fFloat = 1.5f;
        long double fLong = 3;
        __float128 fQuad = -1.5;
        __complex__ float Complex = 1.5f;
        __imag__ Complex = 2;
        char const * szText = "a text of more than thirty-one characters";
        int dInts[1] = { 9 };
        float dFloats[1] = { 0.25f };
        char dChars[4] = "abc";
        int dMany[3] = { 1, 2, 3 };
        Keep(bBool, cChar, iSigned, nShort, fFloat, fLong, fQuad, Complex, szText, dInts, dFloats, dChars, dMany,
            fParameter);
        asm volatile("" ::: "rdi", "memory");
        return *g_pNowhere;
    }

    template <typename T>
    inline __attribute__((always_inline)) int FaultInlined(T Value)
    {
        T Twice = Value * 2;
        Keep(Value, Twice);
        return Fault(Passed_s(static_cast<int>(Twice)), 0.5f) + static_cast<int>(Twice);
    }

    struct Object_s
    {
        int nMember = 11;

        __attribute__((noinline)) int Run(int nRuns)
        {
            int nCaptured = nRuns + 1;
            Whole_s Whole;
            Whole_s const & Reference = Whole;
            auto fnLambda = [this, nCaptured, &Whole](int iArgument) __attribute__((noinline))
            {
                int nInLambda = iArgument + nCaptured + nMember;
                Keep(nInLambda);
                int nKept = nInLambda * 3;   // in a register during the call, if one is free
                return FaultInlined(static_cast<double>(nInLambda)) + static_cast<int>(Whole.iBase) + nKept;
            };
            Keep(nCaptured, Whole, Reference, fnLambda, *this);
            for (int nInLoop = 0; nInLoop < 2; ++nInLoop)
            {
                static int s_nCount = 90;
                Keep(nInLoop, s_nCount);
                if (nRuns > 2)
                {
                    long iInBlock = -7;
                    Keep(iInBlock);
                    return fnLambda(static_cast<int>(iInBlock)) + s_nCount;
                }
            }
            return Run(nRuns + 1) + nCaptured;
        }
    };

    // Holds variables of many kinds during the fault. Except Object, whatever is not kept in memory is used after the
    // call.
    NOT_INLINED int Contain(Object_s & Object, std::string_view sView, std::optional<short> iPassed, Colour_e eColour)
    {
        std::string sText("a text that is too long for the object"), sShort("a \"text\"\n");
        std::vector<int> dNumbers(20, 70000);
        std::vector<std::string> const dTexts = { sShort, "two" };
        std::optional<Colour_e> eSome = eColour;
        std::optional<int> iNone;
        std::unique_ptr<Colour_e> pOwned = std::make_unique<Colour_e>(eColour), pNone;
        std::string_view const sKept = sView.substr(2, 3);
        String_T<16> sFixed("fixed");
        Whole_s dWholes[2];
        Wide_e const eWide = Wide_e::Top;
        wchar_t const * wszWide = L"w\u00EFde";
        char16_t const * szPair = u"a \U0001F600 pair";
        int (*fnCall)(Passed_s, float) = Fault;
        Colour_e const eUsed = static_cast<Colour_e>(static_cast<int>(eColour) + 1);
        long iUsed = sText.size() * -1000L;
        Keep(sText, sShort, dNumbers, dTexts, eSome, iNone, pOwned, pNone, sKept, sFixed, dWholes, eWide, wszWide,
            szPair, fnCall);
        int const nResult = Object.Run(1);
        Keep(sText, dNumbers, dTexts, eSome, iNone);
        return nResult + static_cast<int>(eUsed) + static_cast<int>(iUsed) + static_cast<int>(sView.size()) + sView[0]
               + *iPassed + static_cast<int>(eColour);
    }
}

int main()
{
    LogSetFile(L"./", L"message.log");
    Object_s Object;
    return Contain(Object, "a view", 7, Colour_e::Red);
}
