// Lists the prices of the table goods.csv, which it finds below MEDIA by its bare name: read_table [MEDIA]
#include "zqcore/capp.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cwarehouse.h"

#include <cstdio>
#include <filesystem>

namespace
{
    bool ListPrices(char const * szTable)
    {
        Warehouse_c Goods;
        if (!Goods.Open(szTable))
        {
            std::fprintf(stderr, "read_table: %s: %s\n", szTable, Goods.GetLastError().sReason.CStr());
            return false;
        }
        String_T<256> sIdent;
        while (Goods.NextIdent(sIdent))
        {
            int iLowest = 0, iHighest = 0;
            if (Goods.Get("price", iLowest, iHighest))
            {
                std::printf("%-10s %3i to %3i\n", sIdent.CStr(), iLowest, iHighest);
            }
        }
        return true;   // the table closes its file here, before the modules end
    }
}

int main(int nArguments, char ** dArguments)
{
    std::filesystem::path const Media = std::filesystem::absolute(nArguments > 1 ? dArguments[1] : "media");
    AppMiscStartup();
    SetPQXMediaPath(Media.c_str());
    Module_c::Register(ModuleFile_c::Get());
    bool const bListed = Module_c::InitializeAllModules() && ListPrices("goods.csv");
    Module_c::ShutdownAllModules();
    AppMiscShutdown();
    return bListed && std::fflush(stdout) == 0 ? 0 : 1;   // fails too if the output is lost
}
