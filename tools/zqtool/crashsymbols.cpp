// The lookup is that of the helper which names addresses for a crashing process. Here a module lies at a fixed address.
#include "tools/zqtool/crashsymbols.h"

#include "tools/zqsymbols/buildids.h"
#include "tools/zqsymbols/inlined.h"
#include "tools/zqsymbols/names.h"
#include "tools/zqtool/crashcause.h"
#include "tools/zqtool/crashlines.h"

#include <algorithm>
#include <map>
#include <set>

namespace
{
    constexpr std::uint64_t BASE = 0x10000000;   // leaves room below 4 GiB for the modules of 32-bit programs
    constexpr std::uint64_t MAX_BYTES = 0x100000000 - BASE;   // bytes of a module

    // One module of a build.
    class Build_c
    {
    public:
        // Adds the module with the size that its file states, because a report may be damaged. Uses no index files:
        // they are for modules as a process maps them, which this one is not.
        explicit Build_c(zqsymbols::BuildIds_c::Found_t const & File)
            : m_Modules("")
        {
            m_Modules.AddModule(File.sPath.c_str(), BASE, BASE + std::min(File.nBytes, MAX_BYTES));
            m_Modules.EndModules();
        }

        // Returns the frames at an offset from the module's start, innermost first. Returns none if nothing is known.
        std::vector<CrashFrame_t> const & FramesAt(std::uint64_t nOffset)
        {
            auto const [itFound, bNew] = m_dFrames.try_emplace(nOffset);
            if (bNew)
            {
                itFound->second = LookUp(BASE + nOffset);
            }
            return itFound->second;
        }

    private:
        std::vector<CrashFrame_t> LookUp(std::uint64_t nAddress);

        zqsymbols::Modules_c m_Modules;
        std::map<std::uint64_t, std::vector<CrashFrame_t>> m_dFrames;
    };

    // Sets the source line of a frame, or none.
    void SetPlace(CrashFrame_t & Frame, std::optional<zqsymbols::Line_t> const & Line)
    {
        Frame.sFile = Line ? Line->sFile : "";
        Frame.iLine = Line ? Line->nLine : 0;
    }

    std::vector<CrashFrame_t> Build_c::LookUp(std::uint64_t nAddress)
    {
        std::vector<CrashFrame_t> dFrames;
        std::optional<zqsymbols::Line_t> Place = LineAt(m_Modules, nAddress);
        if (std::optional<zqsymbols::Unit_t> Unit = m_Modules.UnitAt(nAddress))
        {
            std::vector<Dwarf_Die> dScopes = m_Modules.ScopesAt(*Unit, nAddress);
            std::vector<zqsymbols::InlinedCall_t> dCalls = InlinedCalls(*Unit, dScopes);
            for (; !dCalls.empty(); dCalls.pop_back())
            {
                CrashFrame_t & Frame = dFrames.emplace_back();
                Frame.sFunction = dCalls.back().sFunction;
                Frame.bInlined = true;
                SetPlace(Frame, Place);
                Place = dCalls.back().Place;
            }
        }
        std::optional<zqsymbols::Function_t> const Function = FunctionAt(m_Modules, nAddress);
        if (Function || Place)
        {
            CrashFrame_t & Frame = dFrames.emplace_back();
            Frame.sFunction = Function ? Function->sName : "";
            Frame.nDisplacement = Function ? Function->nDisplacement : 0;
            SetPlace(Frame, Place);
        }
        return dFrames;
    }

    // Returns a named frame with what the report says of its address. If an address has several frames, only the first
    // can follow frames left out. Find looks up the byte before a return address, so its displacement grows by 1.
    CrashFrame_t Merged(CrashFrame_t Named, CrashFrame_t const & Reported, bool bFirst)
    {
        Named.nAddress = Reported.nAddress;
        Named.sModule = Reported.sModule;
        Named.sModulePath = Reported.sModulePath;
        Named.nOffset = Reported.nOffset;
        Named.bReturn = Reported.bReturn;
        Named.nDisplacement += Reported.bReturn && !Named.bInlined ? 1 : 0;
        Named.nLeftOut = bFirst ? Reported.nLeftOut : 0;
        return Named;
    }
}

