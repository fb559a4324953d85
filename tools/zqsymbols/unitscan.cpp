#include "tools/zqsymbols/unitscan.h"

#include <algorithm>
#include <cstdint>
#include <dwarf.h>
#include <optional>

namespace zqsymbols
{
    namespace
    {
        constexpr std::size_t MAX_CODES = 1 << 16;   // codes of abbreviations that are read, from 0
        constexpr std::size_t MAX_DEPTH = 1 << 10;   // a DIE with this many around it is not read

        // Way to skip the value of an attribute.
        enum Skip_e : std::uint8_t
        {
            SKIP_BYTES,   // nBytes
            SKIP_LEB128,
            SKIP_TEXT,
            SKIP_BLOCK,        // after its length, which has nBytes
            SKIP_LONG_BLOCK,   // with a length in LEB128
            SKIP_INDIRECT,     // after a form in LEB128
            SKIP_REST          // of the unit
        };

        // Step over the values of one or more attributes.
        struct Step_t
        {
            Skip_e eSkip;
            std::uint8_t nBytes;   // of the values; of the length for SKIP_BLOCK
        };

        // Content of the abbreviation of a DIE.
        struct Shape_t
        {
            unsigned nTag = 0;
            bool bKnown = false;   // whether the unit has such an abbreviation
            bool bChildren = false;
            bool bCode = false;   // whether the DIE has addresses of code
            std::vector<Step_t> dSteps;
        };

        // Walk over the DIEs of a unit.
        class Scanner_c
        {
        public:
            explicit Scanner_c(Dwarf_Die Unit)
                : m_Unit(Unit)
                , m_pNext(static_cast<std::uint8_t const *>(Unit.addr))
                , m_pEnd(m_pNext)
            {
                std::uint8_t nType = 0;
                std::uint8_t nAddress = 0;
                std::uint8_t nOffset = 0;
                if (dwarf_cu_info(Unit.cu, &m_nVersion, &nType, nullptr, nullptr, nullptr, &nAddress, &nOffset) != 0)
                {
                    return;
                }
                m_nAddress = nAddress;
                m_nOffset = nOffset;
                Dwarf_Off const nDie = dwarf_dieoffset(&Unit);
                Dwarf_Off nNext = 0;
                std::size_t nHead = 0;
                std::uint64_t nSignature = 0;
                bool const bTypes = nType == DW_UT_type && m_nVersion < 5;   // in a section of their own
                if (dwarf_next_unit(dwarf_cu_getdwarf(Unit.cu), nDie - dwarf_cuoffset(&Unit), &nNext, &nHead, nullptr,
                        nullptr, nullptr, nullptr, bTypes ? &nSignature : nullptr, nullptr)
                        == 0
                    && nNext > nDie)
                {
                    m_pEnd += nNext - nDie;
                    ReadShapes();
                }
            }

            // Calls fnDie with each DIE but the unit's own, its shape and the address of the DIE around it. Stops at a
            // DIE without a known shape, and at one that has MAX_DEPTH DIEs around it.
            template <typename DIE>
            void Visit(DIE const & fnDie)
            {
                std::vector<void *> dAround;
                while (m_pNext < m_pEnd)
                {
                    void * const pDie = const_cast<std::uint8_t *>(m_pNext);
                    std::uint64_t const nCode = TakeLeb128();
                    if (nCode == 0)
                    {
                        if (dAround.empty())
                        {
                            return;
                        }
                        dAround.pop_back();
                        continue;
                    }
                    if (nCode >= m_dShapes.size() || !m_dShapes[nCode].bKnown || dAround.size() >= MAX_DEPTH)
                    {
                        return;
                    }
                    Shape_t const & Shape = m_dShapes[nCode];
                    if (!dAround.empty())
                    {
                        fnDie(pDie, Shape, dAround.back());
                    }
                    for (Step_t const & Step : Shape.dSteps)
                    {
                        Skip(Step);
                    }
                    if (Shape.bChildren)
                    {
                        dAround.push_back(pDie);
                    }
                }
            }

        private:
            // Reads an unsigned number in LEB128 (DWARF 5, section 7.6) and returns it. Returns 0 if the unit ends
            // inside it.
            std::uint64_t TakeLeb128()
            {
                std::uint64_t nValue = 0;
                for (unsigned nShift = 0; m_pNext < m_pEnd; nShift += 7)
                {
                    std::uint8_t const cByte = *m_pNext++;
                    nValue |= nShift < 64 ? std::uint64_t{ cByte & 0x7Fu } << nShift : 0;
                    if ((cByte & 0x80) == 0)
                    {
                        return nValue;
                    }
                }
                return 0;
            }

