// symbolprotocol.h: the records that the library and its helper zqsymbols exchange.
//
// Both sides use one socket, which keeps records whole. The library sends a SymbolStart_t, a SymbolPrinter_t for each
// printer, and then requests. The helper answers each request with one SymbolAnswer_t that has its number, so that a
// late answer is not mistaken for that of the next request. Before that it may ask for memory by an answer of kind
// ANSWER_NEEDS_MEMORY, which the library answers with a SymbolMemory_t. All widths are fixed, so that a 64-bit helper
// serves processes of both word sizes. Both sides come from one build. If the magic number of the first record is not
// SYMBOL_MAGIC, the helper ends.
#pragma once

#include "platform/memory.h"

#include <cstddef>
#include <cstdint>

namespace plat
{
    /// Descriptors that the helper finds open besides the standard ones: the socket and the process's /proc/self/maps.
    inline constexpr int SYMBOL_SOCKET = 3;
    inline constexpr int SYMBOL_MAPS = 4;

    /// Magic number of these records, which changes with every change of them.
    inline constexpr std::uint32_t SYMBOL_MAGIC = 0x5A515333;

    /// Bytes of a page. The helper requests whole pages of memory. A page is readable as a whole or not at all.
    inline constexpr std::uint32_t SYMBOL_PAGE = MEMORY_PAGE;

    /// Bytes of an answer's text with its terminator. Longer names and paths are cut.
    inline constexpr std::uint32_t SYMBOL_TEXT = 4096;

    /// Numbers of registers, vectors and printers, and bytes of a printer's texts with their terminators.
    inline constexpr std::uint32_t SYMBOL_REGISTERS = 17;
    inline constexpr std::uint32_t SYMBOL_VECTORS = 16;
    inline constexpr std::uint32_t SYMBOL_PRINTERS = 32;   // at most
    inline constexpr std::uint32_t SYMBOL_PRINTER_TYPE = 128;
    inline constexpr std::uint32_t SYMBOL_PRINTER_TEMPLATE = 256;

    /// First record to the helper.
    struct SymbolStart_t
    {
        std::uint32_t dwMagic;
        std::uint32_t nWord;                          // bytes of an address
        std::uint32_t iThread;                        // the system's number of the thread
        std::uint32_t nPrinters;                      // records of SymbolPrinter_t that follow
        std::uint64_t nLockMark;                      // LockMarkOffset (lockmark.h)
        std::uint64_t dRegisters[SYMBOL_REGISTERS];   // IP SP BP AX BX CX DX SI DI R8 to R15
        std::uint64_t dVectors[SYMBOL_VECTORS];       // low halves of XMM0 to XMM15
        std::uint64_t nVectors;                       // number of them that are known
    };

    /// Printer of the values of a type, as SymbolsAddPrinter (symbols.h) adds it. Both texts are terminated.
    struct SymbolPrinter_t
    {
        char szType[SYMBOL_PRINTER_TYPE];
        char szTemplate[SYMBOL_PRINTER_TEMPLATE];
    };

    /// Kinds of requests: their arguments -> the values of their answers.
    enum SymbolAsk_e : std::uint32_t
    {
        ASK_FRAME,          // iIndex: frame -> dValues: the members of SymbolFrame_t (symbols.h)
        ASK_FUNCTION,       // nValue: address -> szText, dValues: displacement
        ASK_LINE,           // nValue: address -> szText, dValues: line
        ASK_VARIABLE,       // iIndex: variable, nValue: frame -> szText, dValues: kind, place, address, size, type
        ASK_TYPE_NAME,      // nValue: type -> szText
        ASK_TYPE_MEMBERS,   // nValue: type -> dValues: members
        ASK_TYPE_MEMBER,    // iIndex: member, nValue: type -> dValues: type, offset, size, first bit, bits
        ASK_TYPE_BASE,      // nValue: type -> dValues: SymbolBase_e
        ASK_DETAIL,         // nValue: SymbolSection_e -> szText: its next lines
        REPORT_LOCK         // nValue: address, nMore: mark of the thread that holds it, 0 for none
    };

    /// Request to the helper.
    struct SymbolRequest_t
    {
        SymbolAsk_e eAsk;
        std::uint32_t iIndex;
        std::uint64_t nValue;
        std::uint64_t nMore = 0;
        std::uint32_t iRequest = 0;   // rises with each request
        std::uint32_t nUnused = 0;
    };

    /// Kinds of answers.
    enum SymbolAnswer_e : std::uint32_t
    {
        ANSWER_NO,
        ANSWER_YES,
        ANSWER_NEEDS_MEMORY   // dValues: address of a page
    };

    /// Answer of the helper. Only the bytes up to the end of its text are sent. A request for memory leaves nText and
    /// iRequest unset.
    struct SymbolAnswer_t
    {
        SymbolAnswer_e eAnswer;
        std::uint32_t nText;      // bytes of szText that were sent, with the terminator
        std::uint32_t iRequest;   // the request's
        std::uint32_t nUnused;
        std::uint64_t dValues[5];
        char szText[SYMBOL_TEXT];
    };

    /// Bytes of an answer before its text.
    inline constexpr std::size_t SYMBOL_ANSWER_HEAD = offsetof(SymbolAnswer_t, szText);

    /// The library's answer to ANSWER_NEEDS_MEMORY: a page.
    struct SymbolMemory_t
    {
        std::uint64_t bReadable;   // whether the page is readable: 0 or 1; with 0 its bytes are zeros
        std::uint8_t dBytes[SYMBOL_PAGE];
    };

    static_assert(sizeof(SymbolStart_t) == 296 && sizeof(SymbolRequest_t) == 32 && SYMBOL_ANSWER_HEAD == 56);
    static_assert(sizeof(SymbolMemory_t) == 8 + SYMBOL_PAGE);
}
