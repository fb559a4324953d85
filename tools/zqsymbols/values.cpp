#include "tools/zqsymbols/values.h"

#include "platform/text.h"
#include "tools/zqsymbols/dies.h"
#include "tools/zqsymbols/names.h"
#include "tools/zqsymbols/typenames.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <deque>

namespace zqsymbols
{
    namespace
    {
        constexpr char LEFT_OUT[] = "{...}";
        constexpr std::uint64_t TEXT_UNITS = 200;     // of a text that are shown
        constexpr std::uint64_t ELEMENTS = 16;        // of a container
        constexpr std::size_t IN_LINE = 8;            // members of a structure in one line
        constexpr std::size_t VALUE_SIZE = 1000;      // bytes of a value in one line
        constexpr int LINES = 64;                     // members of a variable that are listed
        constexpr int LEVELS = 3;                     // of structures in each other
        constexpr int DEEPEST = -3;                   // lowest nDepth, which ends a cycle of types
        constexpr std::uint64_t HEX_FROM = 0x10000;   // a smaller number from 0 on is shown in decimal alone

        // Returns a number in hexadecimal, with at least nDigits digits.
        std::string Hex(std::uint64_t nValue, int nDigits = 1)
        {
            char szText[24];
            std::snprintf(szText, sizeof(szText), "0x%0*llX", nDigits, static_cast<unsigned long long>(nValue));
            return szText;
        }

        std::string Utf8FromCharacter(char32_t cText)
        {
            wchar_t const wszText[] = { static_cast<wchar_t>(cText), 0 };
            char szText[8];
            plat::Utf8FromWide(szText, sizeof(szText), wszText);
            return szText;
        }

        // Returns the character of two units of UTF-16. Returns nothing if they are no pair.
        std::optional<char32_t> CharacterFromUnits(std::uint64_t nFirst, std::uint64_t nSecond)
        {
            auto const cHigh = static_cast<char32_t>(nFirst), cLow = static_cast<char32_t>(nSecond);
            return plat::IsSurrogatePair(cHigh, cLow) ? std::optional(plat::CharacterFromPair(cHigh, cLow))
                                                      : std::nullopt;
        }

        // Returns the number of bytes of a character type. Returns 0 for other types.
        std::uint64_t CharWidth(Dwarf_Die Type, std::uint64_t nSize)
        {
            if (Type.addr == nullptr || dwarf_tag(&Type) != DW_TAG_base_type)
            {
                return 0;
            }
            std::string const sName = NameOf(&Type);
            bool const bChar = sName == "char" || sName == "wchar_t" || Number(&Type, DW_AT_encoding, 0) == DW_ATE_UTF;
            return bChar && (nSize == 1 || nSize == 2 || nSize == 4) ? nSize : 0;
        }

        template <typename T>
        std::string ShortestDecimal(T fValue)
        {
            char szText[64];
            std::to_chars_result const Result = std::to_chars(szText, szText + sizeof(szText), fValue);
            return std::string(szText, Result.ptr);
        }

        // Returns the text of a number of IEEE 754. With bExtended, a number of 12 or 16 bytes is the x87's of 80 bits.
        std::string Real(std::uint8_t const * pBytes, std::uint64_t nSize, bool bExtended)
        {
            __extension__ using Quad_t = __float128;
            Quad_t fQuad = 0;
            float fFloat = 0;
            double fDouble = 0;
            long double fLong = 0;
            switch (nSize)
            {
            case sizeof(fFloat):
                std::memcpy(&fFloat, pBytes, sizeof(fFloat));
                return ShortestDecimal(fFloat);
            case sizeof(fDouble):
                std::memcpy(&fDouble, pBytes, sizeof(fDouble));
                return ShortestDecimal(fDouble);
            case 12:
            case 16:
                std::memcpy(&fLong, pBytes, 10);   // what the processor stores
                std::memcpy(&fQuad, pBytes, bExtended ? 0 : sizeof(fQuad));
                return ShortestDecimal(bExtended ? fLong : static_cast<long double>(fQuad));
            default:
                return VALUE_UNREADABLE;
            }
        }

