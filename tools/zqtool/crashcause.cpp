#include "tools/zqtool/crashcause.h"

#include "platform/faults.h"
#include "tools/zqtool/parse.h"
#include "zqcore/cfaultnames_internal.h"

#include <algorithm>
#include <cstdio>

namespace
{
    // An exception code and its text.
    struct CodeText_t
    {
        std::uint32_t nCode;
        char const * szText;
    };
    constexpr CodeText_t CODES[] = {
        { plat::FAULT_ACCESS, "access violation" },
        { plat::FAULT_GUARD_PAGE, "access to a guard page" },
        { plat::FAULT_MISALIGNED, "misaligned access" },
        { plat::FAULT_IN_PAGE, "access to a page that the system could not read" },
        { plat::FAULT_INVALID_HANDLE, "invalid handle" },
        { plat::FAULT_BREAKPOINT, "breakpoint" },
        { plat::FAULT_SINGLE_STEP, "single step" },
        { plat::FAULT_ILLEGAL_INSTRUCTION, "illegal instruction" },
        { plat::FAULT_PRIVILEGED, "privileged instruction" },
        { plat::FAULT_NONCONTINUABLE, "exception after one that could not be continued" },
        { plat::FAULT_INVALID_DISPOSITION, "invalid disposition" },
        { plat::FAULT_ARRAY_BOUNDS, "array bounds exceeded" },
        { plat::FAULT_FLOAT_DENORMAL, "denormal floating-point operand" },
        { plat::FAULT_FLOAT_DIVIDE, "floating-point division by zero" },
        { plat::FAULT_FLOAT_INEXACT, "inexact floating-point result" },
        { plat::FAULT_FLOAT_INVALID, "invalid floating-point operation" },
        { plat::FAULT_FLOAT_OVERFLOW, "floating-point overflow" },
        { plat::FAULT_FLOAT_STACK, "floating-point stack fault" },
        { plat::FAULT_FLOAT_UNDERFLOW, "floating-point underflow" },
        { plat::FAULT_INTEGER_DIVIDE, "integer division by zero" },
        { plat::FAULT_INTEGER_OVERFLOW, "integer overflow" },
        { plat::FAULT_STACK_OVERFLOW, "stack overflow" },
        { plat::FAULT_ABORT, "abort" },
        { plat::FAULT_UNCAUGHT_EXCEPTION, "uncaught exception" },
    };

    // Returns the row of a code, or null if it has none.
    CodeText_t const * FindCode(std::uint32_t nCode)
    {
        auto const * const pCode = std::find_if(
            std::begin(CODES), std::end(CODES), [nCode](CodeText_t const & Code) { return Code.nCode == nCode; });
        return pCode == std::end(CODES) ? nullptr : pCode;
    }

    using ModuleKey_t = std::pair<std::string_view, std::uint64_t>;   // file name and start

    ModuleKey_t KeyOf(CrashModule_t const & Module)
    {
        return { FileNameOf(Module.sPath), Module.nStart };
    }

    bool StartsWithAny(std::string_view sText, std::initializer_list<std::string_view> dStarts)
    {
        return std::any_of(
            dStarts.begin(), dStarts.end(), [sText](std::string_view sStart) { return sText.starts_with(sStart); });
    }

    bool IsLibraryModule(std::string_view sModule)
    {
        return StartsWithAny(sModule, { "libzqcore.", "zqcore." });
    }

    // Returns whether a module is the system's, by its file name. It serves reports whose details break off before the
    // paths of the modules.
    bool IsSystemModule(std::string_view sModule)
    {
        return StartsWithAny(sModule, { "libc.so", "libm.so", "libpthread.so", "libstdc++.so", "libgcc_s.so",
                                          "ld-linux", "linux-vdso", "linux-gate" });
    }

    // Returns whether a path is the system's. The folders belong to the system, not to programs that users install by
    // hand. A bracket begins a name that the system makes up, as [vdso].
    bool IsSystemPath(std::string_view sPath)
    {
        return StartsWithAny(sPath, { "/usr/lib/", "/usr/lib32/", "/usr/lib64/", "/usr/libx32/", "/lib/", "/lib32/",
                                        "/lib64/", "/libx32/", "/usr/include/", "/usr/libexec/", "/usr/src/", "[" });
    }

    // Returns whether a source is the library's. Its sources have relative paths. Its installed headers have a folder
    // of their own.
    bool IsLibraryFile(std::string_view sFile)
    {
        return StartsWithAny(sFile, { "zqcore/", "platform/" }) || sFile.find("/include/zqcore/") != sFile.npos;
    }

    bool IsSystemFunction(std::string_view sFunction)
    {
        return StartsWithAny(sFunction, { "std::", "__gnu_cxx::", "__cxxabiv1::", "__cxa_", "__libc_", "__gthread",
                                            "operator new", "operator delete" })
               || sFunction == "_start";
    }

