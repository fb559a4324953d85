// system.h: facts about the machine, for the log's head and for crash reports.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Facts about the system, the machine and the user.
    struct SystemFacts_t
    {
        char szName[64];        // the system's name
        int iMajor, iMinor;     // its version
        std::uint32_t iBuild;   // the version's third number
        char szComputer[1024];
        char szUser[1024];
        int nProcessors;
        int iProcessorType;   // the digits in the system's name of the processor's family: 8664 for x86-64
        std::uint64_t nPhysicalTotal, nPhysicalFree;   // bytes
        std::uint64_t nVirtualTotal, nVirtualFree;     // bytes of this process's address space
    };

    /// Collects the facts. Texts are cut to fit. Unknown facts are empty or 0.
    void SystemGetFacts(SystemFacts_t & Facts);

    /// Copy the system's name with its release and machine, and the processor's name. The texts are cut to nSize - 1
    /// bytes, and empty if unknown. A fault filter may call the functions.
    void SystemName(char * szText, std::size_t nSize);
    void ProcessorName(char * szText, std::size_t nSize);
}
