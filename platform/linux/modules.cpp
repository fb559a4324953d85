#include "platform/modules.h"

#include "platform/linux/maps.h"
#include "platform/linux/reserve.h"
#include "platform/memory.h"

#include <cstring>
#include <fcntl.h>
#include <link.h>

namespace plat
{
    namespace
    {
        using Header_t = ElfW(Ehdr);
        using Segment_t = ElfW(Phdr);
        using Section_t = ElfW(Shdr);

        constexpr std::uint64_t PAGE_MASK = MEMORY_PAGE - 1;

        // Reads a record of the file. Returns false if the whole record can't be read.
        template <typename T>
        bool ReadAt(int iFile, std::uint64_t nOffset, T & Record)
        {
            return pread(iFile, &Record, sizeof Record, static_cast<off_t>(nOffset)) == sizeof Record;
        }

        // Finds the mapping that holds an address. Right after a mapping of a file, a mapping without a file has that
        // file's zeroed data. For an address in it, Found is the mapping of the file. ModuleStart is the start of the
        // first of the mappings of this file that follow one another. Returns false if there is no mapping.
        bool FindMapping(std::uintptr_t Address, Mapping_t & Found, std::uintptr_t & ModuleStart)
        {
            Maps_c Maps;
            Mapping_t Mapping;
            std::uintptr_t FileEnd = 0;
            Found.szPath[0] = '\0';
            while (Maps.Next(Mapping) && Mapping.Start <= Address)
            {
                bool const bAfterFile = Mapping.szPath[0] == '\0' && Mapping.Start == FileEnd;
                FileEnd = Mapping.szPath[0] == '/' || bAfterFile ? Mapping.End : 0;
                if (!bAfterFile)
                {
                    ModuleStart = std::strcmp(Mapping.szPath, Found.szPath) == 0 ? ModuleStart : Mapping.Start;
                    Found = Mapping;
                }
                if (Address < Mapping.End)
                {
                    return true;
                }
            }
            return false;
        }

        // Finds the load bias: an address in memory minus the same address in the file. Segments may share a page of
        // the file. Uses one that has the mapping's page. Prefers one whose memory holds the address or ends at it, and
        // then one with which the first segment, that of the lowest address, is at ModuleStart. Returns false if no
        // segment of the file is mapped there, or if the file can't be read.
        bool FindBias(int iFile, Header_t const & Header, Mapping_t const & Mapping, std::uintptr_t Address,
            std::uintptr_t ModuleStart, std::uintptr_t & nBias)
        {
            Segment_t Segment;
            std::uintptr_t nStartBias = 0;   // the bias with which the first segment is at ModuleStart
            bool bFirst = true;
            int nBest = 0;
            for (unsigned i = 0; i < Header.e_phnum; ++i)
            {
                if (!ReadAt(iFile, Header.e_phoff + std::uint64_t{ i } * Header.e_phentsize, Segment))
                {
                    return false;
                }
                if (Segment.p_type != PT_LOAD)
                {
                    continue;
                }
                auto const nStart = static_cast<std::uintptr_t>(Segment.p_vaddr);
                nStartBias = bFirst ? ModuleStart - (nStart & ~static_cast<std::uintptr_t>(PAGE_MASK)) : nStartBias;
                bFirst = false;
                auto const nOffset = static_cast<std::uintptr_t>(Mapping.nOffset - Segment.p_offset);
                std::uintptr_t const nSegmentBias = Mapping.Start - (nStart + nOffset);
                bool const bHolds = Address - nSegmentBias - nStart <= Segment.p_memsz;
                int const nRank = 1 + (bHolds ? 2 : 0) + (nSegmentBias == nStartBias ? 1 : 0);
                if (Mapping.nOffset >= (Segment.p_offset & ~PAGE_MASK)
                    && Mapping.nOffset < Segment.p_offset + Segment.p_filesz && nRank > nBest)
                {
                    nBias = nSegmentBias;
                    nBest = nRank;
                }
            }
            return nBest > 0;
        }

        // Finds the first section that holds an address of the file or ends at it. The end of thread-local data does
        // not count. Returns false if there is none, or if the file can't be read.
        bool FindSection(int iFile, Header_t const & Header, std::uintptr_t Address, ModulePlace_t & Place)
        {
            Section_t Section;
            for (unsigned i = 1; i < Header.e_shnum; ++i)
            {
                if (!ReadAt(iFile, Header.e_shoff + std::uint64_t{ i } * Header.e_shentsize, Section))
                {
                    return false;
                }
                // The zeros of thread-local data have addresses in the file, but none in memory. The end of its initial
                // values is the start of another section.
                bool const bLocal = (Section.sh_flags & SHF_TLS) != 0;
                bool const bInMemory =
                    (Section.sh_flags & SHF_ALLOC) != 0 && !(bLocal && Section.sh_type == SHT_NOBITS);
                auto const nSize = Section.sh_size - (bLocal && Section.sh_size > 0 ? 1 : 0);
                if (bInMemory && Address >= Section.sh_addr && Address - Section.sh_addr <= nSize)
                {
                    Place.iSection = i;
                    Place.nOffset = Address - static_cast<std::uintptr_t>(Section.sh_addr);
                    return true;
                }
            }
            return false;
        }

        // Returns whether a file is an ELF file of this process's word size.
        bool IsOurs(Header_t const & Header)
        {
            constexpr unsigned char CLASS = sizeof(void *) == 8 ? ELFCLASS64 : ELFCLASS32;
            return std::memcmp(Header.e_ident, ELFMAG, SELFMAG) == 0 && Header.e_ident[EI_CLASS] == CLASS;
        }
    }

    bool ModuleFind(std::uintptr_t Address, ModulePlace_t * pPlace)
    {
        *pPlace = {};
        Mapping_t Mapping;
        std::uintptr_t ModuleStart = 0;
        if (!FindMapping(Address, Mapping, ModuleStart))
        {
            return false;
        }
        std::memcpy(pPlace->szPath, Mapping.szPath, sizeof pPlace->szPath);
        pPlace->nOffset = Address - Mapping.Start + static_cast<std::uintptr_t>(Mapping.nOffset);
        if (Mapping.szPath[0] != '/')
        {
            return false;
        }
        Descriptor_c const File(OpenToReadWithReserve(Mapping.szPath, O_NONBLOCK));
        Header_t Header;
        std::uintptr_t nBias = 0;
        return File.IsOpen() && ReadAt(File.Get(), 0, Header) && IsOurs(Header)
               && FindBias(File.Get(), Header, Mapping, Address, ModuleStart, nBias)
               && FindSection(File.Get(), Header, Address - nBias, *pPlace);
    }
}
