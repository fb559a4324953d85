#include "tools/zqsymbols/printers.h"

#include "tools/zqsymbols/values.h"

#include <algorithm>

namespace zqsymbols
{
    namespace
    {
        // The members' names are those of the sources: the library's own, libstdc++'s and libc++'s.
        constexpr Printer_t PRINTERS[] = {
            { "String_T<*", PRINT_MEMBER, "m_sText" },
            { "Array_T<*", PRINT_COUNTED, "pData", "iLength" },
            { "SortedArray_T<*", PRINT_COUNTED, "pData", "iLength" },
            { "StaticArray_T<*", PRINT_MEMBER, "m_dElements" },
            { "std::array<*", PRINT_MEMBER, "_M_elems" },
            { "std::__1::array<*", PRINT_MEMBER, "__elems_" },
            { "std::__cxx11::basic_string<char,*", PRINT_STRING },
            { "std::__1::basic_string<char,*", PRINT_SHORT_STRING },
            { "std::basic_string_view<char,*", PRINT_TEXT, "_M_str", "_M_len" },
            { "std::__1::basic_string_view<char,*", PRINT_TEXT, "__data_", "__size_" },
            { "std::__1::basic_string_view<char,*", PRINT_TEXT, "__data", "__size" },
            { "std::vector<*", PRINT_RANGE, "_M_impl._M_start", "_M_impl._M_finish" },
            { "std::__1::vector<*", PRINT_RANGE, "__begin_", "__end_" },
            { "std::optional<*", PRINT_OPTIONAL, "_M_payload._M_engaged", "_M_payload._M_payload._M_value" },
            { "std::__1::optional<*", PRINT_OPTIONAL, "__engaged_", "__val_" },
            { "std::unique_ptr<*", PRINT_POINTER, "_M_t._M_t._M_head_impl" },
            { "std::__1::unique_ptr<*", PRINT_POINTER, "__ptr_.__value_" },
            { "std::__1::unique_ptr<*", PRINT_POINTER, "__ptr_" },
            { "std::shared_ptr<*", PRINT_POINTER, "_M_ptr" },
            { "std::__1::shared_ptr<*", PRINT_POINTER, "__ptr_" },
        };

        constexpr std::uint64_t MAX_TEXT = 1u << 20;   // bytes; a longer text is damage
        constexpr char EMPTY_TEXT[] = "(empty)";

        std::optional<std::string> ShowText(
            Values_c & Values, std::optional<std::uint64_t> nAddress, std::optional<std::uint64_t> nLength)
        {
            bool const bText = nAddress && nLength && *nLength <= MAX_TEXT;
            return bText ? std::optional(Values.Text({ 0, *nAddress }, *nLength, 1, false)) : std::nullopt;
        }

        // Returns a template's text, with each pair of braces replaced by the value of the member that it names, or by
        // a note if there is no such member. Copies a brace without its partner.
        std::string Fill(Values_c & Values, Value_t const & Value, std::string_view sTemplate, int nDepth)
        {
            std::string sText;
            while (!sTemplate.empty())
            {
                std::size_t const nOpen = std::min(sTemplate.find('{'), sTemplate.size());
                std::size_t const nClose = sTemplate.find('}', nOpen);
                sText += Escaped(std::string(sTemplate.substr(0, nOpen)));
                if (nClose == std::string_view::npos)
                {
                    return sText + Escaped(std::string(sTemplate.substr(nOpen)));
                }
                std::string const sName(sTemplate.substr(nOpen + 1, nClose - nOpen - 1));
                std::optional<Value_t> const Member = Values.Member(Value, sName);
                sText += Member ? Values.Show(*Member, nDepth) : "(no member " + Escaped(sName) + ")";
                sTemplate.remove_prefix(nClose + 1);
            }
            return sText;
        }

        // Returns the elements from the pointer First on as text. Second is their number, or a pointer after the last
        // one. Returns nothing if a pointer, the number or the size of an element is unknown.
        std::optional<std::string> ShowRange(
            Values_c & Values, Value_t const & First, Value_t const & Second, Printer_e ePrinter, int nDepth)
        {
            std::optional<Value_t> const Begin = Values.Target(First);
            std::uint64_t const nSize = Begin ? Values.GetTypes().GetSize(Begin->iType) : 0;
            std::optional<std::uint64_t> nCount;
            if (ePrinter == PRINT_COUNTED)
            {
                nCount = Values.NumberAt(Second, 0, Values.GetTypes().GetSize(Second.iType));
            }
            else if (std::optional<Value_t> const End = Values.Target(Second); End && Begin && nSize != 0)
            {
                nCount = (End->nAddress - Begin->nAddress) / nSize;
            }
            return nSize == 0 || !nCount
                       ? std::nullopt
                       : std::optional(Values.Elements(Begin->iType, Begin->nAddress, *nCount, nDepth - 1));
        }