            // Reads a little-endian number, cut at the end of the unit, and returns it.
            std::uint64_t TakeNumber(unsigned nBytes)
            {
                std::uint64_t nValue = 0;
                for (unsigned i = 0; i < nBytes && m_pNext < m_pEnd; ++i)
                {
                    nValue |= std::uint64_t{ *m_pNext++ } << 8 * i;
                }
                return nValue;
            }

            void SkipBytes(std::uint64_t nBytes)
            {
                m_pNext += std::min(nBytes, static_cast<std::uint64_t>(m_pEnd - m_pNext));
            }

            void Skip(Step_t Step)
            {
                switch (Step.eSkip)
                {
                case SKIP_BYTES:
                    return SkipBytes(Step.nBytes);
                case SKIP_LEB128:
                    TakeLeb128();
                    return;
                case SKIP_TEXT:
                    m_pNext = std::find(m_pNext, m_pEnd, 0);
                    return SkipBytes(1);
                case SKIP_BLOCK:
                    return SkipBytes(TakeNumber(Step.nBytes));
                case SKIP_LONG_BLOCK:
                    return SkipBytes(TakeLeb128());
                case SKIP_INDIRECT:
                    Step = StepOf(static_cast<unsigned>(TakeLeb128()));
                    return Skip(Step.eSkip == SKIP_INDIRECT ? Step_t{ SKIP_REST, 0 } : Step);
                case SKIP_REST:
                    m_pNext = m_pEnd;
                    return;
                }
            }

            // Returns the number of bytes of a form's values. Returns nothing for an unknown form, and for one whose
            // values differ in length.
            std::optional<std::uint8_t> BytesOf(unsigned nForm) const
            {
                switch (nForm)
                {
                case DW_FORM_flag_present:
                case DW_FORM_implicit_const:
                    return 0;
                case DW_FORM_data1:
                case DW_FORM_ref1:
                case DW_FORM_flag:
                case DW_FORM_strx1:
                case DW_FORM_addrx1:
                    return 1;
                case DW_FORM_data2:
                case DW_FORM_ref2:
                case DW_FORM_strx2:
                case DW_FORM_addrx2:
                    return 2;
                case DW_FORM_strx3:
                case DW_FORM_addrx3:
                    return 3;
                case DW_FORM_data4:
                case DW_FORM_ref4:
                case DW_FORM_strx4:
                case DW_FORM_addrx4:
                case DW_FORM_ref_sup4:
                    return 4;
                case DW_FORM_data8:
                case DW_FORM_ref8:
                case DW_FORM_ref_sig8:
                case DW_FORM_ref_sup8:
                    return 8;
                case DW_FORM_data16:
                    return 16;
                case DW_FORM_addr:
                    return m_nAddress;
                case DW_FORM_ref_addr:
                    return m_nVersion < 3 ? m_nAddress : m_nOffset;
                case DW_FORM_strp:
                case DW_FORM_line_strp:
                case DW_FORM_sec_offset:
                case DW_FORM_strp_sup:
                case DW_FORM_GNU_ref_alt:
                case DW_FORM_GNU_strp_alt:
                    return m_nOffset;
                default:
                    return std::nullopt;
                }
            }

            // Returns the way to skip a value of a form. An unknown form skips the rest of the unit.
            Step_t StepOf(unsigned nForm) const
            {
                if (std::optional<std::uint8_t> const nBytes = BytesOf(nForm))
                {
                    return { SKIP_BYTES, *nBytes };
                }
                switch (nForm)
                {
                case DW_FORM_sdata:
                case DW_FORM_udata:
                case DW_FORM_ref_udata:
                case DW_FORM_strx:
                case DW_FORM_addrx:
                case DW_FORM_loclistx:
                case DW_FORM_rnglistx:
                case DW_FORM_GNU_addr_index:
                case DW_FORM_GNU_str_index:
                    return { SKIP_LEB128, 0 };
                case DW_FORM_string:
                    return { SKIP_TEXT, 0 };
                case DW_FORM_block1:
                    return { SKIP_BLOCK, 1 };
                case DW_FORM_block2:
                    return { SKIP_BLOCK, 2 };
                case DW_FORM_block4:
                    return { SKIP_BLOCK, 4 };
                case DW_FORM_block:
                case DW_FORM_exprloc:
                    return { SKIP_LONG_BLOCK, 0 };
                case DW_FORM_indirect:
                    return { SKIP_INDIRECT, 0 };
                default:
                    return { SKIP_REST, 0 };
                }
            }