    // Complaint of the library that ends the process by a breakpoint.
    struct Raiser_t
    {
        char const * szFunction;
        char const * szText;
    };
    constexpr Raiser_t RAISERS[] = { { "Abort", "call of Abort" }, { "AssertFailed", "failed assertion" } };

    // Returns the complaint that a trap comes from, or null.
    Raiser_t const * RaiserOf(Crash_t const & Crash)
    {
        if (Crash.sKind != "trap")
        {
            return nullptr;
        }
        for (CrashFrame_t const & Frame : Crash.Thread.dFrames)
        {
            if (IsOwnFrame(Frame))
            {
                break;
            }
            for (Raiser_t const & Raiser : RAISERS)
            {
                bool const bLibrary = IsLibraryModule(Frame.sModule) || IsLibraryFile(Frame.sFile);
                if (bLibrary && Frame.sFunction == Raiser.szFunction)
                {
                    return &Raiser;
                }
            }
        }
        return nullptr;
    }

    // Returns whether the innermost frames only carry out what the host's own code has asked for.
    bool IsRaised(Crash_t const & Crash)
    {
        return Crash.sKind == "exception" || Crash.sKind == "abort" || RaiserOf(Crash) != nullptr;
    }

    std::string Hexadecimal(std::uint64_t nNumber)
    {
        char szNumber[24];
        std::snprintf(szNumber, sizeof szNumber, "0x%llX", static_cast<unsigned long long>(nNumber));
        return szNumber;
    }

    std::string AccessText(Crash_t const & Crash, char const * szAccess)
    {
        return szAccess + (Crash.Data ? " address " + Hexadecimal(*Crash.Data) : std::string(" an unknown address"));
    }

    // Returns what happened, without the place.
    std::string CauseText(Crash_t const & Crash)
    {
        if (Crash.sKind == "read" || Crash.sKind == "write" || Crash.sKind == "execute")
        {
            return AccessText(Crash, Crash.sKind == "read"    ? "read of"
                                     : Crash.sKind == "write" ? "write to"
                                                              : "execution of");
        }
        if (Raiser_t const * const pRaiser = RaiserOf(Crash))
        {
            return pRaiser->szText;
        }
        CodeText_t const * const pCode = FindCode(Crash.nCode);
        std::string sText = pCode != nullptr ? pCode->szText
                            : Crash.sCodeText.empty()
                                ? "exception " + Hexadecimal(Crash.nCode)
                                : "exception " + Hexadecimal(Crash.nCode) + ", " + Crash.sCodeText;
        if (Crash.sKind == "stack" && !Crash.sDepth.empty())
        {
            sText += " (" + Crash.sDepth + ")";
        }
        else if (!Crash.sException.empty())
        {
            sText += " " + Crash.sException;
        }
        return sText;
    }

    // Returns a frame's name, with the file and the line if they are known.
    std::string PlaceText(CrashFrame_t const & Frame)
    {
        std::string sText = CrashFrameName(Frame);
        if (!Frame.sFile.empty())
        {
            sText += " (" + std::string(FileNameOf(Frame.sFile));
            sText += Frame.iLine > 0 ? ":" + std::to_string(Frame.iLine) + ")" : ")";
        }
        return sText;
    }

    // Returns up to three functions of the first frames, without repetitions: those of the host, if it has any. After a
    // stack overflow they are sorted, because a recursion may overflow the stack in any of its functions.
    std::vector<std::string> FunctionsOf(Crash_t const & Crash)
    {
        constexpr std::size_t MAX_FUNCTIONS = 3;
        std::vector<CrashFrame_t> const & dFrames = Crash.Thread.dFrames;
        bool const bOwn = std::any_of(dFrames.begin(), dFrames.end(), IsOwnFrame);
        std::vector<std::string> dNames;
        for (auto itFrame = dFrames.begin(); itFrame != dFrames.end() && dNames.size() < MAX_FUNCTIONS; ++itFrame)
        {
            if (bOwn ? IsOwnFrame(*itFrame) : !itFrame->sFunction.empty() || !itFrame->sModule.empty())
            {
                std::string sName = CrashFrameName(*itFrame);
                if (std::find(dNames.begin(), dNames.end(), sName) == dNames.end())
                {
                    dNames.push_back(std::move(sName));
                }
            }
        }
        if (Crash.sKind == "stack")
        {
            std::sort(dNames.begin(), dNames.end());
        }
        return dNames;
    }
}

char const * CrashKindOf(std::uint32_t nCode)
{
    constexpr std::uint32_t ACCESSES[] = { plat::FAULT_ACCESS, plat::FAULT_GUARD_PAGE, plat::FAULT_MISALIGNED,
        plat::FAULT_IN_PAGE };
    char const * const szKind = FaultKindOf(nCode);
    return szKind != nullptr ? szKind : std::ranges::count(ACCESSES, nCode) != 0 ? "access" : "unknown";
}

