// cclipboard.h: a text in the clipboard, under a format of its own, that processes append to.
//
// ClipboardOpen comes first, then any of the others, then ClipboardClose. In between the clipboard is closed to all
// other processes. Nothing here is exported: the functions are for the library itself.
//
// Ownership: the clipboard owns the text. Callers get copies.
// Threads: one thread at a time, because the state has no lock.
// Cost: ClipboardOpen waits up to 10 seconds until it succeeds. Each change stores the whole text again.
// Failure: failures assert. While the clipboard is not open, all calls but ClipboardOpen and ClipboardGetSize assert
// and do nothing.
//
//     ClipboardOpen();
//     if (g_isOpen)
//     {
//         ClipboardPrintf("%i ogres", 3);
//         std::string sText(ClipboardGetSize(), '\0');
//         ClipboardGetData(sText.data());
//         Log("The clipboard holds: %s", sText);
//         ClipboardClose();
//     }
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/cprintf.h"

#include "platform/clipboard.h"

/// Number of the format "ZQ_TEXT", or 0 while it is not registered.
extern unsigned int g_iTextFormat;

/// Whether this process has the clipboard open: true after a ClipboardOpen that succeeded.
extern bool g_isOpen;

/// The clipboard's text with its terminator, as last read or set. It is null without a text and while the clipboard is
/// closed.
extern plat::ClipboardBlock_t g_hClipboard;

/// Opens the clipboard. Tries up to 100 times, every 0.1 s, while another process has it or it can't be reached.
/// Without a text of this format, does what ClipboardReset does. Asserts that g_iTextFormat is not 0 and that the
/// clipboard is not open, and does nothing otherwise. If no try succeeds, asserts, and g_isOpen stays false.
void ClipboardOpen();

/// Closes the clipboard. If the system refuses, asserts, and the clipboard counts as closed.
void ClipboardClose();

/// Appends a formatted text, which is cut at 65,536 characters. Removes data of other formats. On failure asserts, and
/// the previous text stays.
void ClipboardPrintf(char const * sFormat, ...) ZQ_PRINTF(1, 2);

/// Does what the function of the same name does, with arguments of text classes (cprintf.h).
ZQ_PRINTF_TEXTS(ZQ_INLINE void, , ClipboardPrintf)

/// Copies the text and its terminator to pData, and returns true. Requires room for ClipboardGetSize bytes. Returns
/// false and writes nothing if there is no text.
bool ClipboardGetData(char * pData);

/// Returns the size of the text's block in bytes: the text, its terminator, and what another program stored after that.
/// Returns 0 without a text and while the clipboard is closed.
std::size_t ClipboardGetSize();

/// Returns whether the text's block holds only the terminator. Returns false without a text.
bool ClipboardIsEmpty();

/// Removes the data of all formats and stores an empty text. On failure asserts, and the previous data stay.
void ClipboardReset();

/// Module that registers the format. It depends on no other module.
class ModuleClipboard_c : public Module_c
{
public:
    constexpr ModuleClipboard_c()
        : Module_c("ModuleClipboard_c")
    {}
    ~ModuleClipboard_c() override;

    /// Returns the only instance.
    static ModuleClipboard_c * Get();

protected:
    bool Initialize() override;
};
