#include "tools/opcodetable/compact.h"

#include "zqcore/copcode_internal.h"

#include <algorithm>
#include <deque>

namespace
{
    constexpr std::size_t FORMAT_UNIT = 1;      // bytes of a unit
    constexpr std::size_t PATTERN_UNIT = 2;     // bytes of a unit: one for the code, and its mask
    constexpr std::size_t GROUP_END = 2;        // zero bytes
    constexpr std::size_t STRING_LENGTHS = 2;   // bytes: one for each string of a row

    // Returns a number as four bytes, the lowest first.
    std::string Word(std::size_t nWord)
    {
        std::string sWord;
        for (int i = 0; i != 4; ++i)
        {
            sWord += static_cast<char>(nWord >> 8 * i);
        }
        return sWord;
    }

    // Coder of the strings of one kind.
    class Coder_c
    {
    public:
        explicit Coder_c(std::size_t nUnit)
            : m_nUnit(nUnit)
            , m_dHistory(OPCODE_HISTORY)
        {}

        // Adds a string to the history and returns its shortest code, made with the strings before it.
        std::string Code(std::string const & sText)
        {
            std::string sBest;
            for (std::size_t i = 0; i != OPCODE_HISTORY; ++i)
            {
                std::string const sCode = CodeWith(sText, i);
                if (i == 0 || sCode.size() < sBest.size())
                {
                    sBest = sCode;
                }
            }
            m_dHistory.pop_back();
            m_dHistory.push_front(sText);
            return sBest;
        }

    private:
        // Returns the code of a string that shares its ends with the string iOld of the history.
        std::string CodeWith(std::string const & sText, std::size_t iOld) const
        {
            std::string const & sOld = m_dHistory[iOld];
            std::size_t const nUnits = sText.size() / m_nUnit;
            std::size_t const nMost = std::min({ nUnits, sOld.size() / m_nUnit, OPCODE_SHARED_MASK });
            std::size_t nHead = 0;
            while (nHead != nMost && sText.compare(nHead * m_nUnit, m_nUnit, sOld, nHead * m_nUnit, m_nUnit) == 0)
            {
                ++nHead;
            }
            std::size_t const nMostTail = std::min(nMost, nUnits - nHead);
            std::size_t nTail = 0;
            while (nTail != nMostTail
                   && sText.compare(sText.size() - (nTail + 1) * m_nUnit, m_nUnit, sOld,
                          sOld.size() - (nTail + 1) * m_nUnit, m_nUnit)
                          == 0)
            {
                ++nTail;
            }
            std::size_t const nLiteral = nUnits - nHead - nTail;
            std::string sCode{ static_cast<char>(iOld << OPCODE_HISTORY_SHIFT | nTail << OPCODE_TAIL_SHIFT | nHead),
                static_cast<char>(nLiteral + 1) };
            return sCode + sText.substr(nHead * m_nUnit, nLiteral * m_nUnit);
        }

        std::size_t m_nUnit;                  // bytes of a unit
        std::deque<std::string> m_dHistory;   // the latest string first
    };
}

std::string CompactForm(std::vector<Group_t> const & dGroups)
{
    Coder_c Patterns(PATTERN_UNIT);
    Coder_c Formats(FORMAT_UNIT);
    std::string sForm(1, static_cast<char>(dGroups.size()));
    for (Group_t const & Group : dGroups)
    {
        for (Row_t const & Row : Group.dRows)
        {
            sForm += Patterns.Code(Row.sPattern);
            sForm += Formats.Code(Row.sFormat);
        }
        sForm.append(GROUP_END, '\0');
    }
    return Word(sForm.size()) + Word(ExpandedForm(dGroups).size()) + sForm;
}

std::string ExpandedForm(std::vector<Group_t> const & dGroups)
{
    std::size_t const nSlots = (dGroups.size() + 1) * sizeof(std::uint32_t);
    std::string sSlots, sRows;
    std::size_t nLast = 0;
    for (Group_t const & Group : dGroups)
    {
        nLast = nSlots + sRows.size();
        sSlots += Word(nLast);
        for (Row_t const & Row : Group.dRows)
        {
            sRows += static_cast<char>(Row.sPattern.size()) + Row.sPattern;
            sRows += static_cast<char>(Row.sFormat.size()) + Row.sFormat;
        }
        sRows.append(GROUP_END, '\0');
    }
    return Word(nLast) + sSlots + sRows;
}

namespace
{
    // Returns whether a row can match code whose first byte is cCode. Only the first unit that consumes a byte decides.
    bool CanMatch(Row_t const & Row, unsigned cCode)
    {
        for (std::size_t i = 0; i < Row.sPattern.size(); i += PATTERN_UNIT)
        {
            auto const nCode = static_cast<unsigned char>(Row.sPattern[i]);
            auto const nMask = static_cast<unsigned char>(Row.sPattern[i + 1]);
            if (nMask != 0)
            {
                return (cCode & nMask) == nCode;
            }
            if (nCode <= OPCODE_RAW_LAST || nCode >= OPCODE_SUBTABLE)
            {
                return true;
            }
        }
        return true;
    }
}

std::vector<Starts_t> RowStarts(std::vector<Group_t> const & dGroups)
{
    constexpr std::size_t SMALL_GROUP = 16;   // rows; a smaller group needs no starts
    std::vector<Starts_t> dStarts(1);         // of the root, which is the last group
    std::size_t nOffset = (dGroups.size() + 1) * sizeof(std::uint32_t);
    for (Group_t const & Group : dGroups)
    {
        Starts_t & Starts = dStarts.emplace_back(Starts_t{});
        for (Row_t const & Row : Group.dRows)
        {
            for (unsigned cCode = 0; cCode != Starts.size(); ++cCode)
            {
                bool const bFirst = Starts[cCode] == 0 && CanMatch(Row, cCode);
                Starts[cCode] = bFirst ? static_cast<std::uint16_t>(nOffset) : Starts[cCode];
            }
            nOffset += STRING_LENGTHS + Row.sPattern.size() + Row.sFormat.size();
        }
        std::replace(Starts.begin(), Starts.end(), std::uint16_t{ 0 }, static_cast<std::uint16_t>(nOffset));
        if (Group.dRows.size() < SMALL_GROUP)
        {
            Starts = {};
        }
        nOffset += GROUP_END;
    }
    dStarts[0] = dStarts.back();
    if (nOffset > UINT16_MAX)
    {
        throw RowError_c("the index has offsets of 16 bits");
    }
    return dStarts;
}
