// warehouse_fuzz.cpp: tables of any bytes, read in several ways that must agree.
//
// Bit 0 of the first byte chooses CSV, bits 1 to 3 the separators. The other bytes are the table.
#include "fuzz/fuzz_support.h"
#include "zqcore/cwarehouse.h"

#include <map>
#include <utility>
#include <vector>

namespace
{
    // All items in order, each as its ident and its Cells.
    using Items_t = std::vector<std::pair<std::string, std::string>>;

    // Returns the results of some getters for the work line, with the last error of a column for which one fails.
    std::string Cells(Warehouse_c const & Table)
    {
        std::string sAll;
        for (char const * szColumn : { "@head", "a", "b", "c" })
        {
            String_T<256> sText;
            long iLong = 0;
            double fDouble = 0;
            unsigned long nUnsigned = 0;
            int iFirst = 0, iSecond = 0;
            bool bAll = true;
            for (bool const bValid :
                { Table.Get(szColumn, sText), Table.Get(szColumn, iLong), Table.Get(szColumn, fDouble),
                    Table.Get(szColumn, nUnsigned), Table.Get(szColumn, iFirst, iSecond) })
            {
                sAll += bValid ? '1' : '0';
                bAll = bAll && bValid;
            }
            sAll += Va("%d %s %ld %g %lu %d %d\n", Table.GetLength(szColumn), static_cast<char const *>(sText), iLong,
                fDouble, nUnsigned, iFirst, iSecond);
            TextError_t const & Error = Table.GetLastError();   // of the failed calls above
            sAll += bAll ? "" : Va("%d %d %s\n", Error.iLine, Error.iColumn, static_cast<char const *>(Error.sReason));
        }
        return sAll;
    }

    Items_t Walk(Warehouse_c & Table)
    {
        Items_t dItems;
        String_T<256> sIdent;
        Require(Table.StartIdent());
        while (Table.NextIdent(sIdent))
        {
            dItems.emplace_back(sIdent, Cells(Table));
        }
        return dItems;
    }

    // Checks that FindIdent finds the first item of an ident, for the first idents of the table, and no header line.
    void CheckSearches(Warehouse_c & Table, Items_t const & dItems)
    {
        constexpr std::size_t SEARCHES = 20;                                       // each is a scan from the top
        std::map<std::string, std::string> dFirst(dItems.begin(), dItems.end());   // the first of each ident
        for (std::size_t i = 0; i < dItems.size() && i < SEARCHES; ++i)
        {
            std::string const & sIdent = dItems[i].first;   // may be cut at 255 bytes
            Require(sIdent.size() == 255 || Table.FindIdent(sIdent.c_str()));
            Require(sIdent.size() == 255 || Cells(Table) == dFirst[sIdent]);
        }
        Require(!Table.FindIdent("@HEAD"));
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static char const * const s_dSeparators[] = { nullptr, " ", ";\t", "\n", "#\"", "", "a-", "\r\n" };
    Input_c Input(pData, nSize);
    unsigned char const cChoice = Input.Get();
    WarehouseFormat_e const eFormat = cChoice & 1 ? WAREHOUSE_FORMAT_CSV : WAREHOUSE_FORMAT_TEXT;
    char const * const szSeparators = s_dSeparators[cChoice >> 1 & 7];
    FuzzFile_c::Get().m_sText = Input.Extract();
    std::string_view sRead = FuzzFile_c::Get().m_sText;
    Warehouse_c InPlace, Copy(true);
    bool const bOpens = SkipMark(sRead);
    Require(InPlace.Open("fuzz.txt", eFormat, "a b c", szSeparators) == bOpens);
    Require(Copy.Open("fuzz.txt", eFormat, "a b c", szSeparators) == bOpens);
    if (!bOpens)
    {
        return 0;
    }
    Items_t const dItems = Walk(InPlace);
    Require(Walk(InPlace) == dItems);
    Require(Walk(Copy) == dItems);
    CheckSearches(InPlace, dItems);
    return 0;
}
