// json.h: JSON that commands print for other programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// JSON value. Objects keep the order in which their keys are added.
using Json_t = nlohmann::ordered_json;

/// Returns a value as one line of ASCII, so that no terminal obeys what a file holds. U+FFFD replaces invalid UTF-8.
std::string JsonText(Json_t const & Json);

/// Prints a value as a line on standard output.
void PrintJson(Json_t const & Json);
