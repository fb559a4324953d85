#include "tools/zqsymbols/names.h"

#include "tests/test_support.h"

TEST(Zqsymbols, NamesAFunctionWithoutArgumentsAndResult)
{
    for (auto const & [szLinkerName, szExpected] : Rows_t<char const *, char const *>{
             { "main.cold", "main" }, { "_ZN2ns1fIiEEiv", "ns::f<int>" },
             { "_Z1fIiEPFvlEi", "f<int>" },                 // void (*f<int>(int))(long)
             { "_Z1fIiEN2ns9operatorsEv", "f<int>" },       // ns::operators f<int>()
             { "_ZN1fIiEcviEv", "f<int>::operator int" },   // f<int>::operator int()
             { "_Z3a))v", "a))" }, { "_Z3a))2*x", "x" }, { "_ZTIPFvvE", "typeinfo for void (*)" },
             { "_ZNK1C2cfIiEEPFvlET_", "C::cf<int>" },   // void (*C::cf<int>(int) const)(long)
             { "_Z2f2IiEPFPFvcElET_", "f2<int>" },       // void (*(*f2<int>(int))(long))(char)
             { "_Z2f5IiEM1BIjEFilET_", "f5<int>" },      // int (B<unsigned int>::*f5<int>(int))(long)
             { "_ZZNK1A2cmEvENKUlT_E_clIiEEDaS0_", "A::cm() const::{lambda(auto:1)#1}::operator()<int>" },
             { "_ZZNKR1A1fEvENKUlT_E_clIiEEDaS0_", "A::f() const &::{lambda(auto:1)#1}::operator()<int>" },
             { "_Z3f16IiEPKPFivET_", "f16<int>" },                        // int (* const*f16<int>(int))()
             { "_Z2f4IiEPA3_iT_", "f4<int>" },                            // int (*f4<int>(int)) [3]
             { "_ZN2ns1gIiEENS_15binary_operatorIiEEi", "ns::g<int>" },   // ns::binary_operator<int> ns::g<int>(int)
             { "_ZN2OflsIiEEvT_", "Of::operator<< <int>" },               // void Of::operator<< <int>(int)
         })
    {
        EXPECT_EQ(zqsymbols::PlainName(szLinkerName), szExpected) << szLinkerName;
    }
}
