// symbols_fuzz.cpp: the library with any records from its helper. No process starts. The records wait in the socket.
//
// The first byte is the number of calls that follow, one byte each. A record has a byte for its kind, one for the
// length of its text, its values of one byte or of eight, and the text.
#include "fuzz/fuzz_support.h"
#include "platform/linux/symbolprotocol.h"
#include "platform/symbols.h"
#include "zqcore/cexceptionreport_internal.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <vector>

namespace
{
    Input_c * g_pInput = nullptr;
    int g_hHelper = -1;
    std::uint32_t g_nAnswers = 0;   // sent; also the number of the last one's request if none was skipped

    // Sends a record to the library. Bits of its kind:
    // - 1 and 2: these bits are the answer.
    // - 4: the values have eight bytes.
    // - 8: the text fills its room.
    // - 16: the length of the text is that of the whole record.
    // - 32: the third value counts from the start of the page.
    // - 64: the length of the text is also the number of the request.
    void SendRecord()
    {
        plat::SymbolAnswer_t Answer{};
        unsigned char const cKind = g_pInput->Get(), nText = g_pInput->Get();
        Answer.eAnswer = static_cast<plat::SymbolAnswer_e>(cKind & 3);
        g_nAnswers += Answer.eAnswer == plat::ANSWER_NEEDS_MEMORY ? 0 : 1;
        Answer.iRequest = cKind & 64 ? nText : g_nAnswers;
        for (std::uint64_t & nValue : Answer.dValues)
        {
            nValue = cKind & 4 ? g_pInput->Get<std::uint64_t>() : g_pInput->Get();
        }
        static void * const s_pPage =
            mmap(reinterpret_cast<void *>(0x100000), plat::SYMBOL_PAGE, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        Answer.dValues[2] += cKind & 32 ? reinterpret_cast<std::uintptr_t>(s_pPage) : 0;   // of a variable, the address
        std::size_t const nTaken = g_pInput->Extract(nText).copy(Answer.szText, nText);
        std::memset(Answer.szText + nTaken, 'x', cKind & 8 ? plat::SYMBOL_TEXT - nTaken : 0);
        std::size_t const nSent = plat::SYMBOL_ANSWER_HEAD + (cKind & 8 ? plat::SYMBOL_TEXT : nTaken);
        send(g_hHelper, &Answer, cKind & 16 ? nText : nSent, MSG_DONTWAIT);
    }

    // Calls one of the functions. The lower three bits of cCall select it. The others are its argument.
    void Call(plat::Symbols_c & Symbols, unsigned char cCall)
    {
        unsigned const nArgument = cCall >> 3;
        unsigned iLine;
        std::vector<char> dText(nArgument + 1, 'x');   // of exactly the size, for the checker
        std::uint64_t nDisplacement;
        plat::SymbolFrame_t Frame;
        plat::SymbolVariable_t Variable;
        plat::SymbolMember_t Member;
        switch (cCall & 7)
        {
        case 0:
            return exceptionreport::WriteCallStack(Symbols, (nArgument & 1) != 0, nullptr);
        case 1:
            return Require(!Symbols.NextVariable(&Variable) || std::memchr(Variable.szName, 0, sizeof Variable.szName));
        case 2:
            Require(Symbols.TypeMembers(nArgument) <= plat::SYMBOL_MEMBERS);
            Symbols.TypeMember(nArgument, nArgument, &Member);
            Symbols.TypeBase(nArgument);
            return;
        case 3:
            Require(Symbols.FunctionAt(nArgument, dText.data(), nArgument + 1, &nDisplacement) || dText[0] == '\0');
            break;
        case 4:
            Require(Symbols.LineAt(nArgument, dText.data(), nArgument + 1, &iLine) || dText[0] == '\0');
            break;
        case 5:
            Require(Symbols.TypeName(nArgument, dText.data(), nArgument + 1) || dText[0] == '\0');
            break;
        case 6:
            Require(Symbols.NextDetail(plat::SECTION_THREADS, dText.data(), nArgument + 1) || dText[0] == '\0');
            break;
        default:
            Symbols.NextFrame(&Frame);
            return;
        }
        Require(std::memchr(dText.data(), 0, dText.size()) != nullptr);
    }
}

// Replaces the system's function. Sends the records instead of starting the helper, and returns 1 as the helper's
// process number. The argument begins with the helper's end of the socket.
extern "C" int __wrap___clone(int (*)(void *), void *, int, void * pLaunch, ...)
{
    g_hHelper = dup(*static_cast<int const *>(pLaunch));
    g_nAnswers = 0;
    while (!g_pInput->IsEmpty())
    {
        SendRecord();
    }
    shutdown(g_hHelper, SHUT_WR);
    return 1;
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    std::string const sCalls = Input.Extract(Input.Get());
    g_pInput = &Input;
    plat::SymbolsSetHelper("helper");
    plat::FaultContext_t Context;
    plat::FaultContextCapture(&Context);
    Context.nBp = 8;   // without the helper there is one frame
    g_hHelper = -1;
    plat::Symbols_c Symbols;
    Require(Symbols.Start(&Context) == Symbols.IsRunning());
    Require(g_hHelper != -1);   // otherwise the library starts the helper by another function
    for (char const cCall : sCalls)
    {
        Call(Symbols, static_cast<unsigned char>(cCall));
    }
    Symbols.Stop();
    close(g_hHelper);
    return 0;
}
