#include "tools/zqtool/crashjson.h"

#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/text.h"

#include <cstdio>
#include <unordered_set>

namespace
{
    // Writes values into a text, without a tree of them in memory: a crash has thousands.
    class Json_c
    {
    public:
        // Calls fnMembers, which adds the members.
        template <typename CALL>
        void Object(CALL const & fnMembers)
        {
            Begin();
            m_sText += '{';
            fnMembers();
            m_sText += '}';
        }

        // Calls fnValue, which adds one value, with each.
        template <typename T, typename CALL>
        void Array(std::vector<T> const & dValues, CALL const & fnValue)
        {
            Begin();
            m_sText += '[';
            for (T const & Value : dValues)
            {
                fnValue(Value);
            }
            m_sText += ']';
        }

        // Begins a member. The next value is its own.
        Json_c & Key(std::string_view sKey)
        {
            Text(sKey);
            m_sText += ':';
            return *this;
        }

        void Text(std::string_view sText)
        {
            Begin();
            AppendJsonQuoted(m_sText, sText);
        }
        void Texts(std::vector<std::string> const & dTexts)
        {
            Array(dTexts, [this](std::string const & sText) { Text(sText); });
        }
        void Number(std::uint64_t nNumber) { Plain(std::to_string(nNumber)); }
        void Truth(bool bTruth) { Plain(bTruth ? "true" : "false"); }

        // What is unknown is null.
        void TextIf(bool bKnown, std::string_view sText)
        {
            if (bKnown)
            {
                Text(sText);
            }
            else
            {
                Plain("null");
            }
        }
        void TextOrNull(std::string_view sText) { TextIf(!sText.empty(), sText); }
        void NumberIf(bool bKnown, std::uint64_t nNumber) { Plain(bKnown ? std::to_string(nNumber) : "null"); }

        // Addresses are texts: they may be larger than the integers that every reader of JSON has.
        void AddressIf(bool bKnown, std::uint64_t nAddress)
        {
            char szAddress[24];
            std::snprintf(szAddress, sizeof szAddress, "0x%llx", static_cast<unsigned long long>(nAddress));
            TextIf(bKnown, szAddress);
        }
        void Address(std::uint64_t nAddress) { AddressIf(true, nAddress); }

        std::string Take() { return std::move(m_sText); }

    private:
        void Begin()
        {
            char const cLast = m_sText.empty() ? '{' : m_sText.back();
            m_sText += cLast == '{' || cLast == '[' || cLast == ':' ? "" : ",";
        }

        void Plain(std::string_view sValue)
        {
            Begin();
            m_sText += sValue;
        }

        std::string m_sText;
    };

    void AddVariable(Json_c & Json, CrashVariable_t const & Variable)
    {
        Json.Object(
            [&]
            {
                Json.Key("level").Number(static_cast<std::uint64_t>(Variable.nLevel));
                Json.Key("kind").Text(Variable.sWord.empty() ? "member" : Variable.sWord);
                Json.Key("name").Text(Variable.sName);
                Json.Key("type").TextOrNull(Variable.sType);
                Json.Key("value").TextOrNull(Variable.sValue);
            });
    }

    void AddFrame(Json_c & Json, CrashFrame_t const & Frame)
    {
        Json.Object(
            [&]
            {
                Json.Key("number").Number(Frame.iNumber);
                Json.Key("address").Address(Frame.nAddress);
                Json.Key("module").TextOrNull(Frame.sModule);
                Json.Key("section").NumberIf(Frame.iSection > 0, Frame.iSection);
                Json.Key("offset").AddressIf(!Frame.sModule.empty(), Frame.nOffset);
                Json.Key("function").TextOrNull(Frame.sFunction);
                Json.Key("displacement").AddressIf(!Frame.sFunction.empty() && !Frame.bInlined, Frame.nDisplacement);
                Json.Key("inlined").Truth(Frame.bInlined);
                Json.Key("own").Truth(IsOwnFrame(Frame));
                Json.Key("file").TextOrNull(Frame.sFile);
                Json.Key("line").NumberIf(Frame.iLine > 0, Frame.iLine);
                Json.Key("leftOut").Number(Frame.nLeftOut);
                Json.Key("source").Texts(Frame.dSource);
                Json.Key("variables")
                    .Array(Frame.dVariables, [&](CrashVariable_t const & Variable) { AddVariable(Json, Variable); });
            });
    }

