// Squarified treemaps after Bruls, Huizing and van Wijk, "Squarified Treemaps" (2000).
#include "tools/zqtool/treemap.h"

#include "tools/zqtool/page.h"
#include "tools/zqtool/text.h"

#include <algorithm>
#include <cstdio>

// Made by the build from treemap_page.css.
extern char const TREEMAP_PAGE_CSS[];

namespace
{
    constexpr double WIDTH = 1200, HEIGHT = 760;
    constexpr double HEAD = 16;      // height of a group's title
    constexpr double LETTER = 6.5;   // estimated width of a letter
    constexpr double MIN_TEXT_WIDTH = 40, MIN_TEXT_HEIGHT = 14;

    struct Area_s
    {
        double x, y, fWidth, fHeight;
    };

    double Sum(std::vector<double> const & dSizes, std::size_t iFrom, std::size_t iTo)
    {
        double fSum = 0;
        for (std::size_t i = iFrom; i < iTo; ++i)
        {
            fSum += dSizes[i];
        }
        return fSum;
    }

    // Returns the worst aspect ratio of the parts iFrom..iTo if they share a row along fSide.
    double WorstRatio(std::vector<double> const & dSizes, std::size_t iFrom, std::size_t iTo, double fSide)
    {
        double const fThickness = Sum(dSizes, iFrom, iTo) / fSide;
        double fWorst = 1;
        for (std::size_t i = iFrom; i < iTo; ++i)
        {
            double const fLength = dSizes[i] / fThickness;
            fWorst = std::max({ fWorst, fLength / fThickness, fThickness / fLength });
        }
        return fWorst;
    }

    // Returns the parts of an area for sizes, which are sorted, largest first, and above 0.
    std::vector<Area_s> Divide(Area_s Rest, std::vector<double> dSizes)
    {
        double const fScale = Rest.fWidth * Rest.fHeight / std::max(Sum(dSizes, 0, dSizes.size()), 1e-9);
        for (double & fSize : dSizes)
        {
            fSize *= fScale;
        }
        std::vector<Area_s> dAreas;
        for (std::size_t iFrom = 0; iFrom < dSizes.size();)
        {
            bool const bColumn = Rest.fWidth >= Rest.fHeight;   // the row is a column at the left
            double const fSide = std::max(bColumn ? Rest.fHeight : Rest.fWidth, 1e-9);
            std::size_t iTo = iFrom + 1;
            while (iTo < dSizes.size()
                   && WorstRatio(dSizes, iFrom, iTo + 1, fSide) <= WorstRatio(dSizes, iFrom, iTo, fSide))
            {
                ++iTo;
            }
            double const fThickness = Sum(dSizes, iFrom, iTo) / fSide;
            double fOffset = 0;
            for (; iFrom < iTo; ++iFrom)
            {
                double const fLength = dSizes[iFrom] / std::max(fThickness, 1e-9);
                dAreas.push_back(bColumn ? Area_s{ Rest.x, Rest.y + fOffset, fThickness, fLength }
                                         : Area_s{ Rest.x + fOffset, Rest.y, fLength, fThickness });
                fOffset += fLength;
            }
            (bColumn ? Rest.x : Rest.y) += fThickness;
            double & fLeft = bColumn ? Rest.fWidth : Rest.fHeight;
            fLeft = std::max(fLeft - fThickness, 0.0);
        }
        return dAreas;
    }

    // Returns the end of a text that fits the width: the end of a source line is the most telling part.
    std::string Fitting(std::string const & sText, double fWidth)
    {
        auto const nLetters = static_cast<std::size_t>(std::max(fWidth / LETTER, 1.0));
        if (sText.size() <= nLetters)
        {
            return sText;
        }
        std::size_t iStart = sText.size() - nLetters;
        while (iStart < sText.size() && (static_cast<unsigned char>(sText[iStart]) & 0xC0) == 0x80)
        {
            ++iStart;   // never starts inside a UTF-8 character
        }
        return sText.substr(iStart);
    }

