#include "platform/modulelist.h"

#include "platform/linux/maps.h"
#include "platform/memory.h"

#include <cstring>
#include <elf.h>
#include <unistd.h>

namespace plat
{
    namespace
    {
        bool IsStartOfModule(Mapping_t const & Mapping)
        {
            char dMagic[SELFMAG];
            return Mapping.szPath[0] == '/' && Mapping.nOffset == 0
                   && MemoryRead(Mapping.Start, dMagic, SELFMAG) == SELFMAG
                   && std::memcmp(dMagic, ELFMAG, SELFMAG) == 0;
        }
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
