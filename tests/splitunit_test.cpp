#include "tools/zqsymbols/names.h"

#include "tests/test_support.h"

#include <dwarf.h>

namespace
{
    using namespace zqsymbols;

    constexpr char SOURCE[] = "struct Hull_t { int nPlates, nHoles; } g_Hull;\n"
                              "int Sink(Hull_t * pHull, int nShots)\n"
                              "{ Hull_t const Before = *pHull; pHull->nHoles += nShots;"
                              " return Before.nHoles * pHull->nPlates; }\n"
                              "int main(int n, char **) { return Sink(&g_Hull, n); }\n";

    constexpr std::uint64_t START = 0x400000, END = 0x410000, ADDRESS = 0x401004;   // in Sink
    constexpr int DEEPEST_LEVEL = 3;   // of DIEs below a scope that are read

    // Appends the names of a DIE, of the siblings after it and of the DIEs below them to sNames. Also reads their types
    // and their locations.
    void Walk(Dwarf_Die Die, int nLevel, std::string & sNames)
    {
        do
        {
            char const * const szName = dwarf_diename(&Die);
            sNames += szName != nullptr ? std::string(szName) + ' ' : "";
            Dwarf_Attribute Attribute;
            Dwarf_Op * pExpression;
            std::size_t nExpression;
            Dwarf_Addr nBase, nStart, nEnd;
            if (dwarf_attr(&Die, DW_AT_location, &Attribute) != nullptr)
            {
                dwarf_getlocations(&Attribute, 0, &nBase, &nStart, &nEnd, &pExpression, &nExpression);
            }
            Dwarf_Die Type, Child;
            if (dwarf_formref_die(dwarf_attr(&Die, DW_AT_type, &Attribute), &Type) != nullptr)
            {
                dwarf_peel_type(&Type, &Type);
                dwarf_aggregate_size(&Type, &nBase);
            }
            if (nLevel < DEEPEST_LEVEL && dwarf_child(&Die, &Child) == 0)
            {
                Walk(Child, nLevel + 1, sNames);
            }
        }
        while (dwarf_siblingof(&Die, &Die) == 0);
    }

    // Returns the names at ADDRESS: that of the function by its symbol, and those in the debug information. Returns "?"
    // for a function that is not found. Also reads the line there, which damage must not break.
    std::string NamesAt(std::string const & sProgram)
    {
        Modules_c Modules("");
        Modules.AddModule(sProgram.c_str(), START, END);
        Modules.EndModules();
        std::optional<Function_t> const Function = FunctionAt(Modules, ADDRESS);
        std::string sNames = Function ? Function->sName + ": " : "?: ";
        std::optional<Unit_t> Unit = Modules.UnitAt(ADDRESS);
        if (Unit)
        {
            LineAt(Modules, ADDRESS);
            for (Dwarf_Die const & Scope : Modules.ScopesAt(*Unit, ADDRESS))
            {
                Walk(Scope, 0, sNames);
            }
        }
        return sNames;
    }
}

// Debug information comes from files that may be damaged. Names of functions come from the program's own symbols.
TEST(SplitUnits, DamagedFilesCostVariablesAlone)
{
    TempFolder_c const Folder;
    Folder.Write("a.cpp", SOURCE);
    std::string const sProgram = Folder.Join("a");
    int nBuilt = 0;
    for (auto const & [sCompiler, sPack, sFile] :
        Rows_t<std::string, std::string, std::string>{ { "g++ -gdwarf-4", "dwp -e a -o a.dwp && rm a.dwo", "a.dwp" },
            { "clang++ -gdwarf-4 -fdebug-types-section", "llvm-dwp -e a -o a.dwp && rm a.dwo", "a.dwp" },
            { "clang++ -gdwarf-5", "llvm-dwp -e a -o a.dwp && rm a.dwo", "a.dwp" },
            { "g++ -gdwarf-5", "rm -f a.dwp", "a.dwo" } })
    {
        std::string const sBuild = "cd '" + Folder.GetPath() + "' && " + sCompiler + " -O1 -gsplit-dwarf -c a.cpp && "
                                   + sCompiler + " a.o -o a -no-pie -nostdlib"
                                   + " -Wl,-e,main,--section-start=.text=0x401000 && " + sPack + " 2>&1";
        if (RunShell(sBuild).iStatus != 0)
        {
            continue;   // a tool is missing
        }
        ++nBuilt;
        std::string const sWhole = Folder.Read(sFile), sNames = NamesAt(sProgram);
        EXPECT_THAT(sNames, testing::HasSubstr("Sink: Sink pHull nShots Before ")) << sCompiler;
        auto const Try = [&, &sFile = sFile](std::string const & sDamaged)
        {
            Folder.Write(sFile, sDamaged);
            return NamesAt(sProgram);
        };
        for (std::size_t i = 0; i < sWhole.size(); i += 4)   // each number in turn, and a cut at each eighth one
        {
            std::string sDamaged = sWhole;
            sDamaged.replace(i, 4, "\xFF\xFF\xFF\xFF");
            EXPECT_THAT(Try(sDamaged), testing::StartsWith("Sink: ")) << sCompiler << " at " << i;
            if (i % 32 == 0)
            {
                EXPECT_THAT(Try(sWhole.substr(0, i)), testing::StartsWith("Sink: ")) << sCompiler << " at " << i;
            }
        }
        EXPECT_EQ(Try(sWhole), sNames);
    }
    SKIP_IF(nBuilt == 0, "no compiler here that splits debug information");
}
