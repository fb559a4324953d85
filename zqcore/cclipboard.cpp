#include "zqcore/cclipboard.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog_format_internal.h"

#include "platform/fork.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

constinit unsigned int g_iTextFormat = 0;
constinit bool g_isOpen = false;
constinit plat::ClipboardBlock_t g_hClipboard = nullptr;

namespace
{
    constexpr int OPEN_TRIES = 100;
    constexpr unsigned OPEN_PAUSE = 100;       // milliseconds
    constexpr std::size_t TEXT_SIZE = 65536;   // characters of a formatted text

    constinit ModuleClipboard_c g_Module;

    void Forget()
    {
        g_isOpen = false;
        g_hClipboard = nullptr;
    }
    plat::ForkHandler_c const g_ForkHandler({ nullptr, nullptr, Forget });   // a forked child has the clipboard closed

    // Asserts that the clipboard is open, and returns whether it is.
    bool IsOpen()
    {
        ZQ_ASSERT(g_isOpen == true);
        return g_isOpen;
    }

    // Returns whether the block holds a terminated text.
    bool IsText(plat::ClipboardBlock_t hBlock)
    {
        char const * const pText = plat::ClipboardBlockLock(hBlock);
        bool const bText = pText && std::memchr(pText, 0, plat::ClipboardBlockSize(hBlock)) != nullptr;
        plat::ClipboardBlockUnlock(hBlock);
        return bText;
    }

    // Returns the clipboard's text. Returns null if the format has no data, or if its data are not a text.
    plat::ClipboardBlock_t FetchText()
    {
        plat::ClipboardBlock_t const hBlock = plat::ClipboardGet(g_iTextFormat);
        return IsText(hBlock) ? hBlock : nullptr;
    }

    // Replaces the clipboard's whole contents by the block, which the clipboard then owns. Asserts that there is a
    // block, and does nothing otherwise. On failure asserts and frees the block.
    void Install(plat::ClipboardBlock_t hNewText)
    {
        ZQ_ASSERT(hNewText != nullptr);
        if (!hNewText)
        {
            return;
        }
        bool const bEmptied = plat::ClipboardEmpty();
        ZQ_ASSERT(bEmptied);
        g_hClipboard = plat::ClipboardSet(g_iTextFormat, hNewText);
        ZQ_ASSERT(g_hClipboard != nullptr);
        if (!g_hClipboard)
        {
            plat::ClipboardBlockFree(hNewText);
            g_hClipboard = FetchText();
        }
    }

    // Replaces the text by the old text and nAppend further characters.
    void Append(char const * szAppend, std::size_t nAppend)
    {
        plat::ClipboardBlock_t const hNewText =
            plat::ClipboardBlockAllocate(nAppend + std::max<std::size_t>(plat::ClipboardBlockSize(g_hClipboard), 1));
        char const * const pOld = plat::ClipboardBlockLock(g_hClipboard);
        if (char * const pNew = plat::ClipboardBlockLock(hNewText))
        {
            std::size_t const nOld = pOld ? std::strlen(pOld) : 0;
            std::memcpy(pNew, pOld ? pOld : "", nOld);
            std::memcpy(pNew + nOld, szAppend, nAppend);
            pNew[nOld + nAppend] = '\0';
        }
        plat::ClipboardBlockUnlock(hNewText);
        plat::ClipboardBlockUnlock(g_hClipboard);
        Install(hNewText);
    }
}

void ClipboardOpen()
{
    ZQ_ASSERT(g_iTextFormat != 0);
    ZQ_ASSERT(g_isOpen == false);
    if (g_iTextFormat == 0 || g_isOpen)
    {
        return;
    }
    for (int iTry = 0; !g_isOpen && iTry < OPEN_TRIES; ++iTry)
    {
        g_isOpen = plat::ClipboardTryOpen();
        if (!g_isOpen)
        {
            plat::ClipboardWait(OPEN_PAUSE);
        }
    }
    if (g_isOpen)
    {
        g_hClipboard = FetchText();
        if (!g_hClipboard)
        {
            ClipboardReset();
        }
    }
    ZQ_ASSERT(g_isOpen == true);
}

void ClipboardClose()
{
    if (IsOpen())
    {
        bool const bClosed = plat::ClipboardClose();
        ZQ_ASSERT(bClosed);
        Forget();
    }
}

void ClipboardPrintf(char const * sFormat, ...)
{
    if (!IsOpen())
    {
        return;
    }
    char szText[TEXT_SIZE + 1];
    std::va_list args;
    va_start(args, sFormat);
    std::size_t const nText = FormatText(szText, sizeof(szText), sFormat, args);
    va_end(args);
    Append(szText, nText);
}

bool ClipboardGetData(char * pData)
{
    plat::ClipboardBlock_t const hText = IsOpen() ? FetchText() : nullptr;
    char const * const pText = plat::ClipboardBlockLock(hText);
    if (pText)
    {
        std::strcpy(pData, pText);
    }
    plat::ClipboardBlockUnlock(hText);
    return pText != nullptr;
}

std::size_t ClipboardGetSize()
{
    return g_isOpen ? plat::ClipboardBlockSize(g_hClipboard) : 0;
}

bool ClipboardIsEmpty()
{
    return IsOpen() && ClipboardGetSize() == 1;
}

void ClipboardReset()
{
    if (!IsOpen())
    {
        return;
    }
    plat::ClipboardBlock_t const hText = plat::ClipboardBlockAllocate(1);
    if (char * const pText = plat::ClipboardBlockLock(hText))
    {
        *pText = '\0';
    }
    plat::ClipboardBlockUnlock(hText);
    Install(hText);
}

ModuleClipboard_c::~ModuleClipboard_c() = default;

ModuleClipboard_c * ModuleClipboard_c::Get()
{
    return &g_Module;
}

bool ModuleClipboard_c::Initialize()
{
    g_iTextFormat = plat::ClipboardRegisterFormat("ZQ_TEXT");
    ZQ_ASSERT(g_iTextFormat != 0);
    return Module_c::Initialize();
}
