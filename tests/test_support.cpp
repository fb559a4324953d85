#include "tests/test_support.h"

#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <utility>

namespace fs = std::filesystem;

TempFolder_c::TempFolder_c()
{
    std::random_device Random;
    do
    {
        m_sPath = (fs::temp_directory_path() / ("zqcore_test_" + std::to_string(Random()))).string();
    }
    while (!fs::create_directory(m_sPath));
}

TempFolder_c::~TempFolder_c()
{
    std::error_code Ignored;
    fs::remove_all(m_sPath, Ignored);
}

std::string TempFolder_c::Join(std::string_view sName) const
{
    std::string sPath = m_sPath + '/' + std::string(sName);
    std::replace(sPath.begin() + static_cast<std::ptrdiff_t>(m_sPath.size()), sPath.end(), '\\', '/');
    return sPath;
}

std::string TempFolder_c::Write(std::string_view sName, std::string_view sContents) const
{
    fs::create_directories(fs::path(Join(sName)).parent_path());
    std::ofstream(Join(sName), std::ios::binary) << sContents;
    return Join(sName);
}

std::string TempFolder_c::MakeFolder(std::string_view sName) const
{
    fs::create_directories(Join(sName));
    return Join(sName);
}

std::string TempFolder_c::Read(std::string_view sName) const
{
    std::ifstream File(Join(sName), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(File), {});
}

CurrentFolderScope_c::CurrentFolderScope_c(std::string const & sFolder)
    : m_sFormer(fs::current_path().string())
{
    fs::current_path(sFolder);
}

CurrentFolderScope_c::~CurrentFolderScope_c()
{
    fs::current_path(m_sFormer);
}

void LogToStandardError()
{
    LogAddCallback([](char const * szText) { std::fprintf(stderr, "%s\n", szText); });
}

namespace
{
    std::mutex g_Lock;
    LogCapture_c * g_pCapture = nullptr;
    DialogScript_c * g_pScript = nullptr;
    std::string g_sHeapReports;

    int CountIf(std::vector<std::string> const & dTexts, auto fn)
    {
        std::lock_guard const Scope(g_Lock);
        return static_cast<int>(std::count_if(dTexts.begin(), dTexts.end(), fn));
    }

    auto Holds(std::string_view sPart)
    {
        return [sPart](std::string const & sText) { return sText.find(sPart) != std::string::npos; };
    }
}

// What the collecting takes must not count under the category of the code under test.
void LogCaptureListener(char const * szText)
{
    MemCategoryScope_c const Category(mem::Tools);
    std::lock_guard const Scope(g_Lock);
    if (g_pCapture)
    {
        g_pCapture->m_dLines.emplace_back(szText);
    }
}

LogCapture_c::LogCapture_c()
    : m_pOuter(g_pCapture)
{
    {
        std::lock_guard const Scope(g_Lock);
        g_pCapture = this;
    }
    LogText("");   // shows whether the listener is still there: LogDone drops it
    if (GetLines().empty())
    {
        LogAddCallback(LogCaptureListener);
    }
    Clear();
}

LogCapture_c::~LogCapture_c()
{
    std::lock_guard const Scope(g_Lock);
    g_pCapture = m_pOuter;
}

std::vector<std::string> LogCapture_c::GetLines() const
{
    std::lock_guard const Scope(g_Lock);
    return m_dLines;
}

std::string LogCapture_c::GetText() const
{
    std::string sText;
    for (std::string const & sLine : GetLines())
    {
        sText += sLine + '\n';
    }
    return sText;
}

int LogCapture_c::Count(std::string_view sLine) const
{
    return CountIf(m_dLines, [sLine](std::string const & sText) { return sText == sLine; });
}

int LogCapture_c::CountHolding(std::string_view sPart) const
{
    return CountIf(m_dLines, Holds(sPart));
}

void LogCapture_c::Clear()
{
    std::lock_guard const Scope(g_Lock);
    m_dLines.clear();
}

HeapReports_c::HeapReports_c()
    : m_fnFormer(plat::HeapReportSet([](char const * szText) { g_sHeapReports += szText; }))
{}

HeapReports_c::~HeapReports_c()
{
    plat::HeapReportSet(m_fnFormer);
}

std::string HeapReports_c::Take()
{
    return std::exchange(g_sHeapReports, "");
}

std::string FailedConditions(std::function<void()> const & fnCall)
{
    LogCapture_c const Log;
    DialogScript_c const Ignore;
    fnCall();
    std::string sConditions;
    for (std::string const & sLine : Log.GetLines())
    {
        std::size_t const iFailed = sLine.find(" failed, ");
        std::size_t iFile = std::string::npos;   // behind the condition stands the source file
        for (char const * szEnd : { ".cpp, ", ".inl, ", ".h, " })
        {
            iFile = std::min(iFile, sLine.find(szEnd));
        }
        if (sLine.starts_with("Assert") && iFailed <= sizeof "AssertEx" && iFile != std::string::npos)
        {
            std::size_t const iCondition = iFailed + sizeof " failed, " - 1;
            std::string const sCondition = sLine.substr(iCondition, sLine.rfind(", ", iFile) - iCondition);
            sConditions += (sConditions.empty() ? "" : " & ") + sCondition;
        }
    }
    return sConditions;
}

plat::DialogAnswer_e DialogScriptHandler(plat::Dialog_t const & Dialog)
{
    MemCategoryScope_c const Category(mem::Tools);
    std::lock_guard const Scope(g_Lock);
    DialogScript_c & Script = *g_pScript;
    Script.m_dShown.push_back(Dialog.szText);
    if (Script.m_dShown.size() <= Script.m_dAnswers.size())
    {
        return Script.m_dAnswers[Script.m_dShown.size() - 1];
    }
    switch (Dialog.eButtons)
    {
    case plat::DialogButtons_e::AbortRetryIgnore:
        return plat::DialogAnswer_e::Ignore;
    case plat::DialogButtons_e::YesNoCancel:
        return plat::DialogAnswer_e::No;
    default:
        return plat::DialogAnswer_e::Ok;
    }
}

DialogScript_c::DialogScript_c(std::initializer_list<plat::DialogAnswer_e> dAnswers)
    : m_dAnswers(dAnswers)
    , m_pOuter(g_pScript)
{
    g_pScript = this;
    m_fnFormer = plat::DialogSetHandler(DialogScriptHandler);
}

DialogScript_c::~DialogScript_c()
{
    plat::DialogSetHandler(m_fnFormer);
    g_pScript = m_pOuter;
}

int DialogScript_c::GetCount() const
{
    return CountHolding("");
}

int DialogScript_c::CountHolding(std::string_view sPart) const
{
    return CountIf(m_dShown, Holds(sPart));
}