        // Returns whether a member is a bit field of fewer than 64 bits that begins in the first 64 bits of its unit.
        bool IsBitField(MemberPlace_t const & Place)
        {
            return Place.nBits > 0 && Place.nBits < 64 && Place.nFirstBit < 64;
        }

        // Returns the width in bits of a value of nSize bytes, or of the bit field that it is.
        std::uint64_t WidthOf(MemberPlace_t const & Place, std::uint64_t nSize)
        {
            return IsBitField(Place) ? Place.nBits : nSize * 8;
        }

        // Returns the lowest nWidth bits of a number, or all of them if nWidth is 64 or more.
        std::uint64_t LowBits(std::uint64_t nNumber, std::uint64_t nWidth)
        {
            return nWidth >= 64 ? nNumber : nNumber & ((std::uint64_t{ 1 } << nWidth) - 1);
        }

        // Returns the lowest nWidth bits of a value, or 64 bits if nWidth is larger, from what was read at its place.
        std::uint64_t BitsOf(MemberPlace_t const & Place, std::uint64_t nRead, std::uint64_t nWidth)
        {
            return LowBits(IsBitField(Place) ? nRead >> Place.nFirstBit : nRead, nWidth);
        }

        // Returns what is shown of a value that lacks bytes.
        std::string TextOfMissing(Value_t const & Value)
        {
            return Value.pBytes ? VALUE_OPTIMIZED_OUT : VALUE_UNREADABLE;
        }

        // Returns the signed number that the lowest nWidth bits hold in two's complement.
        std::int64_t ExtendSign(std::uint64_t nBits, std::uint64_t nWidth)
        {
            return nWidth >= 64 ? static_cast<std::int64_t>(nBits)
                                : static_cast<std::int64_t>(nBits << (64 - nWidth)) >> (64 - nWidth);
        }

        // Returns a number of nWidth bits in decimal. A negative or a large one has its hexadecimal form too.
        std::string Integer(std::uint64_t nBits, std::uint64_t nWidth, bool bSigned)
        {
            std::int64_t const iSigned = ExtendSign(nBits, nWidth);
            bool const bNegative = bSigned && iSigned < 0;
            std::string const sText = bNegative ? std::to_string(iSigned) : std::to_string(nBits);
            return bNegative || nBits >= HEX_FROM
                       ? sText + " (" + Hex(nBits, bNegative ? static_cast<int>((nWidth + 3) / 4) : 1) + ")"
                       : sText;
        }
    }

    std::string Shortened(std::string sText, std::size_t nMost)
    {
        if (sText.size() > nMost)
        {
            while (nMost > 0 && plat::ContinuesUtf8(sText[nMost]))
            {
                --nMost;
            }
            sText.replace(nMost, std::string::npos, "...");
        }
        return sText;
    }

    std::string Escaped(std::string const & sText)
    {
        std::string sOut;
        char const * szNext = sText.c_str();
        while (*szNext != '\0')
        {
            char szPart[512];
            sOut.append(szPart, plat::TextEscape(szPart, sizeof(szPart), szNext, plat::Controls_e::None));
        }
        return sOut;
    }

    bool Values_c::Fetch(Value_t const & Value, std::uint64_t nOffset, void * pBuffer, std::size_t nBytes)
    {
        if (!Value.pBytes)
        {
            return m_Process.Read(m_Process.Cut(Value.nAddress + nOffset), pBuffer, nBytes);
        }
        bool const bInside = nOffset <= Value.pBytes->size() && nBytes <= Value.pBytes->size() - nOffset;
        if (bInside)
        {
            std::memcpy(pBuffer, Value.pBytes->data() + nOffset, nBytes);
        }
        return bInside;
    }

    std::optional<std::uint64_t> Values_c::NumberAt(Value_t const & Value, std::uint64_t nOffset, std::uint64_t nBytes)
    {
        std::uint64_t nNumber = 0;
        bool const bRead =
            nBytes >= 1 && nBytes <= sizeof(nNumber) && Fetch(Value, Offset(Value) + nOffset, &nNumber, nBytes);
        return bRead ? std::optional(nNumber) : std::nullopt;
    }

