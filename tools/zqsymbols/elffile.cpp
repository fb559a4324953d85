#include "tools/zqsymbols/elffile.h"

#include "platform/text.h"

namespace zqsymbols
{
    std::optional<Section_t> FindSection(Elf * pElf, std::string_view sName)
    {
        std::size_t iNames = 0;
        if (pElf == nullptr || elf_getshdrstrndx(pElf, &iNames) != 0)
        {
            return std::nullopt;
        }
        Section_t Section{};
        while ((Section.pSection = elf_nextscn(pElf, Section.pSection)) != nullptr)
        {
            char const * const szName = gelf_getshdr(Section.pSection, &Section.Header) != nullptr
                                            ? elf_strptr(pElf, iNames, Section.Header.sh_name)
                                            : nullptr;
            if (szName != nullptr && szName == sName)
            {
                return Section;
            }
        }
        return std::nullopt;
    }

    std::string BuildIdText(void const * pBytes, std::size_t nBytes)
    {
        std::string sText;
        for (std::size_t i = 0; i < nBytes; ++i)
        {
            unsigned char const cByte = static_cast<unsigned char const *>(pBytes)[i];
            sText += { plat::LOWER_HEX_DIGITS[cByte >> 4], plat::LOWER_HEX_DIGITS[cByte & 15] };
        }
        return sText;
    }
}
