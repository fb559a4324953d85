// exports.h: the marks of exported names on Windows, which distinguishes export and import.
#pragma once

/// Mark of a name of the interface, while the library is built.
#define ZQ_EXPORT __declspec(dllexport)

/// Mark of a name of the interface, elsewhere.
#define ZQ_IMPORT __declspec(dllimport)

/// Mark of a member of an exported class that other systems keep inside the shared library.
#define ZQ_INTERNAL   // a member can't be left out of an exported class
