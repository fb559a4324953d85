// propertylist_fuzz.cpp: lists of any bytes, compared with a walk over all their lines.
//
// Bit 0 of the first byte chooses CSV. The rest is the file.
#include "fuzz/fuzz_support.h"
#include "zqcore/cpropertylist.h"

#include <map>
#include <vector>

namespace
{
    using Texts_t = std::vector<std::string>;

    // Collects the texts that fnNext stores one after another, and returns them. Checks that bAny is whether there are
    // any, and that the last call leaves an empty text.
    template <typename NEXT>
    Texts_t Collect(bool bAny, NEXT fnNext)
    {
        Texts_t dTexts;
        std::string sBuffer(FuzzFile_c::Get().m_sText.size() + 2, '?');
        while (fnNext(sBuffer.data(), static_cast<int>(sBuffer.size())))
        {
            dTexts.emplace_back(sBuffer.c_str());
        }
        Require(bAny == !dTexts.empty());
        Require(sBuffer[0] == '\0');
        return dTexts;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    WarehouseFormat_e const eFormat = Input.Get() & 1 ? WAREHOUSE_FORMAT_CSV : WAREHOUSE_FORMAT_TEXT;
    std::string_view sRead(FuzzFile_c::Get().m_sText = Input.Extract());
    PropertyList_c List;
    bool const bOpens = SkipMark(sRead);
    Require(List.Open("fuzz.txt", eFormat) == bOpens);
    if (!bOpens)
    {
        return 0;
    }

    Texts_t dNames;
    std::map<std::string, Texts_t> dValuesOf;   // by name, also of names without values
    WarehouseScan_t Scan(sRead.data(), static_cast<int>(sRead.size()), 0, eFormat);
    WarehouseLine_c Line;
    while (Scan.GetLine(&Line))
    {
        if (Line.IsNull(0))
        {
            continue;
        }
        Texts_t & dValues = dValuesOf[Line[0]];
        if (Line.IsNull(1))
        {
            continue;
        }
        if (dValues.empty())
        {
            dNames.emplace_back(Line[0]);
        }
        StrToLower(Line[1]);
        dValues.emplace_back(Line[1]);
    }

    auto const NextProp = [&](char * szText, int nRoom) { return List.NextProp(szText, nRoom); };
    auto const NextVal = [&](char * szText, int nRoom) { return List.NextVal(szText, nRoom); };
    Require(Collect(List.StartProp(), NextProp) == dNames);
    Require(Collect(List.StartProp(), NextProp) == dNames);   // starts over

    constexpr int MAX_SEARCHES = 20;   // each is three scans from the top
    int nSearches = 0;
    for (auto const & [sName, dValues] : dValuesOf)
    {
        if (++nSearches <= MAX_SEARCHES)
        {
            Require(List.FindProp(sName.c_str()));
            Require(List.FindProp((sName + "x").c_str()) == dValuesOf.contains(sName + "x"));
            Require(Collect(List.StartVal(sName.c_str()), NextVal) == dValues);
        }
    }
    return 0;
}