    void AppendText(std::string & sPage, Area_s const & Area, std::string const & sText)
    {
        if (Area.fWidth >= MIN_TEXT_WIDTH && Area.fHeight >= MIN_TEXT_HEIGHT)
        {
            char szPlace[64];
            std::snprintf(szPlace, sizeof szPlace, "<text x='%.1f' y='%.1f'>", Area.x + 3, Area.y + 12);
            sPage += szPlace + HtmlEscaped(Fitting(sText, Area.fWidth - 6)) + "</text>";
        }
    }

    void AppendArea(std::string & sPage, Area_s const & Area, char const * szGroup, TreemapPart_t const & Part)
    {
        char szPlace[160];
        std::snprintf(szPlace, sizeof szPlace, "%s><rect x='%.1f' y='%.1f' width='%.1f' height='%.1f'/>", szGroup,
            Area.x, Area.y, Area.fWidth, Area.fHeight);
        sPage += std::string(szPlace) + "<title>" + HtmlEscaped(Part.sName + "\n" + Part.sNote) + "</title>";
        AppendText(sPage, Area, Part.sName);
        sPage += "</g>\n";
    }

    std::vector<double> SizesOf(std::vector<TreemapPart_t> const & dParts)
    {
        std::vector<double> dSizes;
        for (TreemapPart_t const & Part : dParts)
        {
            dSizes.push_back(std::max(static_cast<double>(Part.nSize), 0.5));   // Divide requires sizes above 0
        }
        return dSizes;
    }

    void AppendGroup(std::string & sPage, Area_s const & Area, int iHue, TreemapGroup_t const & Group)
    {
        sPage += "<g style='--hue:" + std::to_string(iHue) + "'>\n";
        AppendArea(sPage, Area, "<g class='whole'", Group.Whole);
        double const fHead = std::min(HEAD, Area.fHeight / 2);
        Area_s const Inner = { Area.x + 1, Area.y + fHead, std::max(Area.fWidth - 2, 0.0),
            std::max(Area.fHeight - fHead - 1, 0.0) };
        std::vector<Area_s> const dAreas = Divide(Inner, SizesOf(Group.dParts));
        for (std::size_t i = 0; i < dAreas.size(); ++i)
        {
            AppendArea(sPage, dAreas[i], "<g", Group.dParts[i]);
        }
        sPage += "</g>\n";
    }

    // The same as text, for readers who do not see the picture.
    std::string ListOf(std::vector<TreemapGroup_t> const & dGroups)
    {
        auto const TextOf = [](TreemapPart_t const & Part) { return HtmlEscaped(Part.sName + ": " + Part.sNote); };
        std::string sList = "<section class='list'>\n<h2>As a list</h2>\n";
        for (TreemapGroup_t const & Group : dGroups)
        {
            sList += "<details><summary>" + TextOf(Group.Whole) + "</summary><ul>\n";
            for (TreemapPart_t const & Part : Group.dParts)
            {
                sList += "<li>" + TextOf(Part) + "</li>\n";
            }
            sList += "</ul></details>\n";
        }
        return sList + "</section>\n";
    }
}

std::string TreemapPage(std::string const & sTitle, std::vector<TreemapGroup_t> const & dGroups)
{
    constexpr int HUE_STEP = 137;   // neighbours get distant colours
    std::string sPage = PageHead(sTitle, TREEMAP_PAGE_CSS) + "<header><h1>" + HtmlEscaped(sTitle)
                        + "</h1>\n<p>An area is as large as what it shows. The list below has the same figures.</p>"
                          "</header>\n<main>\n<section class='map' tabindex='0' aria-label='Picture'>\n"
                          "<svg viewBox='0 0 1200 760' role='img' aria-label='Treemap'>\n";
    std::vector<TreemapPart_t> dWholes;
    for (TreemapGroup_t const & Group : dGroups)
    {
        dWholes.push_back(Group.Whole);
    }
    std::vector<Area_s> const dAreas = Divide({ 0, 0, WIDTH, HEIGHT }, SizesOf(dWholes));
    for (std::size_t i = 0; i < dAreas.size(); ++i)
    {
        AppendGroup(sPage, dAreas[i], static_cast<int>(i) * HUE_STEP % 360, dGroups[i]);
    }
    return sPage + "</svg>\n</section>\n" + ListOf(dGroups) + "</main>\n</body>\n</html>\n";
}
