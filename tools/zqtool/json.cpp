#include "tools/zqtool/json.h"

#include <cstdio>

std::string JsonText(Json_t const & Json)
{
    return Json.dump(-1, ' ', true, Json_t::error_handler_t::replace);
}

void PrintJson(Json_t const & Json)
{
    std::puts(JsonText(Json).c_str());
}
