// propertylist_fuzz.cpp: lists of any bytes, beside a walk over all their lines.
//
// Bit 0 of the first byte chooses CSV; the rest is the file.
#include "fuzz/fuzz_support.h"
#include "zqcore/cpropertylist.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace
{
    using Texts_t = std::vector<std::string>;

    template <typename START, typename NEXT>
    Texts_t Collect(START Start, NEXT Next, std::size_t nLongest)
    {
        Texts_t dTexts;
        std::vector<char> dBuffer(nLongest + 2);
        bool const bAny = Start();
        while (Next(dBuffer.data(), static_cast<int>(dBuffer.size())))
        {
            dTexts.emplace_back(dBuffer.data());
        }
        Require(bAny == !dTexts.empty() && dBuffer[0] == '\0');
        return dTexts;
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    constexpr std::size_t SEARCHES = 20;   // each is a scan from the top
    if (nSize < 2)
    {
        return 0;
    }
    WarehouseFormat_e const eFormat = pData[0] & 1 ? WAREHOUSE_FORMAT_CSV : WAREHOUSE_FORMAT_TEXT;
    std::vector<char> const dText(pData + 1, pData + nSize);
    FuzzFile_c::Get().sText.assign(dText.begin(), dText.end());

    Texts_t dNames, dBare;
    std::vector<std::pair<std::string, std::string>> dPairs;
    WarehouseScan_t Scan(dText.data(), static_cast<int>(dText.size()), 0, eFormat);
    WarehouseLine_c Line;
    while (Scan.GetLine(&Line))
    {
        if (!Line.IsNull(0))
        {
            dBare.emplace_back(Line[0]);
        }
        if (!Line.IsNull(0) && !Line.IsNull(1))
        {
            StrToLower(Line[1]);
            dPairs.emplace_back(Line[0], Line[1]);
            if (std::find(dNames.begin(), dNames.end(), Line[0]) == dNames.end())
            {
                dNames.emplace_back(Line[0]);
            }
        }
    }

    PropertyList_c List;
    Require(List.Open("fuzz.txt", eFormat));
    auto const Names = [&]
    { return Collect([&] { return List.StartProp(); }, [&](char * p, int n) { return List.NextProp(p, n); }, nSize); };
    Require(Names() == dNames && Names() == dNames);
    for (std::size_t i = 0; i < dNames.size() && i < SEARCHES; ++i)
    {
        Texts_t dValues;
        for (auto const & [sName, sValue] : dPairs)
        {
            if (sName == dNames[i])
            {
                dValues.push_back(sValue);
            }
        }
        Require(Collect([&] { return List.StartVal(dNames[i].c_str()); },
                    [&](char * p, int n) { return List.NextVal(p, n); }, nSize)
                == dValues);
    }
    for (std::size_t i = 0; i < dBare.size() && i < SEARCHES; ++i)
    {
        std::string sOther = dBare[i] + "x";
        Require(List.FindProp(dBare[i].c_str()));
        Require(List.FindProp(sOther.c_str()) == (std::find(dBare.begin(), dBare.end(), sOther) != dBare.end()));
    }
    return 0;
}
