#include "tools/zqsymbols/typenames.h"

#include "tests/test_support.h"
#include "tools/zqsymbols/dies.h"
#include "tools/zqsymbols/types.h"

#include <fcntl.h>
#include <map>
#include <unistd.h>

using namespace zqsymbols;

TEST(TypeNames, AreDeclarationsWithoutTheirNames)
{
    TempFolder_c const Folder;
    Folder.Write("a.cpp",
        "struct Ship_c { int iHull; int Turn(float) const; };\n"
        "int (*a)[4]; void (**b)(int); void (*c[4])(int); int (&d)[2][3] = *(int (*)[2][3])0;\n"
        "int Ship_c::*e; int (Ship_c::*f)(float) const; extern int * const g = 0; extern void (*const h)() = 0;\n"
        "char const * i[2]; int (*(*j)(int, ...))[4];"
        "void (*k)(int) __attribute__((noreturn)); int const (*l)[4];\n"
        "int main() { return a || b || c[0] || d || e || f || g || h || i[0] || j || k || l; }\n");
    std::map<std::string, std::string> const dExpected = { { "a", "int (*)[4]" }, { "b", "void (* *)(int)" },
        { "c", "void (* [4])(int)" }, { "d", "int (&)[2][3]" }, { "e", "int Ship_c::*" },
        { "f", "int (Ship_c::*)(float)" }, { "g", "int * const" }, { "h", "void (* const)()" },
        { "i", "char const * [2]" }, { "j", "int (* (*)(int, ...))[4]" }, { "k", "void (*)(int)" },
        { "l", "int const (*)[4]" } };
    int nBuilt = 0;
    for (char const * const szCompiler : { "g++", "clang++" })
    {
        std::string const sProgram = Folder.Join("a");
        if (RunShell(szCompiler + (" -g -w '" + Folder.Join("a.cpp")) + "' -o '" + sProgram + "'").iStatus != 0)
        {
            continue;   // it is missing, or builds no such program
        }
        ++nBuilt;
        int const iFile = open(sProgram.c_str(), O_RDONLY);
        Dwarf * const pDwarf = dwarf_begin(iFile, DWARF_C_READ);
        ASSERT_NE(pDwarf, nullptr);
        Dwarf_CU * pUnit = nullptr;
        Dwarf_Die Unit, Child;
        ASSERT_EQ(dwarf_get_units(pDwarf, nullptr, &pUnit, nullptr, nullptr, &Unit, nullptr), 0);
        Types_c Types(sizeof(void *));
        std::map<std::string, std::string> dNames;
        for (bool bMore = dwarf_child(&Unit, &Child) == 0; bMore; bMore = dwarf_siblingof(&Child, &Child) == 0)
        {
            if (dwarf_tag(&Child) == DW_TAG_variable)
            {
                dNames[NameOf(&Child)] = SpellTypeOf(Types, Child);
            }
        }
        EXPECT_EQ(dNames, dExpected) << szCompiler;
        dwarf_end(pDwarf);
        close(iFile);
    }
    SKIP_IF(nBuilt == 0, "no compiler here");
}

TEST(TypeNames, LackWhatTheStandardLibraryAdds)
{
    for (auto const & [szName, szShort] : Rows_t<char const *, char const *>{
             { "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >", "std::string" },
             { "std::vector<std::__1::basic_string_view<char, std::__1::char_traits<char> > >",
                 "std::vector<std::string_view>" },
             { "std::filesystem::__cxx11::path", "std::filesystem::path" },
             { "std::chrono::_V2::steady_clock", "std::chrono::steady_clock" } })
    {
        EXPECT_EQ(ShortName(szName), szShort);
    }
}
