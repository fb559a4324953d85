// cdebug_internal.h: assertions that show texts from outside, and a text of assertions.
#pragma once

#include "zqcore/cdebug.h"

/// Text of ZQ_ASSERT_BREAK for a failure that has no condition to show.
inline constexpr char DEVELOPER_BREAK[] = "Developer break";

/// Does what AssertReportEx does, for texts from outside, such as names in a file. Treats fmt and what it inserts as
/// LogEscaped (clog.h) does.
ZQ_COLD void AssertReportEscaped(char const * szCondition, char const * szFile, char const * szFunction, int iLine,
    char const * fmt, ...) ZQ_PRINTF(5, 6);

/// Does what ZQ_ASSERT_EX_TEXT does, for texts from outside.
#define ZQ_ASSERT_ESCAPED(condition, szCondition, ...)                                                                 \
    ((condition) ? static_cast<void>(0)                                                                                \
                 : AssertReportEscaped(szCondition, __FILE__, ZQ_FUNCTION, __LINE__, __VA_ARGS__))
