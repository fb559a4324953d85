// maps.h: the memory of this process, one mapping after another, from the lowest address up.
//
// The walk uses no heap and no lock.
#pragma once

#include "platform/linux/descriptor.h"
#include "platform/modules.h"

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// A mapping: consecutive pages with the same rights and the same file.
    struct Mapping_t
    {
        std::uintptr_t Start, End;       // End is after the last byte
        std::uint64_t nOffset;           // bytes from the start of the file to Start
        bool bWritable;                  // whether the process may write to it
        char szPath[MODULE_PATH_SIZE];   // the file's path, or "[stack]" and the like; may be empty; cut to fit
    };

    /// A walk over the mappings.
    class Maps_c
    {
    public:
        /// Opens the list of mappings. If that fails, Next returns false.
        Maps_c();

        /// Reads the next mapping and returns true. Returns false after the last one, or if the system does not report
        /// them.
        bool Next(Mapping_t & Mapping);

    private:
        int ReadByte();
        std::uint64_t ReadNumber(int nBase, int * pNext);

        Descriptor_c m_File;
        std::size_t m_nBytes = 0;   // bytes in m_dBytes
        std::size_t m_iByte = 0;    // index in m_dBytes of the next byte
        char m_dBytes[2048];
    };
}
