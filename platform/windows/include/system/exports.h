// exports.h: the marks of exported names on Windows, where export and import differ.
#pragma once

#define ZQ_EXPORT __declspec(dllexport)
#define ZQ_IMPORT __declspec(dllimport)
#define ZQ_INTERNAL   // a member can't be left out of an exported class
