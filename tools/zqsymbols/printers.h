// printers.h: shows values of known types by one table, whose rows the type's name selects.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zqsymbols
{
    class Values_c;
    struct Value_t;

    /// Way to show a value, with what sFirst and sSecond name.
    enum Printer_e : std::uint8_t
    {
        PRINT_TEMPLATE,      // the first text with the members that it names
        PRINT_MEMBER,        // a member
        PRINT_TEXT,          // text: pointer, length
        PRINT_RANGE,         // elements: pointers to the first one and after the last one
        PRINT_COUNTED,       // elements: pointer, number
        PRINT_OPTIONAL,      // whether there is a value, the value
        PRINT_POINTER,       // what a pointer points at
        PRINT_STRING,        // a pointer and a length are the first words
        PRINT_SHORT_STRING   // the lowest bit of the first byte says whether the text is elsewhere
    };

    /// Row of the table: the way to show values of the types that fit sType.
    struct Printer_t
    {
        std::string_view sType;   // "*" is any text
        Printer_e ePrinter;
        std::string_view sFirst{}, sSecond{};   // members; sFirst of PRINT_TEMPLATE is the template
    };

    /// The rows: those of the host, then the built-in ones.
    class Printers_c
    {
    public:
        /// Adds a template of the host. Later ones come first.
        void Add(std::string const & sType, std::string const & sTemplate);

        /// Returns a value as text, by the first row that fits its type's name and, if it is no template of the host,
        /// its members. Shows nDepth levels of structures in it, as Values_c::Show does. Returns nothing if no row
        /// fits, or if none that fits can find the pointers, the lengths and the sizes of elements that it needs. The
        /// length of a text counts as not readable above 1 MiB.
        std::optional<std::string> Show(
            Values_c & Values, Value_t const & Value, std::string_view sType, int nDepth) const;

    private:
        std::list<std::string> m_dTexts;   // of m_dOwn; a list, because the rows refer to them
        std::vector<Printer_t> m_dOwn;     // rows of the host
    };

    /// Returns whether a name fits a pattern in which "*" is any text.
    bool FitsPattern(std::string_view sName, std::string_view sPattern);
}