        // Returns a pointer and what it points at as text, or EMPTY_TEXT for null. Returns nothing if the pointer is
        // not readable.
        std::optional<std::string> ShowPointer(Values_c & Values, Value_t const & Pointer, int nDepth)
        {
            std::optional<Value_t> const Target = Values.Target(Pointer);
            if (!Target)
            {
                return std::nullopt;
            }
            std::string const sAddress = Values.Show(Pointer);
            return Target->nAddress == 0 ? EMPTY_TEXT : sAddress + " { " + Values.Show(*Target, nDepth - 1) + " }";
        }

        // Returns the text of a std::string: libstdc++'s, or with bShort libc++'s, which has no pointer to a short
        // text. Returns nothing if its pointer or its length is not readable, or if it has more than MAX_TEXT bytes.
        std::optional<std::string> ShowByWords(Values_c & Values, Value_t const & Value, bool bShort)
        {
            std::uint64_t const nWord = Values.GetWord();
            std::optional<std::uint64_t> const nFirst = Values.NumberAt(Value, 0, 1);
            if (bShort && nFirst && (*nFirst & 1) == 0)
            {
                Value_t Text = Value;
                Text.nAddress += Values.GetTypes().GetPlace(Value.iType).nOffset + 1;
                return ShowText(Values, Text.nAddress, *nFirst >> 1);
            }
            return ShowText(
                Values, Values.NumberAt(Value, bShort ? 2 * nWord : 0, nWord), Values.NumberAt(Value, nWord, nWord));
        }

        // Returns a value as text, by one row. Returns nothing if the row does not fit its members, or can't read the
        // pointers and lengths that it needs.
        std::optional<std::string> ShowBy(
            Printer_t const & Printer, Values_c & Values, Value_t const & Value, int nDepth)
        {
            if (Printer.ePrinter == PRINT_TEMPLATE)
            {
                return Fill(Values, Value, Printer.sFirst, nDepth - 1);
            }
            if (Printer.ePrinter == PRINT_STRING || Printer.ePrinter == PRINT_SHORT_STRING)
            {
                return ShowByWords(Values, Value, Printer.ePrinter == PRINT_SHORT_STRING);
            }
            std::optional<Value_t> const First = Values.Member(Value, Printer.sFirst);
            std::optional<Value_t> const Second =
                Printer.sSecond.empty() ? std::nullopt : Values.Member(Value, Printer.sSecond);
            if (!First || (!Second && !Printer.sSecond.empty()))
            {
                return std::nullopt;
            }
            switch (Printer.ePrinter)
            {
            case PRINT_MEMBER:
                return Values.Show(*First, nDepth);
            case PRINT_TEXT:
                return ShowText(Values, Values.NumberAt(*First, 0, Values.GetWord()),
                    Values.NumberAt(*Second, 0, Values.GetWord()));
            case PRINT_OPTIONAL:
            {
                std::optional<std::uint64_t> const nEngaged = Values.NumberAt(*First, 0, 1);
                return !nEngaged ? VALUE_UNREADABLE : *nEngaged == 0 ? EMPTY_TEXT : Values.Show(*Second, nDepth);
            }
            case PRINT_POINTER:
                return ShowPointer(Values, *First, nDepth);
            default:
                return ShowRange(Values, *First, *Second, Printer.ePrinter, nDepth);
            }
        }
    }

    bool FitsPattern(std::string_view sName, std::string_view sPattern)
    {
        std::size_t iPattern = 0;
        std::size_t iStar = std::string_view::npos;   // the last one so far
        std::size_t iAfterStar = 0;                   // in the name: after the text that this star matches
        for (std::size_t iName = 0; iName < sName.size();)
        {
            char const cPattern = iPattern < sPattern.size() ? sPattern[iPattern] : '\0';
            if (cPattern == '*')
            {
                iStar = iPattern++;
                iAfterStar = iName;
            }
            else if (iPattern < sPattern.size() && cPattern == sName[iName])
            {
                ++iPattern;
                ++iName;
            }
            else if (iStar != std::string_view::npos)
            {
                iPattern = iStar + 1;
                iName = ++iAfterStar;
            }
            else
            {
                return false;
            }
        }
        return sPattern.find_first_not_of('*', iPattern) == std::string_view::npos;
    }

    void Printers_c::Add(std::string const & sType, std::string const & sTemplate)
    {
        std::string_view const sOwnType = m_dTexts.emplace_back(sType);
        m_dOwn.insert(m_dOwn.begin(), { sOwnType, PRINT_TEMPLATE, m_dTexts.emplace_back(sTemplate) });
    }

    std::optional<std::string> Printers_c::Show(
        Values_c & Values, Value_t const & Value, std::string_view sType, int nDepth) const
    {
        std::optional<std::string> sText;
        auto const TryAll = [&](auto const & dPrinters)
        {
            for (Printer_t const & Printer : dPrinters)
            {
                if (!sText && FitsPattern(sType, Printer.sType))
                {
                    sText = ShowBy(Printer, Values, Value, nDepth);
                }
            }
        };
        TryAll(m_dOwn);
        TryAll(PRINTERS);
        return sText;
    }
}
