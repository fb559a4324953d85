// container_bench.cpp: lookups in the name table and in hash maps.
#include "zqcore/cfilepath.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
    constexpr int NAMES = 10000;

    struct Object_s
    {
        File_c::Key_t sName;
        int iValue = 0;
    };

    // File names as in a game. Half of them are in the tables.
    struct Names_s
    {
        std::vector<std::string> dPresent;
        std::vector<std::string> dMissing;
        std::vector<Object_s> dObjects;
        StringHash_T<Object_s, File_c::Key_t::Capacity(), FileTable_t::iMask + 1, FILE_TABLE_STEP> dTable;
        std::unordered_map<std::string, Object_s *> StdMap;
        absl::flat_hash_map<std::string, Object_s *> AbslMap;

        Names_s()
        {
            std::mt19937 Random(7);
            char const * const dWords[] = { "unit", "harbour", "tex", "sound", "ui", "map", "tower", "crane" };
            char const * const dEnds[] = { ".txt", ".csv", ".png", ".wav", ".dat" };
            auto const Make = [&](int i)
            {
                return std::string(dWords[Random() % std::size(dWords)]) + "_" + dWords[Random() % std::size(dWords)]
                       + std::to_string(i) + dEnds[Random() % std::size(dEnds)];
            };
            dObjects.resize(NAMES);
            for (int i = 0; i < NAMES; ++i)
            {
                dPresent.push_back(Make(i));
                dMissing.push_back(Make(i + NAMES));
                Object_s & Object = dObjects[static_cast<std::size_t>(i)];
                Object.sName = dPresent.back().c_str();
                Object.iValue = i;
                dTable.Add(&Object, &Object.sName);
                StdMap[dPresent.back()] = &Object;
                AbslMap[dPresent.back()] = &Object;
            }
            std::shuffle(dPresent.begin(), dPresent.end(), Random);
            std::shuffle(dMissing.begin(), dMissing.end(), Random);
        }
    };

    Names_s & Names()
    {
        static auto const s_pNames = std::make_unique<Names_s>();
        return *s_pNames;
    }

    // Looks up one name in each iteration, in turn.
    template <typename LOOKUP>
    void Run(benchmark::State & State, std::vector<std::string> const & dNames, LOOKUP fnLookup)
    {
        std::size_t i = 0;
        for (auto _ : State)
        {
            benchmark::DoNotOptimize(fnLookup(dNames[i]));
            i = i + 1 == dNames.size() ? 0 : i + 1;
        }
    }

    void FindOurs(benchmark::State & State, bool bHit)
    {
        Run(State, bHit ? Names().dPresent : Names().dMissing,
            [](std::string const & sName) { return Names().dTable.FindByName(sName.c_str()); });
    }
    BENCHMARK_CAPTURE(FindOurs, hit, true)->Name("FindByName/hit/ours");
    BENCHMARK_CAPTURE(FindOurs, miss, false)->Name("FindByName/miss/ours");

    void FindAbsl(benchmark::State & State, bool bHit)
    {
        Run(State, bHit ? Names().dPresent : Names().dMissing,
            [](std::string const & sName)
            {
                auto const it = Names().AbslMap.find(sName);
                return it == Names().AbslMap.end() ? nullptr : it->second;
            });
    }
    BENCHMARK_CAPTURE(FindAbsl, hit, true)->Name("FindByName/hit/absl_flat_hash_map");
    BENCHMARK_CAPTURE(FindAbsl, miss, false)->Name("FindByName/miss/absl_flat_hash_map");

    void FindStd(benchmark::State & State, bool bHit)
    {
        Run(State, bHit ? Names().dPresent : Names().dMissing,
            [](std::string const & sName)
            {
                auto const it = Names().StdMap.find(sName);
                return it == Names().StdMap.end() ? nullptr : it->second;
            });
    }
    BENCHMARK_CAPTURE(FindStd, hit, true)->Name("FindByName/hit/std_unordered_map");
    BENCHMARK_CAPTURE(FindStd, miss, false)->Name("FindByName/miss/std_unordered_map");
}
