// values.h: values of the examined process as text.
//
// A value is one line:
// - numbers in decimal, and large or negative integers also in hexadecimal
// - addresses and integers of 16 bytes in hexadecimal
// - enumerators by name, and text in quotes
// - containers and structures in braces
//
// Members can list a structure's members in further lines. Values_c escapes everything from the process.
#pragma once

#include "platform/symbols.h"
#include "tools/zqsymbols/printers.h"
#include "tools/zqsymbols/process.h"
#include "tools/zqsymbols/types.h"

#include <memory>
#include <string>
#include <vector>

namespace zqsymbols
{
    /// Texts of a value that can't be read, and of one that optimised code does not keep.
    inline constexpr char VALUE_UNREADABLE[] = "(unreadable)";
    inline constexpr char VALUE_OPTIMIZED_OUT[] = "(optimized out)";

    /// A value by its type and its address. A member has the address, or the bytes, of its outermost structure, and
    /// Types_c has the member's offset in that structure.
    struct Value_t
    {
        plat::SymbolType_t iType = 0;
        std::uint64_t nAddress = 0;
        std::shared_ptr<std::vector<std::uint8_t> const> pBytes{};   // the value itself, if it is not in memory
    };

    /// Reader of values of the process, which shows them as text.
    class Values_c
    {
    public:
        /// Makes a reader. Requires that Process and Types outlive it.
        Values_c(Process_c & Process, Types_c & Types)
            : m_Process(Process)
            , m_Types(Types)
        {}

        /// Adds a template for a type (SymbolsAddPrinter, symbols.h) before the previous ones. "*" in the name is any
        /// text.
        void AddPrinter(std::string const & sType, std::string const & sTemplate) { m_Printers.Add(sType, sTemplate); }

        /// Returns a value in one line. Shows nDepth levels of structures with up to 8 members each, and those below as
        /// "{...}". An array or a container around a structure counts as a level. Shows arrays and types with a printer
        /// for 4 more levels. Cuts an array or a structure at 1000 bytes. Returns "(unreadable)" or "(optimized out)"
        /// for a value that it can't show.
        std::string Show(Value_t const & Value, int nDepth = 2);

        /// Returns what a reference refers to. Returns any other value, or an unreadable reference, as it is.
        Value_t Referred(Value_t const & Value);

        /// Returns the members of a structure that has no printer, or of such a structure that a pointer or a reference
        /// leads to: a line each, after sIndent. Shows at most 64 members, of 3 levels of structures, and the number of
        /// those that are left out. Returns an empty text for other values.
        std::string Members(Value_t const & Value, std::string const & sIndent);

        /// Returns an unsigned number of nBytes, nOffset bytes after the start of a value. Returns nothing if it is not
        /// readable or nBytes is not 1 to 8.
        std::optional<std::uint64_t> NumberAt(Value_t const & Value, std::uint64_t nOffset, std::uint64_t nBytes);

        /// Returns the text that starts at a value, in quotes: nUnits units of nWidth bytes, at most 200, or 201 with a
        /// pair at the end. It ends before a unit that is not readable, and if bZero before a zero. If there
        /// are more units and these hold no end, "..." follows. Returns "(unreadable)" if the first unit is not
        /// readable.
        std::string Text(Value_t const & Where, std::uint64_t nUnits, std::uint64_t nWidth, bool bZero);

        /// Returns the value that a pointer or a reference leads to, with its address. Returns the first element of an
        /// array. Returns nothing for other types, or if the pointer is not readable.
        std::optional<Value_t> Target(Value_t const & Pointer);

        /// Returns nCount elements from an address on in braces. Shows at most 16 of them, and none after 1000 bytes.
        /// Adds nCount if it is more than 16. Shows nDepth levels of structures in each.
        std::string Elements(plat::SymbolType_t iElement, std::uint64_t nAddress, std::uint64_t nCount, int nDepth);

        /// Returns the object that numbers the types.
        Types_c & GetTypes() { return m_Types; }

        /// Returns whether a type is a structure, a class or a union.
        bool IsStructure(plat::SymbolType_t iType);

        /// Returns the number of bytes of an address.
        std::uint64_t GetWord() const { return m_Process.GetWord(); }

        /// Returns the member of a dotted name, or nothing if there is none. Members of bases and of unnamed members
        /// count as the structure's own.
        std::optional<Value_t> Member(Value_t const & Value, std::string_view sPath);

    private:
        std::uint64_t Offset(Value_t const & Value) const { return m_Types.GetPlace(Value.iType).nOffset; }
        bool Fetch(Value_t const & Value, std::uint64_t nOffset, void * pBuffer, std::size_t nBytes);
        bool IsFlat(plat::SymbolType_t iMember);
        std::optional<Value_t> MemberNamed(Value_t const & Value, std::string_view sName);
        std::string ShowBase(Value_t const & Value, Dwarf_Die Type);
        std::string ShowEnumeration(Value_t const & Value, Dwarf_Die Type);
        std::string ShowPointer(Value_t const & Value);
        std::string ShowArray(Value_t const & Value, Dwarf_Die Type, int nDepth);
        std::string ShowStructure(Value_t const & Value, int nDepth);
        void AddMembers(
            Value_t const & Value, std::string const & sIndent, int nDepth, int & nLeft, std::string & sText);

        Process_c & m_Process;
        Types_c & m_Types;
        Printers_c m_Printers;
    };

    /// Returns the whole characters that fit in nMost bytes, with "..." after them, or the text if it fits.
    std::string Shortened(std::string sText, std::size_t nMost);

    /// Returns a text, up to its first zero, with everything escaped that could end its line or command a terminal.
    std::string Escaped(std::string const & sText);
}