    bool Values_c::IsStructure(plat::SymbolType_t iType)
    {
        Dwarf_Die Die = m_Types.GetDie(iType);
        return Die.addr != nullptr && zqsymbols::IsStructure(dwarf_tag(&Die));
    }

    // Returns whether a member's own members are shown in its place: it is a structure, and a base or without a name.
    bool Values_c::IsFlat(plat::SymbolType_t iMember)
    {
        Dwarf_Die Owner = m_Types.GetOwner(iMember);
        return IsStructure(iMember) && (dwarf_tag(&Owner) == DW_TAG_inheritance || NameOf(&Owner).empty());
    }

    // Returns the nearest member of the name: one of the structure, or else of its bases and unnamed members, or else
    // of theirs.
    std::optional<Value_t> Values_c::MemberNamed(Value_t const & Value, std::string_view sName)
    {
        std::deque<plat::SymbolType_t> dStructures = { Value.iType };
        while (!dStructures.empty())
        {
            std::vector<plat::SymbolType_t> const dMembers = m_Types.GetMembers(dStructures.front());
            dStructures.pop_front();
            for (plat::SymbolType_t const iMember : dMembers)
            {
                Dwarf_Die Owner = m_Types.GetOwner(iMember);
                if (dwarf_tag(&Owner) != DW_TAG_inheritance && NameOf(&Owner) == sName)
                {
                    return Value_t{ iMember, Value.nAddress, Value.pBytes };
                }
                if (IsFlat(iMember))
                {
                    dStructures.push_back(iMember);
                }
            }
        }
        return std::nullopt;
    }

    std::optional<Value_t> Values_c::Member(Value_t const & Value, std::string_view sPath)
    {
        std::size_t const nDot = sPath.find('.');
        std::optional<Value_t> const Found = MemberNamed(Value, sPath.substr(0, nDot));
        return Found && nDot != std::string_view::npos ? Member(*Found, sPath.substr(nDot + 1)) : Found;
    }

    std::optional<Value_t> Values_c::Target(Value_t const & Pointer)
    {
        Dwarf_Die Type = m_Types.GetDie(Pointer.iType);
        if (Type.addr == nullptr)
        {
            return std::nullopt;
        }
        if (dwarf_tag(&Type) == DW_TAG_array_type)
        {
            return Value_t{ m_Types.Add(&Type), Pointer.nAddress + Offset(Pointer), nullptr };
        }
        std::optional<std::uint64_t> const nAddress =
            IsPointer(dwarf_tag(&Type)) ? NumberAt(Pointer, 0, GetWord()) : std::nullopt;
        return nAddress ? std::optional(Value_t{ m_Types.Add(&Type), *nAddress, nullptr }) : std::nullopt;
    }

    Value_t Values_c::Referred(Value_t const & Value)
    {
        Dwarf_Die Type = m_Types.GetDie(Value.iType);
        bool const bReference =
            Type.addr != nullptr && IsPointer(dwarf_tag(&Type)) && dwarf_tag(&Type) != DW_TAG_pointer_type;
        std::optional<Value_t> const Referred = bReference ? Target(Value) : std::nullopt;
        return Referred.value_or(Value);
    }

    std::string Values_c::Text(Value_t const & Where, std::uint64_t nUnits, std::uint64_t nWidth, bool bZero)
    {
        std::string sText;
        std::uint64_t iUnit = 0;
        bool bEnd = false;
        for (; iUnit < std::min(nUnits, TEXT_UNITS) && !bEnd; ++iUnit)
        {
            std::optional<std::uint64_t> const nUnit = NumberAt(Where, iUnit * nWidth, nWidth);
            if (!nUnit && iUnit == 0)
            {
                return VALUE_UNREADABLE;
            }
            bEnd = !nUnit || (bZero && *nUnit == 0);
            bool const bMayBePair = nWidth == 2 && !bEnd && iUnit + 1 < nUnits;
            std::optional<std::uint64_t> const nNext =
                bMayBePair ? NumberAt(Where, (iUnit + 1) * nWidth, nWidth) : std::nullopt;
            std::optional<char32_t> const cOfPair = nNext ? CharacterFromUnits(*nUnit, *nNext) : std::nullopt;
            iUnit += cOfPair ? 1 : 0;
            sText += bEnd          ? ""
                     : *nUnit == 0 ? std::string("\\0")
                     : nWidth == 1 ? std::string(1, static_cast<char>(*nUnit))
                                   : Utf8FromCharacter(cOfPair.value_or(static_cast<char32_t>(*nUnit)));
        }
        return "\"" + Escaped(sText) + (bEnd || iUnit == nUnits ? "\"" : "\"...");
    }

