#include "zqcore/cnumbertext_internal.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

TEST(NumberText, ReadsNumbersAsTheCLibraryDoes)
{
    for (std::string const sText : { "1.5", " +1.5e+3x", "-.5", "5.", ".", "-", "", "+-1", "--1", "1e", "1e+", "1e+-5",
             "1,5", "0x", "0x1.8p3", "0x.8", "0xg", "0x.", "-0x1p+-3", "0x1p-2z", "0x-1", "0x1.p1+-", "inf",
             "-INFINITYx", "1e999", "-1e999", "1e-999", "1e-310", "0x1p9999", "0x1p-9999", "0x1p-1074", "0e999",
             "1e99999999999999999999", "1e-99999999999999999999", "\v\f\r\n\t 12", "1e5e5", "00012.50",
             "1.7976931348623157e308", "1.7976931348623159e308", "4.9e-324", "0x0.0000001p1050", "-2147483649" })
    {
        for (std::string const & sFilled :
            { sText, std::string(400, '9') + sText, "." + std::string(400, '0') + sText })
        {
            double fValue;
            long iValue;
            char * pEnd;
            errno = 0;
            double const fExpected = std::strtod(sFilled.c_str(), &pEnd);
            NumberEnd_t const Double = TextToDouble(sFilled.c_str(), fValue);
            EXPECT_EQ(Double.bInRange, errno == 0 && std::fpclassify(fValue) != FP_SUBNORMAL) << sFilled;
            EXPECT_EQ(std::pair(fValue, std::signbit(fValue)), std::pair(fExpected, std::signbit(fExpected)))
                << sFilled;
            EXPECT_EQ(Double.pEnd, pEnd) << sFilled;

            errno = 0;
            long const iExpected = std::strtol(sFilled.c_str(), &pEnd, 10);
            NumberEnd_t const Integer = TextToInteger(sFilled.c_str(), iValue);
            EXPECT_EQ(Integer.bInRange, errno == 0) << sFilled;
            EXPECT_EQ(iValue, iExpected) << sFilled;
            EXPECT_EQ(Integer.pEnd, pEnd) << sFilled;
        }
    }
}
