// Writes the variables of a frame with their members and values. They lie in the crashed program's memory, so each read
// is guarded. A line names each variable that can't be read.
#include "zqcore/cexceptionreport.h"
#include "zqcore/cexceptionreport_internal.h"

#include "platform/faults.h"
#include "platform/memory.h"

#include <cinttypes>
#include <cstring>

namespace
{
    using namespace exceptionreport;

    constexpr std::size_t STRING_SIZE = 32;   // bytes of a text value, with the terminator
    constexpr int UNIT_BITS = 64;             // bits of the largest unit of a bit field

    // Place and type of the value of a variable or member.
    struct Value_t
    {
        std::uintptr_t Address;
        std::uint64_t nSize;
        plat::SymbolType_t iType;
    };

    // Result of AddType: what it has added.
    enum Printed_e
    {
        PRINTED_NAME,        // the name of a type without members, and no value
        PRINTED_MEMBERS,     // the name and the members with their values
        PRINTED_UNREADABLE   // a part, because a value can't be read
    };

    // Adds a pointer to text: the text if it can be read, otherwise the address.
    void AddString(std::uintptr_t Address, Text_c & Text)
    {
        char szString[STRING_SIZE];
        std::size_t const nRead = plat::MemoryRead(Address, szString, sizeof szString);
        if (nRead == sizeof szString || std::memchr(szString, '\0', nRead) != nullptr)
        {
            Text.Add(" = \"");
            Text.AddShown(szString, STRING_SIZE - 1);
            Text.Add("\"");
        }
        else
        {
            Text.Add(" = %" PRIXPTR, Address);
        }
    }

    // Reads an object and passes it to fnPrint. Returns false if it can't be read.
    template <typename T, typename PRINT>
    bool AddRead(std::uintptr_t Address, PRINT const & fnPrint)
    {
        T Object;
        bool const bRead = plat::MemoryReadObject(Address, Object);
        if (bRead)
        {
            fnPrint(Object);
        }
        return bRead;
    }

    // Adds a value of 1, 2, 4 or 8 bytes. Adds nothing and returns true for another size. Returns false if the value
    // can't be read.
    bool AddValue(plat::Symbols_c & Symbols, Value_t const & Value, Text_c & Text)
    {
        plat::SymbolBase_e const eBase = Symbols.TypeBase(Value.iType);
        if (eBase == plat::BASE_CHAR && Value.nSize == sizeof(void *))
        {
            return AddRead<std::uintptr_t>(
                Value.Address, [&Text](std::uintptr_t nPointer) { AddString(nPointer, Text); });
        }
        bool const bFloat = eBase == plat::BASE_FLOAT;
        switch (Value.nSize)
        {
        case 1:
            return AddRead<std::uint8_t>(Value.Address, [&Text](unsigned nRead) { Text.Add(" = %X", nRead); });
        case 2:
            return AddRead<std::uint16_t>(Value.Address, [&Text](unsigned nRead) { Text.Add(" = %X", nRead); });
        case 4:
            return bFloat ? AddRead<float>(
                       Value.Address, [&Text](float fRead) { Text.Add(" = %f", static_cast<double>(fRead)); })
                          : AddRead<std::uint32_t>(
                              Value.Address, [&Text](std::uint32_t nRead) { Text.Add(" = %X", nRead); });
        case 8:
            return bFloat ? AddRead<double>(Value.Address, [&Text](double fRead) { Text.Add(" = %lf", fRead); })
                          : AddRead<std::uint64_t>(
                              Value.Address, [&Text](std::uint64_t nRead) { Text.Add(" = %" PRIX64, nRead); });
        default:
            return true;
        }
    }

    // Adds the value of a bit field, from the unit that holds it. Returns false if that can't be read or has more than
    // 8 bytes.
    bool AddBits(plat::SymbolMember_t const & Member, std::uintptr_t Address, Text_c & Text)
    {
        std::uint64_t nUnit = 0;
        auto const nBytes = static_cast<std::size_t>(Member.nSize);
        if (nBytes > sizeof nUnit || plat::MemoryRead(Address, &nUnit, nBytes) != nBytes)
        {
            return false;
        }
        std::uint64_t const nMask = ~std::uint64_t{ 0 } >> (UNIT_BITS - Member.nBits);
        Text.Add(" = %" PRIX64, nUnit >> Member.nFirstBit & nMask);
        return true;
    }