    std::string Values_c::Elements(
        plat::SymbolType_t iElement, std::uint64_t nAddress, std::uint64_t nCount, int nDepth)
    {
        std::string sText = "{ ";
        std::uint64_t const nSize = m_Types.GetSize(iElement);
        for (std::uint64_t i = 0; i < std::min(nCount, ELEMENTS) && sText.size() <= VALUE_SIZE; ++i)
        {
            sText += (i == 0 ? "" : ", ") + Show({ iElement, nAddress + i * nSize, nullptr }, nDepth);
        }
        sText += nCount > ELEMENTS ? ", ... " + std::to_string(nCount) + " elements" : "";
        return sText + (nCount == 0 ? "}" : " }");
    }

    std::string Values_c::ShowBase(Value_t const & Value, Dwarf_Die Type)
    {
        std::uint8_t dBytes[16] = {};
        std::uint64_t const nSize = m_Types.GetSize(Value.iType);
        if (nSize == 0 || nSize > sizeof(dBytes) || !Fetch(Value, Offset(Value), dBytes, nSize))
        {
            return TextOfMissing(Value);
        }
        auto const nEncoding = Number(&Type, DW_AT_encoding, 0);
        MemberPlace_t const & Place = m_Types.GetPlace(Value.iType);
        std::uint64_t nBits = 0;
        std::memcpy(&nBits, dBytes, sizeof(nBits));
        std::uint64_t const nWidth = WidthOf(Place, nSize);
        nBits = BitsOf(Place, nBits, nWidth);
        if (nEncoding == DW_ATE_float)
        {
            return Real(dBytes, nSize, NameOf(&Type) == "long double");
        }
        if (nEncoding == DW_ATE_complex_float)
        {
            return Real(dBytes, nSize / 2, true) + " + " + Real(dBytes + nSize / 2, nSize / 2, true) + "i";
        }
        if (nEncoding == DW_ATE_boolean)
        {
            return nBits == 0 ? "false" : nBits == 1 ? "true" : "true (" + Hex(nBits) + ")";
        }
        if (nSize > sizeof(nBits))
        {
            std::uint64_t nHigh = 0;
            std::memcpy(&nHigh, dBytes + sizeof(nBits), sizeof(nHigh));
            return Hex(nHigh) + Hex(nBits, 16).substr(2);
        }
        std::string const sNumber = Integer(nBits, nWidth, IsSignedEncoding(nEncoding));
        bool const bShown = CharWidth(Type, nSize) != 0 && nBits >= ' ' && (nSize > 1 || nBits < 0x7F);
        return bShown ? "'" + Escaped(Utf8FromCharacter(static_cast<char32_t>(nBits))) + "' (" + sNumber + ")"
                      : sNumber;
    }

