#include "platform/modulelist.h"

#include "platform/linux/maps.h"
#include "platform/memory.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <link.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        // Returns whether a mapping begins with the first bytes of an ELF file.
        bool IsStartOfModule(Mapping_t const & Mapping)
        {
            char dMagic[SELFMAG];
            return Mapping.szPath[0] == '/' && Mapping.nOffset == 0 && MemoryReadObject(Mapping.Start, dMagic)
                   && std::memcmp(dMagic, ELFMAG, SELFMAG) == 0;
        }

        // Returns the size of a field of a note with the padding after it.
        std::uint64_t Padded(std::uint32_t nField)
        {
            return (std::uint64_t{ nField } + 3) & ~std::uint64_t{ 3 };
        }

        // Copies the build-id among the notes (elf(5)) in a range of memory. Returns its size in bytes, at most
        // nSize, or 0 if there is none before the first note that does not fit the range or can't be read.
        std::size_t CopyBuildId(std::uintptr_t Address, std::uintptr_t End, std::uint8_t * pId, std::size_t nSize)
        {
            constexpr char OWNER[] = "GNU";
            struct Note_t
            {
                ElfW(Nhdr) Head;
                char szOwner[sizeof OWNER];
            } Note;
            while (Address < End && MemoryReadObject(Address, Note))
            {
                std::uint64_t const nBefore = sizeof Note.Head + Padded(Note.Head.n_namesz);
                if (nBefore + Note.Head.n_descsz > End - Address)   // the last note may lack its padding
                {
                    return 0;
                }
                bool const bOwn =
                    Note.Head.n_namesz == sizeof OWNER && std::memcmp(Note.szOwner, OWNER, sizeof OWNER) == 0;
                if (bOwn && Note.Head.n_type == NT_GNU_BUILD_ID)
                {
                    auto const Contents = static_cast<std::uintptr_t>(Address + nBefore);
                    return MemoryRead(Contents, pId, std::min<std::size_t>(Note.Head.n_descsz, nSize));
                }
                std::uint64_t const nNote = nBefore + Padded(Note.Head.n_descsz);
                Address = nNote < End - Address ? static_cast<std::uintptr_t>(Address + nNote) : End;
            }
            return 0;
        }
    }

    // The notes are in the part of the file that is mapped first, so an offset in the file is one from the base.
    std::size_t ModuleBuildId(Module_t const & Module, std::uint8_t * pId, std::size_t nSize)
    {
        ElfW(Ehdr) Header;
        ElfW(Phdr) Segment;
        std::size_t nId = 0;
        bool bMore = MemoryReadObject(Module.Base, Header);
        for (unsigned i = 0; bMore && nId == 0 && i < Header.e_phnum; ++i)
        {
            auto const nPlace = static_cast<std::uintptr_t>(Header.e_phoff + i * sizeof Segment);
            bMore = MemoryReadObject(Module.Base + nPlace, Segment);
            if (bMore && Segment.p_type == PT_NOTE)
            {
                std::uintptr_t const Notes = Module.Base + static_cast<std::uintptr_t>(Segment.p_offset);
                nId = CopyBuildId(Notes, Notes + static_cast<std::uintptr_t>(Segment.p_filesz), pId, nSize);
            }
        }
        return nId;
    }

    // Relies on the order of mappings: those of one file follow each other.
    void ModulesVisit(ModuleVisit_t fnVisit, void * pContext)
    {
        Maps_c Maps;
        Mapping_t Mapping;
        bool bMore = Maps.Next(Mapping);
        while (bMore)
        {
            Mapping_t const First = Mapping;
            bool const bModule = IsStartOfModule(First);
            std::uintptr_t End;
            do
            {
                End = Mapping.End;
                bMore = Maps.Next(Mapping);
            }
            while (bMore && bModule && std::strcmp(Mapping.szPath, First.szPath) == 0);
            if (bModule)
            {
                fnVisit({ First.szPath, First.Start, End - First.Start }, pContext);
            }
        }
    }

    bool ModuleFileIsReadable(char const * szPath)
    {
        return ::access(szPath, R_OK) == 0;
    }
}
