#include "tools/zqtool/treemap.h"

#include "tools/zqtool/allocationgrowth.h"
#include "tools/zqtool/page.h"
#include "tools/zqtool/text.h"

#include <ostream>

// Body and script of the page, which the build makes from treemap_page.html and treemap_page.js.
extern char const TREEMAP_PAGE_HTML[], TREEMAP_PAGE_JS[];

namespace
{
    // Returns ["file(line)", bytes, blocks, bytes before, blocks before]. The last two are 0 if there is one snapshot.
    std::string LineText(GrowthRow_t const & Row)
    {
        Holding_t const Before = Row.dHoldings.size() > 1 ? Row.First() : Holding_t();
        std::string sText = "[" + JsonQuoted(Printable(Row.sName));
        for (std::uint64_t const nNumber : { Row.Last().nBytes, Row.Last().nBlocks, Before.nBytes, Before.nBlocks })
        {
            sText += "," + std::to_string(nNumber);
        }
        return sText + "]";
    }

    // Returns [["category",[line,...]],...].
    std::string GroupsText(std::span<AllocationReport_t const> dReports)
    {
        std::string sGroups = "[";
        for (GrowthRow_t const & Category : GrowthBy(GroupBy_e::Category, dReports))
        {
            sGroups += (sGroups.size() > 1 ? ",\n[" : "\n[") + JsonQuoted(Printable(Category.sName)) + ",[";
            char const * szSeparator = "";
            for (GrowthRow_t const & Row : GrowthOfCategory(Category.sName, dReports))
            {
                sGroups += szSeparator + LineText(Row);
                szSeparator = ",";
            }
            sGroups += "]]";
        }
        return sGroups + "]";
    }
}

void WriteTreemapPage(std::ostream & Stream, std::span<AllocationReport_t const> dReports)
{
    bool const bGrowth = dReports.size() > 1;
    std::string const sTitle = bGrowth ? "Growth of live memory" : "Live memory";
    Stream << PageHead(sTitle) << TREEMAP_PAGE_HTML
           << PageData("{\"title\":" + JsonQuoted(sTitle) + ",\"growth\":" + (bGrowth ? "true" : "false")
                       + ",\"groups\":" + GroupsText(dReports) + "}")
           << PageScripts({ TREEMAP_PAGE_JS }) << "</body>\n</html>\n";
}