CrashModules_c::CrashModules_c(Crash_t const & Crash)
{
    for (CrashModule_t const & Module : Crash.dModules)
    {
        m_dModules.push_back(&Module);
    }
    std::sort(m_dModules.begin(), m_dModules.end(),
        [](CrashModule_t const * pA, CrashModule_t const * pB) { return KeyOf(*pA) < KeyOf(*pB); });
}

CrashModule_t const * CrashModules_c::Find(CrashFrame_t const & Frame) const
{
    auto const fnLowerBound = [this, &Frame](std::uint64_t nStart)
    {
        return std::lower_bound(m_dModules.begin(), m_dModules.end(), ModuleKey_t(Frame.sModule, nStart),
            [](CrashModule_t const * pModule, ModuleKey_t const & Key) { return KeyOf(*pModule) < Key; });
    };
    for (std::uint64_t const nStart : { Frame.nAddress - Frame.nOffset, std::uint64_t{ 0 } })
    {
        auto const itModule = fnLowerBound(nStart);
        bool const bName = itModule != m_dModules.end() && FileNameOf((*itModule)->sPath) == Frame.sModule;
        if (bName && (nStart == 0 || (*itModule)->nStart == nStart))
        {
            return *itModule;
        }
    }
    return nullptr;
}

bool IsOwnFrame(CrashFrame_t const & Frame)
{
    if (IsLibraryModule(Frame.sModule) || IsSystemModule(Frame.sModule) || IsSystemPath(Frame.sModulePath)
        || IsSystemFunction(Frame.sFunction) || IsLibraryFile(Frame.sFile))
    {
        return false;
    }
    // A report names either a frame's module, or its function and line without inlined calls. So the line of a host's
    // function may lie in a system's header whose code is inlined there.
    bool const bInlinesAreFrames = !Frame.sModule.empty() && !Frame.bHidesInlined;
    if (bInlinesAreFrames && IsSystemPath(Frame.sFile))
    {
        return false;
    }
    return !Frame.sFunction.empty() || !Frame.sModule.empty();
}

CrashFrame_t const * LikelyFrame(std::vector<CrashFrame_t> const & dFrames)
{
    auto itFrame = std::find_if(dFrames.begin(), dFrames.end(), IsOwnFrame);
    if (itFrame == dFrames.end())
    {
        itFrame = std::find_if(
            dFrames.begin(), dFrames.end(), [](CrashFrame_t const & Frame) { return !Frame.sFunction.empty(); });
    }
    return itFrame != dFrames.end() ? &*itFrame : dFrames.empty() ? nullptr : &dFrames[0];
}

std::string CrashFrameName(CrashFrame_t const & Frame)
{
    if (!Frame.sFunction.empty())
    {
        return Frame.sFunction;
    }
    if (Frame.sModule.empty())
    {
        return Hexadecimal(Frame.nAddress);
    }
    char szOffset[48];
    std::snprintf(szOffset, sizeof szOffset, "+%llX", static_cast<unsigned long long>(Frame.nOffset));
    std::string const sSection = Frame.iSection > 0 ? ", section " + std::to_string(Frame.iSection) : "";
    return Frame.sModule + sSection + szOffset;
}

std::string CrashPlace(std::vector<CrashFrame_t> const & dFrames)
{
    CrashFrame_t const * const pLikely = LikelyFrame(dFrames);
    if (pLikely == nullptr)
    {
        return "";
    }
    CrashFrame_t const & First = dFrames[0];
    bool const bBoth = pLikely != &First && !First.sFunction.empty();
    return (bBoth ? First.sFunction + ", called from " : "") + PlaceText(*pLikely);
}

std::string CrashHeadline(Crash_t const & Crash)
{
    std::string sText = CauseText(Crash);
    if (CrashFrame_t const * const pLikely = LikelyFrame(Crash.Thread.dFrames))
    {
        bool const bOwnAlone = IsRaised(Crash) && IsOwnFrame(*pLikely);
        sText += " in " + (bOwnAlone ? PlaceText(*pLikely) : CrashPlace(Crash.Thread.dFrames));
    }
    else if (Crash.Instruction)
    {
        sText += " at " + Hexadecimal(*Crash.Instruction);
    }
    if (!Crash.Thread.sNumber.empty())
    {
        sText += ", thread " + Crash.Thread.sNumber;
        sText += Crash.Thread.sName.empty() ? "" : " \"" + Crash.Thread.sName + "\"";
    }
    return sText;
}

std::string CrashSignature(Crash_t const & Crash)
{
    std::string sText = Crash.sKind;
    if (IsRaised(Crash))
    {
        std::string const sType = Crash.sException.substr(0, Crash.sException.find(": "));
        sText += sType.empty() ? "" : " " + sType;
    }
    else if (!Crash.sFaultModule.empty())
    {
        sText += " in " + std::string(FileNameOf(Crash.sFaultModule));
    }
    char const * szBefore = ": ";
    for (std::string const & sName : FunctionsOf(Crash))
    {
        sText += szBefore + sName;
        szBefore = " < ";
    }
    return sText;
}
