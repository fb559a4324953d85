#include "tools/zqsymbols/buildids.h"

#include "tools/zqsymbols/elffile.h"

#include <algorithm>
#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace zqsymbols
{
    namespace
    {
        // Returns a file's build-id in hexadecimal, or an empty text if it has none.
        std::string ReadBuildId(Elf * pElf)
        {
            void const * pBytes = nullptr;
            ssize_t const nBytes = dwelf_elf_gnu_build_id(pElf, &pBytes);
            return nBytes > 0 ? BuildIdText(pBytes, static_cast<std::size_t>(nBytes)) : "";
        }

        // Returns the number of bytes from a module's first page in memory to the end of its last segment. Returns 0 if
        // the module has no segment to load.
        std::uint64_t BytesOf(Elf * pElf)
        {
            std::optional<std::uint64_t> Start;
            std::uint64_t nEnd = 0;
            std::size_t nSegments = 0;
            elf_getphdrnum(pElf, &nSegments);
            for (std::size_t i = 0; i < nSegments; ++i)
            {
                GElf_Phdr Segment;
                if (gelf_getphdr(pElf, static_cast<int>(i), &Segment) != nullptr && Segment.p_type == PT_LOAD)
                {
                    std::uint64_t const nPage = std::max<std::uint64_t>(Segment.p_align, 1);
                    Start = Start.value_or(Segment.p_vaddr & ~(nPage - 1));
                    nEnd = std::max<std::uint64_t>(nEnd, Segment.p_vaddr + Segment.p_memsz);
                }
            }
            return nEnd - std::min(Start.value_or(0), nEnd);
        }

        // Returns whether a file has the contents of a section. A section without contents has only a header.
        bool HasSection(Elf * pElf, std::string_view sName)
        {
            std::optional<Section_t> const Section = FindSection(pElf, sName);
            return Section && Section->Header.sh_type != SHT_NOBITS;
        }
    }

    // Adds an ELF file with a build-id, unless a file of the same build-id has as much information.
    void BuildIds_c::AddFile(std::string const & sFile)
    {
        int const hFile = open(sFile.c_str(), O_RDONLY | O_CLOEXEC);
        Elf * const pElf = hFile < 0 ? nullptr : elf_begin(hFile, ELF_C_READ_MMAP, nullptr);
        std::string const sBuildId = pElf != nullptr && elf_kind(pElf) == ELF_K_ELF ? ReadBuildId(pElf) : "";
        if (!sBuildId.empty())
        {
            Rank_e const eRank = HasSection(pElf, ".debug_info") || HasSection(pElf, ".zdebug_info") ? RANK_DEBUG
                                 : HasSection(pElf, ".symtab")                                       ? RANK_SYMBOLS
                                                                                                     : RANK_NONE;
            File_s const File = { { sFile, BytesOf(pElf) }, eRank };
            auto const [itKnown, bNew] = m_dFiles.try_emplace(sBuildId, File);
            if (!bNew && itKnown->second.eRank < eRank)
            {
                itKnown->second = File;
            }
        }
        elf_end(pElf);
        if (hFile >= 0)
        {
            close(hFile);
        }
    }

    void BuildIds_c::AddFolder(std::string const & sFolder, std::function<void(std::string const &)> const & fnFault)
    {
        namespace fs = std::filesystem;
        elf_version(EV_CURRENT);
        std::error_code Error;
        fs::recursive_directory_iterator itEntry(sFolder, Error);
        for (; !Error && itEntry != fs::end(itEntry); itEntry.increment(Error))
        {
            std::error_code Ignored;
            if (itEntry->is_regular_file(Ignored))
            {
                AddFile(itEntry->path().string());
            }
        }
        if (Error)
        {
            fnFault(sFolder + ": can't read the whole folder: " + Error.message());
        }
    }

    BuildIds_c::Found_t const * BuildIds_c::Find(std::string const & sBuildId) const
    {
        auto const itFile = m_dFiles.find(sBuildId);
        return itFile == m_dFiles.end() ? nullptr : &itFile->second.Found;
    }
}
