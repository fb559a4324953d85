#include "tools/zqtool/columns.h"

#include "tools/zqtool/text.h"

#include <algorithm>
#include <numeric>

namespace
{
    constexpr std::string_view GAP = "  ", ELLIPSIS = "\xE2\x80\xA6";

    // Cuts a longer text to nWidth characters, the last of which is then an ellipsis. Requires nWidth above 0, unless
    // the text is empty.
    void Cut(std::string & sText, std::size_t nWidth)
    {
        if (WidthOf(sText) <= nWidth)
        {
            return;
        }
        std::size_t nKept = 0;
        auto const itCut = std::find_if(sText.begin(), sText.end(),
            [&nKept, nWidth](char cByte)
            {
                nKept += IsFirstByte(cByte);
                return nKept == nWidth;
            });
        sText.erase(itCut, sText.end());
        sText += ELLIPSIS;
    }

    // Lowers the largest widths, but not below 1, until all columns with their gaps fit into nTotal characters.
    void Narrow(std::vector<std::size_t> & dWidths, std::size_t nTotal)
    {
        std::size_t const nGaps = dWidths.empty() ? 0 : (dWidths.size() - 1) * GAP.size();
        auto const Sum = [&dWidths, nGaps](std::size_t nMost)
        {
            return std::accumulate(dWidths.begin(), dWidths.end(), nGaps,
                [nMost](std::size_t nSum, std::size_t nWidth) { return nSum + std::min(nWidth, nMost); });
        };
        std::size_t nMost = dWidths.empty() ? 0 : *std::max_element(dWidths.begin(), dWidths.end());
        nMost = std::min(nMost, nTotal);
        while (nMost > 1 && Sum(nMost) > nTotal)
        {
            --nMost;
        }
        std::size_t nSpare = nTotal - std::min(nTotal, Sum(nMost));
        for (std::size_t & nWidth : dWidths)
        {
            std::size_t const nMore = nWidth > nMost ? std::min(nWidth - nMost, nSpare) : 0;
            nSpare -= nMore;
            nWidth = std::min(nWidth, nMost) + nMore;
        }
    }
}

std::string AlignedColumns(std::vector<std::vector<std::string>> const & dRows, std::size_t nWidth)
{
    std::vector<std::size_t> dWidths;
    for (auto const & dCells : dRows)
    {
        dWidths.resize(std::max(dWidths.size(), dCells.size()));
        for (std::size_t i = 0; i < dCells.size(); ++i)
        {
            dWidths[i] = std::max(dWidths[i], WidthOf(Printable(dCells[i])));
        }
    }
    if (nWidth > 0)
    {
        Narrow(dWidths, nWidth);
    }
    std::string sAll;
    for (auto const & dCells : dRows)
    {
        std::string sLine;
        std::size_t nLine = 0, nWanted = 0;   // characters of the line, and those before the cell
        for (std::size_t i = 0; i < dCells.size(); ++i)
        {
            std::string sCell = Printable(dCells[i]);
            Cut(sCell, dWidths[i]);
            if (!sCell.empty())
            {
                sLine.append(nWanted - nLine, ' ').append(sCell);
                nLine = nWanted + WidthOf(sCell);
            }
            nWanted += dWidths[i] + GAP.size();
        }
        if (nWidth > 0)
        {
            Cut(sLine, nWidth);
        }
        sAll += sLine + '\n';
    }
    return sAll;
}
