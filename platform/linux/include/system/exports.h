// exports.h: the marks of exported names in ELF, where all visible names are exported.
#pragma once

#define ZQ_EXPORT __attribute__((visibility("default")))
#define ZQ_IMPORT __attribute__((visibility("default")))
#define ZQ_INTERNAL __attribute__((visibility("hidden")))
