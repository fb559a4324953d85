// opcodetable OUT ROWS...: writes the compact form of the opcode table for each mode, as C++ arrays.
#include "tools/opcodetable/compact.h"

#include "zqcore/copcode_internal.h"

#include <cstdio>
#include <fstream>

namespace
{
    bool ExpandsTo(std::string const & sCompact, std::string const & sExpanded)
    {
        std::string sTable(sExpanded.size(), '\0');
        std::size_t const nTable = OpcodeExpand(reinterpret_cast<unsigned char const *>(sCompact.data()),
            sCompact.size(), reinterpret_cast<unsigned char *>(sTable.data()), sTable.size());
        return nTable == sExpanded.size() && sTable == sExpanded;
    }

    std::string ArrayText(std::string const & sMode, std::vector<Group_t> const & dGroups)
    {
        std::string const sCompact = CompactForm(dGroups);
        std::string const sExpanded = ExpandedForm(dGroups);
        if (!ExpandsTo(sCompact, sExpanded))
        {
            throw RowError_c("the compact form of mode " + sMode + " does not expand to the table");
        }
        std::size_t nRows = 0;
        for (Group_t const & Group : dGroups)
        {
            nRows += Group.dRows.size();
        }
        std::string sText = "    // " + std::to_string(nRows) + " rows, " + std::to_string(sExpanded.size())
                            + " bytes when expanded.\n    constexpr unsigned char OPCODES_" + sMode + "[] = {";
        for (std::size_t i = 0; i != sCompact.size(); ++i)
        {
            char szByte[8];
            std::snprintf(szByte, sizeof szByte, "0x%02X,", static_cast<unsigned char>(sCompact[i]));
            sText += (i % 20 == 0 ? "\n        " : " ") + std::string(szByte);
        }
        return sText + "\n    };\n";
    }
}

int main(int argc, char ** argv)
{
    if (argc < 3)
    {
        std::fputs("usage: opcodetable OUT ROWS...\n", stderr);
        return 2;
    }
    std::vector<std::string> const dFiles(argv + 2, argv + argc);
    try
    {
        std::string sText;
        for (char const * const szMode : { "32", "64" })
        {
            sText += ArrayText(szMode, ReadGroups(dFiles, szMode));
        }
        std::ofstream Stream(argv[1], std::ios::binary);
        Stream << sText;
        Stream.close();
        if (!Stream)
        {
            throw RowError_c(std::string(argv[1]) + ": can't be written");
        }
    }
    catch (RowError_c const & Error)
    {
        std::fprintf(stderr, "opcodetable: %s\n", Error.what());
        return 1;
    }
    return 0;
}
