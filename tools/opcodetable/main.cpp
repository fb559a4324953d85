// opcodetable OUT ROWS... -- ROWS...: writes two opcode tables for each mode as C++ arrays, with their indices. The
// first table has the compact form. The second one, of later instructions, has the expanded form.
#include "tools/opcodetable/compact.h"
#include "tools/opcodetable/rows.h"

#include "zqcore/copcode_internal.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace
{
    // Returns whether the library expands the compact form to this expanded one.
    bool ExpandsTo(std::string const & sCompact, std::string const & sExpanded)
    {
        std::string sTable(sExpanded.size(), '\0');
        std::size_t const nTable = OpcodeExpand(reinterpret_cast<unsigned char const *>(sCompact.data()),
            sCompact.size(), reinterpret_cast<unsigned char *>(sTable.data()), sTable.size());
        return nTable == sExpanded.size() && sTable == sExpanded;
    }

    // Returns a table's form as an array, below a comment with the table's numbers of rows and bytes.
    std::string ArrayText(std::string const & sName, std::vector<Group_t> const & dGroups, std::string const & sForm)
    {
        std::size_t nRows = 0;
        for (Group_t const & Group : dGroups)
        {
            nRows += Group.dRows.size();
        }
        std::string sText = "    // " + std::to_string(nRows) + " rows, " + std::to_string(ExpandedForm(dGroups).size())
                            + " bytes when expanded.\n    constexpr unsigned char " + sName + "[] = {";
        for (std::size_t i = 0; i != sForm.size(); ++i)
        {
            char szByte[8];
            std::snprintf(szByte, sizeof szByte, "0x%02X,", static_cast<unsigned char>(sForm[i]));
            sText += (i % 20 == 0 ? "\n        " : " ") + std::string(szByte);
        }
        return sText + "\n    };\n";
    }

    // Returns the index as two arrays. Slots with the same starts, as the root's two, share them.
    std::string IndexText(std::string const & sName, std::vector<Group_t> const & dGroups)
    {
        std::string sSlots = "    constexpr unsigned char " + sName + "_SLOTS[] = {";
        std::string sStarts = "    constexpr std::uint16_t " + sName + "_STARTS[][256] = {";
        std::vector<Starts_t> dWritten;
        for (Starts_t const & Starts : RowStarts(dGroups))
        {
            auto const itWritten = std::find(dWritten.begin(), dWritten.end(), Starts);
            bool const bNone = Starts == Starts_t{};
            sSlots += ' ' + std::to_string(bNone ? 0 : itWritten - dWritten.begin() + 1) + ',';
            if (bNone || itWritten != dWritten.end())
            {
                continue;
            }
            dWritten.push_back(Starts);
            sStarts += "\n        {";
            for (std::size_t iByte = 0; iByte != Starts.size(); ++iByte)
            {
                sStarts += (iByte % 16 == 0 ? "\n            " : " ") + std::to_string(Starts[iByte]) + ',';
            }
            sStarts += "\n        },";
        }
        return sSlots + " };\n" + sStarts + "\n    };\n";
    }

    // Returns both tables of a mode with their indices. Throws RowError_c on any fault.
    std::string TablesText(std::string const & sMode, std::vector<std::string> const & dFiles,
        std::vector<std::string> const & dLaterFiles)
    {
        std::vector<Group_t> const dGroups = ReadGroups(dFiles, sMode);
        std::vector<Group_t> const dLater = ReadGroups(dLaterFiles, sMode);
        std::string const sCompact = CompactForm(dGroups);
        if (!ExpandsTo(sCompact, ExpandedForm(dGroups)))
        {
            throw RowError_c("the compact form of mode " + sMode + " does not expand to the table");
        }
        std::string const sName = "OPCODES_" + sMode;
        std::string const sLaterName = "LATER_" + sMode;
        return ArrayText(sName, dGroups, sCompact) + IndexText(sName, dGroups)
               + ArrayText(sLaterName, dLater, ExpandedForm(dLater)) + IndexText(sLaterName, dLater);
    }
}

int main(int nArguments, char ** dArguments)
{
    std::vector<std::string> const dInputs(dArguments + std::min(nArguments, 2), dArguments + nArguments);
    auto const itLater = std::find(dInputs.begin(), dInputs.end(), "--");
    if (itLater == dInputs.begin() || dInputs.end() - itLater < 2)
    {
        std::fputs("usage: opcodetable OUT ROWS... -- ROWS...\n", stderr);
        return 2;
    }
    std::vector<std::string> const dFiles(dInputs.begin(), itLater);
    std::vector<std::string> const dLaterFiles(itLater + 1, dInputs.end());
    try
    {
        std::string sText;
        for (char const * const szMode : { "32", "64" })
        {
            sText += TablesText(szMode, dFiles, dLaterFiles);
        }
        std::ofstream Stream(dArguments[1], std::ios::binary);
        Stream << sText;
        Stream.close();
        if (!Stream)
        {
            throw RowError_c(std::string(dArguments[1]) + ": can't be written");
        }
    }
    catch (RowError_c const & Error)
    {
        std::fprintf(stderr, "opcodetable: %s\n", Error.what());
        return 1;
    }
    return 0;
}
