// crashreport.h: reads crash reports and the details beside them.
//
// The files come from outside. Whatever they hold, reading ends and returns what is readable. Texts are as in the file:
// a caller that shows them makes them safe (text.h).
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A variable of a frame, or a member of the variable before it.
struct CrashVariable_t
{
    int nLevel = 0;       // 0 for a parameter or a local variable, 1 for its members, and so on
    std::string sWord;    // "parameter" or "local"; empty for a member; "..." for others, which are left out
    std::string sName;    // of "...": what is left out
    std::string sType;    // empty if unknown
    std::string sValue;   // in a report empty for a variable whose members follow
};

/// A frame of a stack.
struct CrashFrame_t
{
    std::uint64_t iNumber = 0;   // as in the details; from 0 on in a report
    std::uint64_t nAddress = 0;
    std::string sModule;                // file name; empty if unknown
    std::string sModulePath;            // empty if unknown
    unsigned iSection = 0;              // of a report without names: section of the module's file; 0 if unknown
    std::uint64_t nOffset = 0;          // from the module's start, or from that section
    std::string sFunction;              // empty if unknown
    std::uint64_t nDisplacement = 0;    // bytes from the start of the function
    bool bInlined = false;              // whether it is part of the function of a later frame, with the same address
    bool bHidesInlined = false;         // whether a frame of the details has its line from a report
    bool bReturn = true;                // whether the address counts as one after a call
    std::string sFile;                  // empty if unknown
    unsigned iLine = 0;                 // 0 if unknown
    std::vector<std::string> dSource;   // lines around, the frame's own one after '>'
    std::vector<CrashVariable_t> dVariables;
    std::uint64_t nLeftOut = 0;   // frames between the previous one and this one that are not listed
};

/// A thread and its stack.
struct CrashThread_t
{
    std::string sNumber;   // as in the details; empty in a report
    std::string sName;     // empty if it has none
    std::string sLock;     // "holds LOCK", "waits for LOCK"; empty for none
    std::vector<CrashFrame_t> dFrames;
    bool bFarther = false;   // whether frames farther out are not listed
};

/// A module and its addresses.
struct CrashModule_t
{
    std::uint64_t nStart = 0, nEnd = 0;
    std::string sBuildId;   // lower-case hexadecimal; empty if there is none
    std::string sPath;
};

/// A line of the process, "KEY: VALUE".
struct CrashFact_t
{
    std::string sKey, sValue;
};

/// Files of one stem: a report and its details.
struct CrashFiles_t
{
    std::string sReport;                 // empty for none
    std::vector<std::string> dDetails;   // usually one
};

/// One crash. What the files do not say is empty.
struct Crash_t
{
    bool bReport = false, bDetails = false;           // whether a report has it; whether details have it
    std::string sFile;                                // the report, or else the details
    CrashFiles_t Files;                               // all files of its stem
    std::size_t iInFile = 0;                          // its number among the crashes of these files, from 0
    std::string sTime;                                // local: 2026-11-26 08:18:37; empty if unknown
    std::uint32_t nCode = 0;                          // of the exception
    std::string sCodeText;                            // name or text of the code
    std::string sKind = "unknown";                    // as in the details; "access" if only the report names an access
    std::optional<std::uint64_t> Data, Instruction;   // addresses: what was accessed; what faulted
    std::string sFaultModule;                         // path, or the file name if only that is known
    CrashThread_t Thread;                             // the crashed one, with its frames
    std::string sException, sDepth;                   // type and text of an exception; bytes of an overflowed stack
    std::vector<CrashThread_t> dThreads;              // the others
    std::string sThreadsNote;                         // why there are no other threads
    std::vector<CrashModule_t> dModules;
    std::vector<CrashFact_t> dFacts;                   // lines of the process
    std::vector<std::string> dMemory, dLog, dTimers;   // lines of these groups of the details
    std::vector<std::string> dCuts;                    // "[Frames]: reason" of sections that are incomplete

    /// Returns the value of the first fact with a key, or an empty text.
    std::string_view GetFact(std::string_view sKey) const;
};

/// Function that receives what is wrong, with the number of the line from 1 on, or 0 if the file is empty.
using CrashComplain_t = std::function<void(std::size_t iLine, std::string const & sText)>;

/// Extent to which a crash is read.
enum class CrashExtent_e
{
    All,
    Cause   // what the signature needs, and the facts: no variables, other threads, memory, timers or log, and no
            // source lines of details
};

/// Read the text of a report, or of details, and return the crashes in it, in order, at most CRASH_MAX_CRASHES
/// (crashlines.h). Cut each list of a crash at CRASH_MAX_MEMBERS. Report what is wrong to fnComplain. Return none
/// for any other text.
std::vector<Crash_t> ReadCrashReport(
    std::string_view sText, CrashComplain_t const & fnComplain, CrashExtent_e eExtent = CrashExtent_e::All);
std::vector<Crash_t> ReadCrashDetails(
    std::string_view sText, CrashComplain_t const & fnComplain, CrashExtent_e eExtent = CrashExtent_e::All);

/// Returns the crashes of a report with what the details beside it add. Those of the details alone come last.
std::vector<Crash_t> JoinCrashes(std::vector<Crash_t> dReports, std::vector<Crash_t> dDetails);
