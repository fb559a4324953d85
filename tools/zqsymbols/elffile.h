// elffile.h: sections and build-ids of ELF files.
#pragma once

#include <cstddef>
#include <gelf.h>
#include <optional>
#include <string>
#include <string_view>

namespace zqsymbols
{
    /// A section and its header.
    struct Section_t
    {
        Elf_Scn * pSection;
        GElf_Shdr Header;
    };

    /// Returns the first section of a name, or nothing if the file has none that can be read. Returns nothing too if
    /// pElf is null. The section is valid until pElf is closed.
    std::optional<Section_t> FindSection(Elf * pElf, std::string_view sName);

    /// Returns the bytes of a build-id in lower-case hexadecimal.
    std::string BuildIdText(void const * pBytes, std::size_t nBytes);
}