    // Returns an enumerator, or several that make up the value as flags, or a number.
    std::string Values_c::ShowEnumeration(Value_t const & Value, Dwarf_Die Type)
    {
        std::uint64_t const nSize = m_Types.GetSize(Value.iType);
        std::optional<std::uint64_t> nRead = NumberAt(Value, 0, nSize);
        if (!nRead)
        {
            return TextOfMissing(Value);
        }
        MemberPlace_t const & Place = m_Types.GetPlace(Value.iType);
        std::uint64_t const nWidth = WidthOf(Place, nSize);
        std::uint64_t const nBits = BitsOf(Place, *nRead, nWidth);
        std::uint64_t nLeft = nBits;
        std::string sFlags;
        Dwarf_Die Underlying;
        bool const bKnown = Follow(&Type, &Underlying) && dwarf_peel_type(&Underlying, &Underlying) == 0;
        bool bSigned = bKnown && IsSignedEncoding(Number(&Underlying, DW_AT_encoding, 0));
        Dwarf_Die Child;
        bool bMore = dwarf_child(&Type, &Child) == 0;
        for (; bMore; bMore = dwarf_siblingof(&Child, &Child) == 0)
        {
            Dwarf_Attribute Attribute;
            Dwarf_Word nEnumerator = 0;
            if (dwarf_tag(&Child) != DW_TAG_enumerator
                || dwarf_formudata(dwarf_attr(&Child, DW_AT_const_value, &Attribute), &nEnumerator) != 0)
            {
                continue;
            }
            bSigned = bSigned || (!bKnown && static_cast<Dwarf_Sword>(nEnumerator) < 0);
            std::uint64_t const nFlag = LowBits(nEnumerator, nWidth);
            if (nFlag == nBits)
            {
                return Escaped(NameOf(&Child)) + " (" + Integer(nBits, nWidth, bSigned) + ")";
            }
            if (nFlag != 0 && (nFlag & (nFlag - 1)) == 0 && (nLeft & nFlag) != 0)
            {
                nLeft &= ~nFlag;
                sFlags += (sFlags.empty() ? "" : " | ") + Escaped(NameOf(&Child));
            }
        }
        std::string const sNumber = Integer(nBits, nWidth, bSigned);
        return nLeft == 0 && !sFlags.empty() ? sFlags + " (" + Hex(nBits) + ")" : sNumber;
    }

    // Returns the text that a pointer to characters leads to, or else the address. For a pointer to a function, the
    // function's name follows.
    std::string Values_c::ShowPointer(Value_t const & Value)
    {
        std::optional<Value_t> const At = Target(Value);
        if (!At)
        {
            return TextOfMissing(Value);
        }
        Dwarf_Die Pointed = m_Types.GetDie(At->iType);
        std::uint64_t const nWidth = CharWidth(Pointed, m_Types.GetSize(At->iType));
        if (nWidth != 0 && m_Process.ReadNumber(At->nAddress, 1))
        {
            return Text({ 0, At->nAddress, nullptr }, UINT64_MAX, nWidth, true);
        }
        bool const bFunction = Pointed.addr != nullptr && dwarf_tag(&Pointed) == DW_TAG_subroutine_type;
        std::optional<Function_t> const Function = bFunction ? FunctionAt(m_Process, At->nAddress) : std::nullopt;
        return Hex(At->nAddress) + (Function ? " " + Escaped(Function->sName) : "");
    }

    std::string Values_c::ShowArray(Value_t const & Value, Dwarf_Die Type, int nDepth)
    {
        if (nDepth < DEEPEST)   // damaged debug information may say that an element is the array itself
        {
            return LEFT_OUT;
        }
        plat::SymbolType_t const iElement = m_Types.Add(&Type);
        std::uint64_t const nSize = m_Types.GetSize(iElement);
        std::uint64_t const nBytes = m_Types.GetSize(Value.iType);
        std::uint64_t const nCount = nSize == 0 ? 0 : nBytes / nSize;
        std::uint64_t const nWidth = CharWidth(m_Types.GetDie(iElement), nSize);
        if (nWidth != 0)
        {
            return Text(Value, nCount, nWidth, true);
        }
        return Value.pBytes ? VALUE_UNREADABLE : Elements(iElement, Value.nAddress + Offset(Value), nCount, nDepth - 1);
    }