struct CrashSymbols_c::State_s
{
    void Name(std::vector<CrashFrame_t> & dFrames, CrashModules_c const & Modules);
    std::vector<CrashFrame_t> const * Find(CrashFrame_t const & Frame, CrashModules_c const & Modules);

    zqsymbols::BuildIds_c Files;
    std::map<std::string, std::unique_ptr<Build_c>> dBuilds;   // by build-id; null without a file
    std::set<std::string> dMissing;                            // result of GetMissing
};

CrashSymbols_c::CrashSymbols_c(
    std::vector<std::string> const & dFolders, std::function<void(std::string const &)> const & fnComplain)
    : m_pState(std::make_unique<State_s>())
{
    for (std::string const & sFolder : dFolders)
    {
        m_pState->Files.AddFolder(sFolder, fnComplain);
    }
}

CrashSymbols_c::~CrashSymbols_c() = default;

bool CrashSymbols_c::CanRead()
{
    return true;
}

std::vector<CrashFrame_t> const * CrashSymbols_c::State_s::Find(
    CrashFrame_t const & Frame, CrashModules_c const & Modules)
{
    CrashModule_t const * const pModule = Modules.Find(Frame);
    if (!Frame.sFile.empty() || Frame.bInlined || pModule == nullptr || pModule->sBuildId.empty())
    {
        return nullptr;
    }
    auto const [itBuild, bNew] = dBuilds.try_emplace(pModule->sBuildId);
    if (bNew)
    {
        if (zqsymbols::BuildIds_c::Found_t const * const pFile = Files.Find(pModule->sBuildId))
        {
            itBuild->second = std::make_unique<Build_c>(*pFile);
        }
    }
    if (!itBuild->second && IsOwnFrame(Frame))
    {
        dMissing.insert(pModule->sPath + ", build-id " + pModule->sBuildId);
    }
    return itBuild->second ? &itBuild->second->FramesAt(Frame.nOffset - (Frame.bReturn ? 1 : 0)) : nullptr;
}

void CrashSymbols_c::State_s::Name(std::vector<CrashFrame_t> & dFrames, CrashModules_c const & Modules)
{
    std::vector<CrashFrame_t> dNamed;
    std::size_t nAdded = 0;
    for (CrashFrame_t & Frame : dFrames)
    {
        std::vector<CrashFrame_t> const * const pFound = Find(Frame, Modules);
        std::uint64_t const iNumber = Frame.iNumber + nAdded;
        if (pFound == nullptr || pFound->empty() || dNamed.size() + pFound->size() > CRASH_MAX_MEMBERS)
        {
            Frame.iNumber = iNumber;
            dNamed.push_back(std::move(Frame));
            continue;
        }
        for (std::size_t i = 0; i < pFound->size(); ++i)
        {
            dNamed.push_back(Merged((*pFound)[i], Frame, i == 0));
            dNamed.back().iNumber = iNumber + i;
        }
        dNamed.back().dVariables = std::move(Frame.dVariables);
        nAdded += pFound->size() - 1;
    }
    dFrames = std::move(dNamed);
}

void CrashSymbols_c::Name(Crash_t & Crash)
{
    CrashModules_c const Modules(Crash);
    m_pState->Name(Crash.Thread.dFrames, Modules);
    for (CrashThread_t & Thread : Crash.dThreads)
    {
        m_pState->Name(Thread.dFrames, Modules);
    }
}

std::vector<std::string> CrashSymbols_c::GetMissing() const
{
    return { m_pState->dMissing.begin(), m_pState->dMissing.end() };
}
