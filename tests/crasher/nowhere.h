// nowhere.h: a fault with variables of many kinds around it. It is a part of crasher.cpp.
// This file has CR LF line ends, because the report counts a line only at a CR.
#pragma once

struct Inner_t
{
    int iNumber;
    char const * szText;
};
struct Outer_t : Inner_t
{
    double fValue;
    unsigned nLow : 3, nHigh : 7;
    Inner_t Inner;
};

__attribute__((noinline)) int ReadNowhere(int iFirst, char const * szSecond)
{
    int iLocal = 0x1234;
    float fLocal = 1.5f;
    char const * szLocal = "a text of more than thirty-one characters";
    char const * szWild = reinterpret_cast<char const *>(64);
    Outer_t Local = { { 7, "seven" }, 2.25, 5, 0x41, { 8, "eight" } };
    Outer_t const & Reference = Local;
    return *static_cast<int volatile *>(g_pNowhere) + iLocal + iFirst + *szSecond + *szLocal + *szWild
           + static_cast<int>(fLocal) + Reference.iNumber;
}