    std::string Values_c::ShowStructure(Value_t const & Value, int nDepth)
    {
        if (nDepth < DEEPEST)
        {
            return LEFT_OUT;
        }
        std::optional<std::string> const sKnown =
            m_Printers.Show(*this, Value, m_Types.QualifiedName(m_Types.GetDie(Value.iType)), nDepth);
        if (sKnown)
        {
            return *sKnown;
        }
        if (nDepth <= 0)
        {
            return LEFT_OUT;
        }
        std::string sText;
        std::size_t nShown = 0;
        for (plat::SymbolType_t const iMember : std::vector(m_Types.GetMembers(Value.iType)))   // Show adds types
        {
            sText += sText.empty() ? " " : ", ";
            if (nShown++ == IN_LINE)
            {
                sText += "...";
                break;
            }
            Dwarf_Die Owner = m_Types.GetOwner(iMember);
            bool const bBase = dwarf_tag(&Owner) == DW_TAG_inheritance;
            sText += bBase ? "" : "." + Escaped(NameOf(&Owner)) + " = ";
            sText += Show({ iMember, Value.nAddress, Value.pBytes }, nDepth - 1);
        }
        return "{" + sText + (sText.empty() ? "}" : " }");
    }

    std::string Values_c::Show(Value_t const & Value, int nDepth)
    {
        Value_t const Target = Referred(Value);
        Dwarf_Die Type = m_Types.GetDie(Target.iType);
        if (Type.addr == nullptr)
        {
            return VALUE_UNREADABLE;
        }
        switch (dwarf_tag(&Type))
        {
        case DW_TAG_base_type:
            return ShowBase(Target, Type);
        case DW_TAG_enumeration_type:
            return ShowEnumeration(Target, Type);
        case DW_TAG_array_type:
            return Shortened(ShowArray(Target, Type, nDepth), VALUE_SIZE);
        case DW_TAG_pointer_type:
        case DW_TAG_reference_type:
        case DW_TAG_rvalue_reference_type:
            return ShowPointer(Target);
        case DW_TAG_structure_type:
        case DW_TAG_class_type:
        case DW_TAG_union_type:
            return Shortened(ShowStructure(Target, nDepth), VALUE_SIZE);
        default:
            std::optional<std::uint64_t> const nNumber = NumberAt(Target, 0, m_Types.GetSize(Target.iType));
            return nNumber ? Hex(*nNumber) : TextOfMissing(Target);
        }
    }

    // Adds a line for each member, down to nDepth levels. Lines of its own members replace that of a flat one (IsFlat)
    // and follow that of a structure shown as LEFT_OUT. Counts nLeft down. At 0 and below it only counts the members.
    void Values_c::AddMembers(
        Value_t const & Value, std::string const & sIndent, int nDepth, int & nLeft, std::string & sText)
    {
        for (plat::SymbolType_t const iMember : std::vector(m_Types.GetMembers(Value.iType)))
        {
            Value_t const Member = { iMember, Value.nAddress, Value.pBytes };
            if (IsFlat(iMember))
            {
                AddMembers(Member, sIndent, nDepth, nLeft, sText);
                continue;
            }
            if (nLeft-- <= 0)
            {
                continue;
            }
            Dwarf_Die Owner = m_Types.GetOwner(iMember);
            std::string const sValue = Show(Member, nDepth > 1 && IsStructure(iMember) ? 0 : 2);
            sText += sIndent;
            sText +=
                "." + Escaped(NameOf(&Owner)) + ": " + Escaped(SpellTypeOf(m_Types, Owner)) + " = " + sValue + "\n";
            if (nDepth > 1 && sValue == LEFT_OUT)
            {
                AddMembers(Member, sIndent + "    ", nDepth - 1, nLeft, sText);
            }
        }
    }

    std::string Values_c::Members(Value_t const & Value, std::string const & sIndent)
    {
        Value_t Whole = Referred(Value);
        Dwarf_Die Type = m_Types.GetDie(Whole.iType);
        if (Type.addr != nullptr && dwarf_tag(&Type) == DW_TAG_pointer_type)
        {
            std::optional<Value_t> const At = Target(Whole);
            Whole = At && m_Process.ReadNumber(At->nAddress, 1) ? *At : Value_t{};
        }
        std::string sText;
        int nLeft = LINES;
        if (IsStructure(Whole.iType) && Show(Whole, 0) == LEFT_OUT)
        {
            AddMembers(Whole, sIndent, LEVELS, nLeft, sText);
            sText += nLeft < 0 ? sIndent + "... " + std::to_string(-nLeft) + " members left out ...\n" : "";
        }
        return sText;
    }
}
