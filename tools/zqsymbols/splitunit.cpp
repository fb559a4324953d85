#include "tools/zqsymbols/splitunit.h"

#include "tools/zqsymbols/dies.h"
#include "tools/zqsymbols/elffile.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <dwarf.h>
#include <fcntl.h>
#include <map>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace zqsymbols
{
    namespace
    {
        using Sections_t = std::map<std::string, std::string_view>;

        template <typename T>
        void Put(std::string & sTo, T Value)
        {
            sTo.append(reinterpret_cast<char const *>(&Value), sizeof(Value));
        }

        // Returns a number at an offset, or 0 if it is not there.
        template <typename T>
        T Take(std::string_view sFrom, std::uint64_t nOffset)
        {
            T Value{};
            if (nOffset <= sFrom.size() && sFrom.size() - nOffset >= sizeof(Value))
            {
                std::memcpy(&Value, sFrom.data() + nOffset, sizeof(Value));
            }
            return Value;
        }

        // Returns up to nBytes from an offset. Returns an empty text if the offset lies after the end.
        std::string_view Slice(std::string_view sFrom, std::uint64_t nOffset, std::uint64_t nBytes)
        {
            return nOffset <= sFrom.size() ? sFrom.substr(nOffset, nBytes) : std::string_view();
        }

        // Returns an ELF file of these sections and the table of their names, without segments.
        std::string ElfOf(Sections_t const & dSections)
        {
            std::string sNames(1, '\0');
            std::string sBody(sizeof(Elf64_Ehdr), '\0');
            std::vector<Elf64_Shdr> dHeaders(1);
            auto const Add = [&](std::string const & sName, std::string_view sContent, Elf64_Word nType)
            {
                Elf64_Shdr Header{};
                Header.sh_name = static_cast<Elf64_Word>(sNames.size());
                Header.sh_type = nType;
                Header.sh_addralign = 1;
                sNames += sName + '\0';
                sContent = nType == SHT_STRTAB ? std::string_view(sNames) : sContent;
                Header.sh_offset = sBody.size();
                Header.sh_size = sContent.size();
                sBody += sContent;
                dHeaders.push_back(Header);
            };
            for (auto const & [sName, sContent] : dSections)
            {
                Add(sName, sContent, SHT_PROGBITS);
            }
            Add(".shstrtab", {}, SHT_STRTAB);
            sBody.append((8 - sBody.size() % 8) % 8, '\0');
            Elf64_Ehdr Head{};
            std::memcpy(Head.e_ident, ELFMAG, SELFMAG);
            Head.e_ident[EI_CLASS] = ELFCLASS64;
            Head.e_ident[EI_DATA] = ELFDATA2LSB;
            Head.e_ident[EI_VERSION] = EV_CURRENT;
            Head.e_type = ET_REL;
            Head.e_machine = EM_X86_64;
            Head.e_version = EV_CURRENT;
            Head.e_shoff = sBody.size();
            Head.e_ehsize = sizeof(Head);
            Head.e_shentsize = sizeof(Elf64_Shdr);
            Head.e_shnum = static_cast<Elf64_Half>(dHeaders.size());
            Head.e_shstrndx = static_cast<Elf64_Half>(dHeaders.size() - 1);
            std::memcpy(sBody.data(), &Head, sizeof(Head));
            sBody.append(reinterpret_cast<char const *>(dHeaders.data()), dHeaders.size() * sizeof(Elf64_Shdr));
            return sBody;
        }

        // Returns a section's content, uncompressed. Returns an empty text if there is none or it is damaged.
        std::string_view SectionOf(Elf * pElf, char const * szSection)
        {
            std::optional<Section_t> const Section = FindSection(pElf, szSection);
            bool const bPlain =
                Section
                && ((Section->Header.sh_flags & SHF_COMPRESSED) == 0 || elf_compress(Section->pSection, 0, 0) >= 0);
            Elf_Data const * const pData = bPlain ? elf_getdata(Section->pSection, nullptr) : nullptr;
            return pData == nullptr || pData->d_buf == nullptr
                       ? std::string_view()
                       : std::string_view(static_cast<char const *>(pData->d_buf), pData->d_size);
        }

        // Returns the folder of a path with the separator at its end, or an empty text without one.
        std::string_view FolderOf(std::string_view sPath)
        {
            return sPath.substr(0, sPath.rfind('/') + 1);
        }

        // Bytes before the entries of a table of offsets of strings or of addresses, in version 5 (DWARF 5, sections
        // 7.26 and 7.27).
        constexpr std::uint64_t HEAD_5 = 8;

        constexpr char INFO[] = ".debug_info.dwo";
        constexpr char TYPES[] = ".debug_types.dwo";
        constexpr char ABBREVIATIONS[] = ".debug_abbrev.dwo";
        constexpr char LINES[] = ".debug_line.dwo";
        constexpr char OFFSETS[] = ".debug_str_offsets.dwo";
        constexpr char ADDRESSES[] = ".debug_addr";
        constexpr char RANGES[] = ".debug_ranges";

        // The kinds of a package's sections, by their numbers in its index of version 2 (the extension of GNU before
        // version 5) and of version 5 (DWARF 5, section 7.3.5). Those that are not used are empty texts.
        constexpr std::array<char const *, 9> KINDS_2 = { "", INFO, TYPES, ABBREVIATIONS, LINES, ".debug_loc.dwo",
            OFFSETS, "", "" };
        constexpr std::array<char const *, 9> KINDS_5 = { "", INFO, "", ABBREVIATIONS, LINES, ".debug_loclists.dwo",
            OFFSETS, "", ".debug_rnglists.dwo" };

        // A package's index of units: a table of identifiers, then for each unit its parts of the sections.
        class PackageIndex_c
        {
        public:
            // A unit's part of a section.
            struct Part_s
            {
                std::uint64_t nOffset = 0;
                std::uint64_t nBytes = 0;
                bool operator==(Part_s const &) const = default;
            };
            using Parts_t = std::map<std::string, Part_s>;   // by the names of the sections

            explicit PackageIndex_c(std::string_view sIndex)
                : m_sIndex(sIndex)
                , m_bVersion5(Take<std::uint16_t>(sIndex, 0) == 5)
                , m_nColumns(Take<std::uint32_t>(sIndex, 4))
                , m_nRows(Take<std::uint32_t>(sIndex, 8))
                , m_nSlots(Take<std::uint32_t>(sIndex, 12))
            {}

            bool IsVersion5() const { return m_bVersion5; }

            // Calls fnRow with the identifier and the parts of each unit, until it returns true.
            template <typename ROW>
            void Visit(ROW const & fnRow) const
            {
                std::uint64_t const nNumbers = HEAD + m_nSlots * 8;   // offset of the numbers of rows
                for (std::uint64_t i = 0; i < m_nSlots && nNumbers <= m_sIndex.size(); ++i)
                {
                    std::uint32_t const iRow = Take<std::uint32_t>(m_sIndex, nNumbers + i * 4);
                    if (iRow != 0 && iRow <= m_nRows
                        && fnRow(Take<std::uint64_t>(m_sIndex, HEAD + i * 8), PartsOf(iRow - 1)))
                    {
                        return;
                    }
                }
            }

        private:
            static constexpr std::uint64_t HEAD = 16;   // bytes before the identifiers

            Parts_t PartsOf(std::uint64_t iRow) const
            {
                Parts_t dParts;
                std::uint64_t const nKinds = HEAD + m_nSlots * 12;   // offset of the kinds of the columns
                for (std::uint64_t i = 0; i < m_nColumns && i < KINDS_5.size(); ++i)
                {
                    std::uint32_t const nKind = Take<std::uint32_t>(m_sIndex, nKinds + i * 4);
                    std::uint64_t const nOffset = nKinds + (1 + iRow) * m_nColumns * 4 + i * 4;
                    char const * const szKind = nKind >= KINDS_5.size() ? "" : (m_bVersion5 ? KINDS_5 : KINDS_2)[nKind];
                    if (szKind[0] != '\0')
                    {
                        dParts[szKind] = { Take<std::uint32_t>(m_sIndex, nOffset),
                            Take<std::uint32_t>(m_sIndex, nOffset + m_nRows * m_nColumns * 4) };
                    }
                }
                return dParts;
            }

            std::string_view m_sIndex;
            bool m_bVersion5;
            std::uint64_t m_nColumns;
            std::uint64_t m_nRows;
            std::uint64_t m_nSlots;
        };

        // Copies the strings that a unit refers to into a table of their own, and changes its offsets. bHead says
        // whether these begin with the head of version 5.
        void CompactStrings(std::string_view sStrings, bool bHead, std::string & sOffsets, std::string & sOwn)
        {
            // Bytes of one string and of all: those of a damaged package may have any length.
            constexpr std::size_t MAX_STRING = 1 << 14;
            constexpr std::size_t MAX_STRINGS = 1 << 26;
            for (std::size_t i = bHead ? HEAD_5 : 0; i + 4 <= sOffsets.size(); i += 4)
            {
                std::string_view const sRest = Slice(sStrings, Take<std::uint32_t>(sOffsets, i), sStrings.size());
                auto const nOwn = static_cast<std::uint32_t>(sOwn.size());
                std::memcpy(sOffsets.data() + i, &nOwn, sizeof(nOwn));
                std::size_t const nLength = sOwn.size() < MAX_STRINGS ? sRest.substr(0, MAX_STRING).find('\0') : 0;
                sOwn.append(sRest.substr(0, std::min(nLength, MAX_STRING)));
                sOwn += '\0';
            }
        }

        // Head of a unit: what it says of itself and its other part.
        struct UnitHead_t
        {
            std::uint64_t iUnit = 0;   // the identifier of both; 0 if there is no other part
            std::uint16_t nVersion = 0;
            std::uint8_t nAddressBytes = 8;
        };

        UnitHead_t HeadOf(Dwarf_Die * pUnit)
        {
            UnitHead_t Head;
            std::uint8_t nType = 0;
            bool const bSkeleton = dwarf_cu_info(pUnit->cu, &Head.nVersion, &nType, nullptr, nullptr, &Head.iUnit,
                                       &Head.nAddressBytes, nullptr)
                                       == 0
                                   && nType == DW_UT_skeleton;
            Head.iUnit = bSkeleton ? Head.iUnit : 0;
            return Head;
        }

        // Returns the name of the file of a unit's other part, or an empty text without one.
        std::string NameOfPart(Dwarf_Die * pUnit)
        {
            Dwarf_Attribute Attribute;
            for (unsigned const nAttribute : { DW_AT_dwo_name, DW_AT_GNU_dwo_name })
            {
                char const * const szName = dwarf_formstring(dwarf_attr(pUnit, nAttribute, &Attribute));
                if (szName != nullptr)
                {
                    return szName;
                }
            }
            return "";
        }

        // Returns the head and the DIE of a unit whose other part is the file sPart.
        std::string InfoOf(Dwarf_Die * pUnit, UnitHead_t const & Head, std::string const & sPart)
        {
            bool const bVersion5 = Head.nVersion >= 5;
            Dwarf_Addr nLow = 0;
            dwarf_lowpc(pUnit, &nLow);
            std::string sInfo;
            Put<std::uint32_t>(sInfo, 0);   // the length, set below
            Put(sInfo, Head.nVersion);
            if (bVersion5)
            {
                Put<std::uint8_t>(sInfo, DW_UT_skeleton);
                Put(sInfo, Head.nAddressBytes);
                Put<std::uint32_t>(sInfo, 0);   // the offset of the abbreviations
                Put(sInfo, Head.iUnit);
            }
            else
            {
                Put<std::uint32_t>(sInfo, 0);   // as above
                Put(sInfo, Head.nAddressBytes);
            }
            sInfo += '\1';   // the abbreviation's number
            sInfo += sPart + '\0';
            sInfo.append(reinterpret_cast<char const *>(&nLow), Head.nAddressBytes);
            if (!bVersion5)
            {
                Put(sInfo, Head.iUnit);
            }
            auto const nLength = static_cast<std::uint32_t>(sInfo.size() - 4);
            std::memcpy(sInfo.data(), &nLength, sizeof(nLength));
            return sInfo;
        }

        // Returns the abbreviation of the DIE that InfoOf returns.
        std::string AbbreviationsOf(bool bVersion5)
        {
            std::string sAbbreviations;
            // Appends a number as unsigned LEB128 (DWARF 5, section 7.6).
            auto const PutNumber = [&sAbbreviations](unsigned nNumber)
            {
                for (; nNumber >= 0x80; nNumber >>= 7)
                {
                    sAbbreviations += static_cast<char>(nNumber | 0x80);
                }
                sAbbreviations += static_cast<char>(nNumber);
            };
            // Its number, its tag, that it has no children, and the attributes with their forms.
            for (unsigned const nNumber :
                { 1u, bVersion5 ? unsigned{ DW_TAG_skeleton_unit } : unsigned{ DW_TAG_compile_unit }, 0u,
                    bVersion5 ? unsigned{ DW_AT_dwo_name } : unsigned{ DW_AT_GNU_dwo_name }, unsigned{ DW_FORM_string },
                    unsigned{ DW_AT_low_pc }, unsigned{ DW_FORM_addr } })
            {
                PutNumber(nNumber);
            }
            if (!bVersion5)
            {
                PutNumber(DW_AT_GNU_dwo_id);
                PutNumber(DW_FORM_data8);
            }
            sAbbreviations.append(3, '\0');   // the end of the attributes, two bytes, and of the table
            return sAbbreviations;
        }

        // Returns a file with the attributes by which libdw finds the other part of a unit and completes it.
        std::string SkeletonOf(Dwarf_Die * pUnit, std::string const & sPart)
        {
            constexpr std::uint64_t MAX_TABLE = 1 << 20;   // bytes of a table without a length, as all of version 4 are
            UnitHead_t const Head = HeadOf(pUnit);
            bool const bVersion5 = Head.nVersion >= 5;
            Elf * const pElf = dwarf_getelf(dwarf_cu_getdwarf(pUnit->cu));
            std::string const sInfo = InfoOf(pUnit, Head, sPart);
            std::string const sAbbreviations = AbbreviationsOf(bVersion5);
            std::string_view const sAddresses = SectionOf(pElf, ADDRESSES);
            std::uint64_t const nAddresses = Number(pUnit, bVersion5 ? DW_AT_addr_base : DW_AT_GNU_addr_base, 0);
            // The length of a table counts the 4 bytes of its version and its two sizes too.
            std::uint64_t const nBytes = bVersion5 && nAddresses >= HEAD_5
                                             ? Take<std::uint32_t>(sAddresses, nAddresses - HEAD_5) - 4
                                             : MAX_TABLE;
            Sections_t dSections = { { ".debug_info", sInfo }, { ".debug_abbrev", sAbbreviations },
                { ADDRESSES, Slice(sAddresses, nAddresses, nBytes) } };
            if (!bVersion5)
            {
                dSections[RANGES] = Slice(SectionOf(pElf, RANGES), Number(pUnit, DW_AT_GNU_ranges_base, 0), MAX_TABLE);
            }
            return ElfOf(dSections);
        }
    }

    // An ELF file, open or in memory.
    class SplitUnits_c::Image_c
    {
    public:
        // Opens a file. On failure the object is empty.
        explicit Image_c(std::string const & sPath)
            : m_hFile(open(sPath.c_str(), O_RDONLY | O_CLOEXEC))
            , m_pElf(m_hFile < 0 ? nullptr : elf_begin(m_hFile, ELF_C_READ_MMAP, nullptr))
        {}

        // Makes a unit whose other part is the file sPart, in memory.
        Image_c(Dwarf_Die * pUnit, std::string const & sPart)
            : m_sImage(SkeletonOf(pUnit, sPart))
            , m_pElf(elf_memory(m_sImage.data(), m_sImage.size()))
            , m_pDwarf(m_pElf == nullptr ? nullptr : dwarf_begin_elf(m_pElf, DWARF_C_READ, nullptr))
        {}

        ~Image_c()
        {
            dwarf_end(m_pDwarf);
            elf_end(m_pElf);
            if (m_hFile >= 0)
            {
                close(m_hFile);
            }
        }
        Image_c(Image_c const &) = delete;
        Image_c & operator=(Image_c const &) = delete;

        // Returns the DIE of the other part of the unit, or nothing if it is not found.
        std::optional<Dwarf_Die> GetPart() const
        {
            Dwarf_CU * pUnit = nullptr;
            Dwarf_Die Part{};
            bool const bFound = m_pDwarf != nullptr
                                && dwarf_get_units(m_pDwarf, nullptr, &pUnit, nullptr, nullptr, nullptr, &Part) == 0
                                && Part.addr != nullptr;
            return bFound ? std::optional(Part) : std::nullopt;
        }

        // Makes a file of one unit of a package and returns its descriptor, which the caller closes. Returns a negative
        // number if the package lacks the unit or the file can't be made.
        int Extract(std::uint64_t iUnit) const;

    private:
        int m_hFile = -1;
        std::string m_sImage;
        Elf * m_pElf = nullptr;
        Dwarf * m_pDwarf = nullptr;
    };

    int SplitUnits_c::Image_c::Extract(std::uint64_t iUnit) const
    {
        constexpr char STRINGS[] = ".debug_str.dwo";
        PackageIndex_c::Parts_t dParts;
        PackageIndex_c const Units(SectionOf(m_pElf, ".debug_cu_index"));
        Units.Visit(
            [&](std::uint64_t iFound, PackageIndex_c::Parts_t const & dUnitParts)
            {
                dParts = iFound == iUnit ? dUnitParts : dParts;
                return iFound == iUnit;
            });
        if (dParts.empty())
        {
            return -1;
        }
        std::map<std::string, std::string> dContents;
        // Rows of a damaged index may all claim the same part. Append keeps each section within the size of the
        // package's own.
        auto const Append = [&](std::string const & sKind, PackageIndex_c::Part_s const & Part)
        {
            std::string & sContent = dContents[sKind];
            std::string_view const sSection = SectionOf(m_pElf, sKind.c_str());
            std::string_view const sPart = Slice(sSection, Part.nOffset, Part.nBytes);
            sContent += sPart.size() <= sSection.size() - sContent.size() ? sPart : std::string_view();
        };
        for (auto const & [sKind, Part] : dParts)
        {
            Append(sKind, Part);
        }
        // The types that come from the same file have its abbreviations and its strings.
        PackageIndex_c(SectionOf(m_pElf, ".debug_tu_index"))
            .Visit(
                [&](std::uint64_t, PackageIndex_c::Parts_t const & dUnitParts)
                {
                    for (auto const & [sKind, Part] : dUnitParts)
                    {
                        bool const bUnits = sKind == INFO || sKind == TYPES;
                        auto const itStrings = dUnitParts.find(OFFSETS);
                        if (bUnits && itStrings != dUnitParts.end() && itStrings->second == dParts[OFFSETS])
                        {
                            Append(sKind, Part);
                        }
                    }
                    return false;
                });
        CompactStrings(SectionOf(m_pElf, STRINGS), Units.IsVersion5(), dContents[OFFSETS], dContents[STRINGS]);
        std::string const sFile = ElfOf(Sections_t(dContents.begin(), dContents.end()));
        int const hFile = memfd_create("dwo", MFD_CLOEXEC);
        if (hFile >= 0 && write(hFile, sFile.data(), sFile.size()) != static_cast<ssize_t>(sFile.size()))
        {
            close(hFile);
            return -1;
        }
        return hFile;
    }

    SplitUnits_c::SplitUnits_c() = default;
    SplitUnits_c::~SplitUnits_c() = default;

    Dwarf_Die SplitUnits_c::Find(Dwarf_Die Unit, std::string const & sModule)
    {
        auto const [itFound, bNew] = m_dFound.try_emplace(Unit.addr, Unit);
        std::uint64_t const iUnit = bNew ? HeadOf(&Unit).iUnit : 0;
        if (iUnit == 0)
        {
            return itFound->second;
        }
        Dwarf_Die Part{};
        if (dwarf_cu_info(Unit.cu, nullptr, nullptr, nullptr, &Part, nullptr, nullptr, nullptr) == 0
            && Part.addr != nullptr)
        {
            itFound->second = Part;
            return Part;
        }
        std::string const sName = NameOfPart(&Unit);
        std::string const sBeside = std::string(FolderOf(sModule)) + sName.substr(sName.rfind('/') + 1);
        std::unique_ptr<Image_c> & pPackage = m_dPackages[sModule];
        if (pPackage == nullptr)
        {
            pPackage = std::make_unique<Image_c>(sModule + ".dwp");
        }
        int const hPart = pPackage->Extract(iUnit);
        std::string const sPart = hPart < 0 ? sBeside : "/proc/self/fd/" + std::to_string(hPart);
        std::unique_ptr<Image_c> & pSkeleton = m_dSkeletons[Unit.addr];
        pSkeleton = std::make_unique<Image_c>(&Unit, sPart);
        itFound->second = pSkeleton->GetPart().value_or(Unit);
        if (hPart >= 0)
        {
            close(hPart);
        }
        return itFound->second;
    }
}
