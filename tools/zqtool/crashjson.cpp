#include "tools/zqtool/crashjson.h"

#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/text.h"

#include <cstdio>

namespace
{
    // Returns an address or an offset as a text, because not every reader of JSON has integers of 64 bits.
    std::string Address(std::uint64_t nAddress)
    {
        char szAddress[24];
        std::snprintf(szAddress, sizeof szAddress, "0x%llx", static_cast<unsigned long long>(nAddress));
        return szAddress;
    }

    Json_t TextOrNull(std::string const & sText)
    {
        return sText.empty() ? Json_t() : Json_t(sText);
    }

    Json_t AddressOrNull(std::optional<std::uint64_t> nAddress)
    {
        return nAddress ? Json_t(Address(*nAddress)) : Json_t();
    }

    Json_t JsonOfVariable(CrashVariable_t const & Variable)
    {
        return { { "level", Variable.nLevel }, { "kind", Variable.sWord.empty() ? "member" : Variable.sWord },
            { "name", Variable.sName }, { "type", TextOrNull(Variable.sType) },
            { "value", TextOrNull(Variable.sValue) } };
    }

    template <typename T, typename CALL>
    Json_t ArrayOf(std::vector<T> const & dMembers, CALL const & fnJson)
    {
        Json_t Array = Json_t::array();
        for (T const & Member : dMembers)
        {
            Array.push_back(fnJson(Member));
        }
        return Array;
    }

    Json_t JsonOfFrame(CrashFrame_t const & Frame)
    {
        return { { "number", Frame.iNumber }, { "address", Address(Frame.nAddress) },
            { "module", TextOrNull(Frame.sModule) },
            { "section", Frame.iSection > 0 ? Json_t(Frame.iSection) : Json_t() },
            { "offset", Frame.sModule.empty() ? Json_t() : Json_t(Address(Frame.nOffset)) },
            { "function", TextOrNull(Frame.sFunction) },
            { "displacement",
                Frame.sFunction.empty() || Frame.bInlined ? Json_t() : Json_t(Address(Frame.nDisplacement)) },
            { "inlined", Frame.bInlined }, { "own", IsOwnFrame(Frame) }, { "file", TextOrNull(Frame.sFile) },
            { "line", Frame.iLine > 0 ? Json_t(Frame.iLine) : Json_t() }, { "leftOut", Frame.nLeftOut },
            { "source", Frame.dSource }, { "variables", ArrayOf(Frame.dVariables, JsonOfVariable) } };
    }

    Json_t JsonOfThread(CrashThread_t const & Thread)
    {
        return { { "number", TextOrNull(Thread.sNumber) }, { "name", TextOrNull(Thread.sName) },
            { "lock", TextOrNull(Thread.sLock) }, { "frames", ArrayOf(Thread.dFrames, JsonOfFrame) },
            { "fartherFrames", Thread.bFarther } };
    }

    Json_t JsonOfModule(CrashModule_t const & Module)
    {
        return { { "start", Address(Module.nStart) }, { "end", Address(Module.nEnd) },
            { "buildId", TextOrNull(Module.sBuildId) }, { "path", Module.sPath } };
    }

    Json_t JsonOfProcess(Crash_t const & Crash)
    {
        Json_t Facts = Json_t::object();
        for (CrashFact_t const & Fact : Crash.dFacts)
        {
            Facts.emplace(Fact.sKey, Fact.sValue);   // keeps the first value of a repeated key
        }
        return Facts;
    }

    Json_t JsonOfCrash(Crash_t const & Crash)
    {
        CrashFrame_t const * const pLikely = LikelyFrame(Crash.Thread.dFrames);
        return { { "file", Crash.sFile }, { "details", Crash.bDetails }, { "time", TextOrNull(Crash.sTime) },
            { "headline", CrashHeadline(Crash) }, { "signature", CrashSignature(Crash) }, { "kind", Crash.sKind },
            { "code", HexWord(Crash.nCode) }, { "codeText", Crash.sCodeText }, { "data", AddressOrNull(Crash.Data) },
            { "instruction", AddressOrNull(Crash.Instruction) }, { "exception", TextOrNull(Crash.sException) },
            { "depth", TextOrNull(Crash.sDepth) },
            { "likelyFrame", pLikely != nullptr ? Json_t(pLikely - Crash.Thread.dFrames.data()) : Json_t() },
            { "thread", JsonOfThread(Crash.Thread) }, { "threads", ArrayOf(Crash.dThreads, JsonOfThread) },
            { "modules", ArrayOf(Crash.dModules, JsonOfModule) }, { "process", JsonOfProcess(Crash) },
            { "memory", Crash.dMemory }, { "timers", Crash.dTimers }, { "log", Crash.dLog },
            { "incomplete", Crash.dCuts } };
    }
}

std::string CrashJson(Crash_t const & Crash)
{
    return JsonText(JsonOfCrash(Crash));
}

std::string CrashGroupJson(CrashGroup_t const & Group)
{
    return JsonText({ { "signature", Group.sSignature }, { "count", Group.nCount },
        { "first", TextOrNull(Group.sFirst) }, { "last", TextOrNull(Group.sLast) }, { "versions", Group.dVersions },
        { "sample", JsonOfCrash(Group.Sample) } });
}
