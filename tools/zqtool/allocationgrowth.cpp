#include "tools/zqtool/allocationgrowth.h"

#include <algorithm>
#include <tuple>

namespace
{
    // Rows by name while they are added up.
    class Rows_c
    {
    public:
        explicit Rows_c(std::size_t nReports)
            : m_nReports(nReports)
        {}

        void Add(std::string const & sName, std::size_t iReport, Holding_t const & Holding)
        {
            GrowthRow_t & Row = m_dRows.try_emplace(sName).first->second;
            Row.dHoldings.resize(m_nReports);
            Row.dHoldings[iReport] = Row.dHoldings[iReport] + Holding;
        }

        // Returns the rows, sorted as GrowthBy says. Requires that the object is not used again.
        std::vector<GrowthRow_t> Extract();

    private:
        std::size_t m_nReports;
        std::map<std::string, GrowthRow_t> m_dRows;
    };

    std::vector<GrowthRow_t> Rows_c::Extract()
    {
        std::vector<GrowthRow_t> dRows;
        for (auto & [sName, Row] : m_dRows)
        {
            dRows.push_back({ sName, std::move(Row.dHoldings) });
        }
        std::stable_sort(dRows.begin(), dRows.end(),
            [](GrowthRow_t const & Left, GrowthRow_t const & Right)
            {
                return std::make_tuple(Left.GrownBytes(), Left.Last().nBytes)
                       > std::make_tuple(Right.GrownBytes(), Right.Last().nBytes);
            });
        return dRows;
    }

    // Returns the name of the group of a line's blocks.
    std::string NameOf(GroupBy_e eBy, std::string const & sCategory, std::string const & sLine)
    {
        switch (eBy)
        {
        case GroupBy_e::Category:
            return sCategory;
        case GroupBy_e::File:
            return sLine.substr(0, sLine.rfind('('));
        case GroupBy_e::Line:
            break;
        }
        return sLine;
    }

    // Returns the sorted rows of the groups of all categories, or of *pCategory if it is not null.
    std::vector<GrowthRow_t> Collect(
        GroupBy_e eBy, std::span<AllocationReport_t const> dReports, std::string const * pCategory)
    {
        Rows_c Rows(dReports.size());
        for (std::size_t i = 0; i < dReports.size(); ++i)
        {
            for (auto const & [sCategory, dLines] : dReports[i].dCategories)
            {
                if (pCategory && sCategory != *pCategory)
                {
                    continue;
                }
                for (auto const & [sLine, Holding] : dLines)
                {
                    Rows.Add(NameOf(eBy, sCategory, sLine), i, Holding);
                }
            }
        }
        return Rows.Extract();
    }
}

bool GrowthRow_t::IsSteady() const
{
    int nRises = 0;
    for (std::size_t i = 1; i < dHoldings.size(); ++i)
    {
        if (dHoldings[i].nBytes < dHoldings[i - 1].nBytes)
        {
            return false;
        }
        nRises += dHoldings[i].nBytes > dHoldings[i - 1].nBytes;
    }
    return nRises >= 2;
}

std::vector<GrowthRow_t> GrowthBy(GroupBy_e eBy, std::span<AllocationReport_t const> dReports)
{
    return Collect(eBy, dReports, nullptr);
}

std::vector<GrowthRow_t> GrowthOfCategory(std::string const & sCategory, std::span<AllocationReport_t const> dReports)
{
    return Collect(GroupBy_e::Line, dReports, &sCategory);
}

GrowthRow_t GrowthOfAll(std::span<AllocationReport_t const> dReports)
{
    GrowthRow_t Row = { "total", {} };
    for (AllocationReport_t const & Report : dReports)
    {
        Row.dHoldings.push_back(Report.Total());
    }
    return Row;
}