            void ReadShapes()
            {
                std::size_t nLength = 0;
                for (Dwarf_Off nOffset = 0;; nOffset += nLength)
                {
                    Dwarf_Abbrev * const pAbbreviation = dwarf_getabbrev(&m_Unit, nOffset, &nLength);
                    if (pAbbreviation == nullptr || pAbbreviation == DWARF_END_ABBREV)
                    {
                        return;
                    }
                    unsigned const nCode = dwarf_getabbrevcode(pAbbreviation);
                    if (nCode < MAX_CODES)
                    {
                        m_dShapes.resize(std::max<std::size_t>(m_dShapes.size(), nCode + 1));
                        m_dShapes[nCode] = ShapeOf(pAbbreviation);
                    }
                }
            }

            // Returns the shape of an abbreviation. Joins steps over a fixed number of bytes.
            Shape_t ShapeOf(Dwarf_Abbrev * pAbbreviation) const
            {
                Shape_t Shape;
                Shape.bKnown = true;
                Shape.nTag = dwarf_getabbrevtag(pAbbreviation);
                Shape.bChildren = dwarf_abbrevhaschildren(pAbbreviation) != 0;
                unsigned nName = 0;
                unsigned nForm = 0;
                // dwarf_getattrcnt misreads the constants of DW_FORM_implicit_const.
                for (std::size_t i = 0; dwarf_getabbrevattr(pAbbreviation, i, &nName, &nForm, nullptr) == 0; ++i)
                {
                    Step_t const Step = StepOf(nForm);
                    bool const bJoins = Step.eSkip == SKIP_BYTES && !Shape.dSteps.empty()
                                        && Shape.dSteps.back().eSkip == SKIP_BYTES
                                        && Shape.dSteps.back().nBytes + Step.nBytes <= UINT8_MAX;
                    if (bJoins)
                    {
                        Shape.dSteps.back().nBytes =
                            static_cast<std::uint8_t>(Shape.dSteps.back().nBytes + Step.nBytes);
                    }
                    else
                    {
                        Shape.dSteps.push_back(Step);
                    }
                    Shape.bCode |= nName == DW_AT_low_pc || nName == DW_AT_ranges;
                }
                return Shape;
            }

            Dwarf_Die m_Unit;
            std::uint8_t const * m_pNext;
            std::uint8_t const * m_pEnd;
            std::uint16_t m_nVersion = 0;
            std::uint8_t m_nAddress = 0;      // bytes of an address
            std::uint8_t m_nOffset = 0;       // bytes of an offset in a section
            std::vector<Shape_t> m_dShapes;   // by code
        };
    }

    UnitScan_c::UnitScan_c(Dwarf_Die Unit)
    {
        Scanner_c(Unit).Visit(
            [&](void * pDie, Shape_t const & Shape, void * pAround)
            {
                switch (Shape.nTag)
                {
                case DW_TAG_subprogram:
                    if (Shape.bCode)
                    {
                        m_dFunctions.push_back({ pDie, Unit.cu, nullptr, 0 });
                    }
                    break;
                case DW_TAG_namespace:
                case DW_TAG_structure_type:
                case DW_TAG_class_type:
                case DW_TAG_union_type:
                case DW_TAG_enumeration_type:
                case DW_TAG_typedef:
                    m_dScopes.emplace_back(pDie, pAround);
                    break;
                default:
                    break;
                }
            });
    }

    Dwarf_Die UnitScan_c::ScopeOf(Dwarf_Die Die) const
    {
        auto const itFound =
            std::lower_bound(m_dScopes.begin(), m_dScopes.end(), std::pair<void *, void *>(Die.addr, nullptr));
        bool const bFound = itFound != m_dScopes.end() && itFound->first == Die.addr;
        return bFound ? Dwarf_Die{ itFound->second, Die.cu, nullptr, 0 } : Dwarf_Die{};
    }
}