    void AddThread(Json_c & Json, CrashThread_t const & Thread)
    {
        Json.Object(
            [&]
            {
                Json.Key("number").TextOrNull(Thread.sNumber);
                Json.Key("name").TextOrNull(Thread.sName);
                Json.Key("lock").TextOrNull(Thread.sLock);
                Json.Key("frames").Array(Thread.dFrames, [&](CrashFrame_t const & Frame) { AddFrame(Json, Frame); });
                Json.Key("fartherFrames").Truth(Thread.bFarther);
            });
    }

    void AddModule(Json_c & Json, CrashModule_t const & Module)
    {
        Json.Object(
            [&]
            {
                Json.Key("start").Address(Module.nStart);
                Json.Key("end").Address(Module.nEnd);
                Json.Key("buildId").TextOrNull(Module.sBuildId);
                Json.Key("path").Text(Module.sPath);
            });
    }

    // A key that a damaged file repeats counts once.
    void AddFacts(Json_c & Json, std::vector<CrashFact_t> const & dFacts)
    {
        std::unordered_set<std::string_view> dKeys;
        for (CrashFact_t const & Fact : dFacts)
        {
            if (dKeys.insert(Fact.sKey).second)
            {
                Json.Key(Fact.sKey).Text(Fact.sValue);
            }
        }
    }

    void AddCrash(Json_c & Json, Crash_t const & Crash)
    {
        char szCode[16];
        std::snprintf(szCode, sizeof szCode, "%08X", static_cast<unsigned>(Crash.nCode));
        CrashFrame_t const * const pLikely = LikelyFrame(Crash.Thread.dFrames);
        auto const iLikely = static_cast<std::uint64_t>(pLikely != nullptr ? pLikely - Crash.Thread.dFrames.data() : 0);
        Json.Object(
            [&]
            {
                Json.Key("file").Text(Crash.sFile);
                Json.Key("details").Truth(Crash.bDetails);
                Json.Key("time").TextOrNull(Crash.sTime);
                Json.Key("headline").Text(CrashHeadline(Crash));
                Json.Key("signature").Text(CrashSignature(Crash));
                Json.Key("kind").Text(Crash.sKind);
                Json.Key("code").Text(szCode);
                Json.Key("codeText").Text(Crash.sCodeText);
                Json.Key("data").AddressIf(Crash.Data.has_value(), Crash.Data.value_or(0));
                Json.Key("instruction").AddressIf(Crash.Instruction.has_value(), Crash.Instruction.value_or(0));
                Json.Key("exception").TextOrNull(Crash.sException);
                Json.Key("depth").TextOrNull(Crash.sDepth);
                Json.Key("likelyFrame").NumberIf(pLikely != nullptr, iLikely);
                AddThread(Json.Key("thread"), Crash.Thread);
                Json.Key("threads").Array(
                    Crash.dThreads, [&](CrashThread_t const & Thread) { AddThread(Json, Thread); });
                Json.Key("modules").Array(
                    Crash.dModules, [&](CrashModule_t const & Module) { AddModule(Json, Module); });
                Json.Key("process").Object([&] { AddFacts(Json, Crash.dFacts); });
                Json.Key("memory").Texts(Crash.dMemory);
                Json.Key("timers").Texts(Crash.dTimers);
                Json.Key("log").Texts(Crash.dLog);
                Json.Key("incomplete").Texts(Crash.dCuts);
            });
    }
}

std::string CrashJson(Crash_t const & Crash)
{
    Json_c Json;
    AddCrash(Json, Crash);
    return Json.Take();
}

std::string CrashGroupJson(CrashGroup_t const & Group)
{
    Json_c Json;
    Json.Object(
        [&]
        {
            Json.Key("signature").Text(Group.sSignature);
            Json.Key("count").Number(Group.nCount);
            Json.Key("first").TextOrNull(Group.sFirst);
            Json.Key("last").TextOrNull(Group.sLast);
            Json.Key("versions")
                .Object(
                    [&]
                    {
                        for (auto const & [sVersion, nCount] : Group.dVersions)
                        {
                            Json.Key(sVersion).Number(nCount);
                        }
                    });
            AddCrash(Json.Key("sample"), Group.Sample);
        });
    return Json.Take();
}
