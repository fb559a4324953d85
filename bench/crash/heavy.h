// heavy.h: code with much debug information, about 0.8 MB of it in each source that includes it with STEP_HEAVY.
#pragma once

#ifdef STEP_HEAVY
    #include <functional>
    #include <future>
    #include <map>
    #include <regex>
    #include <string>
    #include <tuple>
    #include <unordered_map>
    #include <variant>
    #include <vector>

// The namespace has no name, so that one object can be linked any number of times.
namespace
{
    struct Item_s
    {
        int iNumber = 1;
        double fNumber = 2;
        std::string sText;
        std::vector<int> dNumbers;
        std::map<int, std::string> dTexts;
    };

    template <int N>
    struct Deep_T
    {
        Item_s Item;
        Deep_T<N - 1> Next;

        int Sum(int n) const
        {
            int iSum = n + N;
            for (int i = 0; i < n; ++i)
            {
                iSum += Item.iNumber * i;
            }
            return iSum + Next.Sum(iSum & 3);
        }
    };

    template <>
    struct Deep_T<0>
    {
        int Sum(int n) const { return n; }
    };

    template <int N>
    int Work(int n)
    {
        std::map<int, Deep_T<N>> dDeep;
        std::vector<std::tuple<int, double, Deep_T<N>>> dTuples(static_cast<std::size_t>(n & 7));
        std::unordered_map<std::string, std::variant<int, Deep_T<N>, std::string>> dVariants;
        std::function<int(int)> const fnSum = [&dDeep](int iFrom)
        {
            int iSum = iFrom * N;
            for (auto const & [iKey, Deep] : dDeep)
            {
                iSum += Deep.Sum(iKey);
            }
            return iSum;
        };
        dVariants["text"] = n;
        return fnSum(n) + static_cast<int>(dVariants.size() + dTuples.size());
    }

    __attribute__((used, noinline)) int WorkOfAll(int n)
    {
        std::regex const Pattern("a(b|c)*");
        std::smatch Match;
        std::string const sText = "abcbc";
        n += std::regex_search(sText, Match, Pattern) ? 1 : 0;
        return Work<1>(n) + Work<2>(n) + Work<3>(n);
    }
}
#endif