    // Adds the value of a member, which may be a bit field. Returns false as AddValue and AddBits do.
    bool AddMember(
        plat::Symbols_c & Symbols, plat::SymbolMember_t const & Member, std::uintptr_t Address, Text_c & Text)
    {
        bool const bBits = Member.nBits > 0 && Member.nBits <= UNIT_BITS && Member.nFirstBit < UNIT_BITS;
        return bBits ? AddBits(Member, Address, Text)
                     : AddValue(Symbols, { Address, Member.nSize, Member.iType }, Text);
    }

    // Adds the name of the type, or of the member whose number iType is, then the members of the type, each on its own
    // line, indented deeper than the name. Returns what it has added. Address is that of the variable, also at deeper
    // levels: a member's offset counts from the variable's start.
    Printed_e AddType(
        plat::Symbols_c & Symbols, plat::SymbolType_t iType, unsigned nLevel, std::uintptr_t Address, Text_c & Text)
    {
        char szName[NAME_SIZE];
        if (Symbols.TypeName(iType, szName, sizeof szName))
        {
            Text.Add(" ");
            Text.AddShown(szName);
        }
        unsigned const nMembers = Symbols.TypeMembers(iType);
        if (nMembers == 0)
        {
            return PRINTED_NAME;
        }
        Text.Add("\r\n");
        plat::SymbolMember_t Member;
        for (unsigned i = 0; i < nMembers && !Text.IsFull() && Symbols.TypeMember(iType, i, &Member); ++i)
        {
            for (unsigned iTab = 0; iTab < nLevel + 2; ++iTab)
            {
                Text.Add("\t");
            }
            Printed_e const ePrinted = AddType(Symbols, Member.iType, nLevel + 1, Address, Text);
            std::uintptr_t const Place = Address + static_cast<std::uintptr_t>(Member.nOffset);
            if (ePrinted == PRINTED_UNREADABLE
                || (ePrinted == PRINTED_NAME && !AddMember(Symbols, Member, Place, Text)))
            {
                return PRINTED_UNREADABLE;
            }
            Text.Add("\r\n");
        }
        return PRINTED_MEMBERS;
    }

    // Writes a variable that lies in memory. Skips others, and functions. Returns false if its value can't be read.
    bool WriteVariable(plat::Symbols_c & Symbols, plat::SymbolVariable_t const & Variable)
    {
        if (Variable.bFunction || Variable.ePlace != plat::PLACE_MEMORY)
        {
            return true;
        }
        char szText[SYMBOL_SIZE];
        Text_c Text(szText, sizeof szText);
        Text.Add("\t%s'", Variable.eKind == plat::SYMBOL_PARAMETER ? "Parameter "
                          : Variable.eKind == plat::SYMBOL_LOCAL   ? "Local "
                                                                   : "");
        Text.AddShown(Variable.szName);
        Text.Add("'");
        Printed_e const ePrinted = AddType(Symbols, Variable.iType, 0, Variable.Address, Text);
        if (ePrinted == PRINTED_UNREADABLE
            || (ePrinted == PRINTED_NAME
                && !AddValue(Symbols, { Variable.Address, Variable.nSize, Variable.iType }, Text)))
        {
            return false;
        }
        Text.AddEnd("\r\n");
        WriteText(Text);
        return true;
    }

    // Arguments and result of a guarded call of WriteVariable.
    struct Call_t
    {
        plat::Symbols_c & Symbols;
        plat::SymbolVariable_t Variable;
        bool bWritten;
    };

    void CallWriteVariable(void * pCall)
    {
        auto & Call = *static_cast<Call_t *>(pCall);
        Call.bWritten = WriteVariable(Call.Symbols, Call.Variable);
    }
}

void exceptionreport::WriteVariables(plat::Symbols_c & Symbols)
{
    Call_t Call = { Symbols, {}, false };
    while (Symbols.NextVariable(&Call.Variable))
    {
        Call.bWritten = false;
        plat::FaultCallGuarded(CallWriteVariable, &Call, 0);
        if (!Call.bWritten)
        {
            char szLine[LINE_SIZE];
            Text_c Line(szLine, sizeof szLine);
            Line.Add("punting on symbol ");
            Line.AddShown(Call.Variable.szName);
            Line.AddEnd("\r\n");
            WriteText(Line);
        }
    }
}
