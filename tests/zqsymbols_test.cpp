#include "tools/zqsymbols/names.h"

#include "tests/test_support.h"

TEST(Zqsymbols, NamesAFunctionWithoutArgumentsAndResult)
{
    for (auto const & [szLinkerName, szExpected] :
        Rows_t<char const *, char const *>{ { "main.cold", "main" }, { "_ZN2ns1fIiEEiv", "ns::f<int>" },
            // void (*f<int>(int))(long), ns::operators f<int>(), f<int>::operator int(), Of::operator<< <int>(int)
            { "_Z1fIiEPFvlEi", "f<int>" }, { "_Z1fIiEN2ns9operatorsEv", "f<int>" },
            { "_ZN1fIiEcviEv", "f<int>::operator int" }, { "_ZN2OflsIiEEvT_", "Of::operator<< <int>" } })
    {
        EXPECT_EQ(zqsymbols::PlainName(szLinkerName), szExpected);
    }
}
