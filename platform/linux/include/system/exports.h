// exports.h: the marks of exported names in ELF, which exports all visible names.
#pragma once

/// Mark of a name of the interface, while the library is built.
#define ZQ_EXPORT __attribute__((visibility("default")))

/// Mark of a name of the interface, elsewhere.
#define ZQ_IMPORT __attribute__((visibility("default")))

/// Mark of a member of an exported class that stays inside the shared library.
#define ZQ_INTERNAL __attribute__((visibility("hidden")))
