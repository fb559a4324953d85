// cclipboard.h: a text that all processes of the user share and append to, in the clipboard under a format of its own.
//
// ClipboardOpen, any of the others, ClipboardClose: in between the clipboard is closed to all other processes. The state
// is the module's own and has no lock: one thread at a time. For the library's own use: nothing here is exported. All
// but ClipboardOpen and ClipboardGetSize fail an assertion, and do nothing, while the clipboard is not open.
#pragma once

#include "zqcore/cmodule.h"

#include "platform/clipboard.h"

/// The number of the format "ZQ_TEXT"; 0 until the module is initialised.
extern unsigned int g_iTextFormat;

/// Whether this process has the clipboard open: tells whether ClipboardOpen succeeded.
extern bool g_isOpen;

/// The clipboard's text as last fetched or set: a terminated one. Null while the clipboard is closed.
extern plat::ClipboardBlock_t g_hClipboard;

/// Opens the clipboard. While another process has it, tries again up to 100 times, every 0.1 s; then fails an assertion,
/// and g_isOpen stays false. A clipboard without a text gets an empty one. Not while it is open already.
void ClipboardOpen();
void ClipboardClose();

/// Appends a formatted text, which is cut at 65,536 characters. If that can't be stored an assertion fails and the
/// former text stays.
void ClipboardPrintf(char const * sFormat, ...) ZQ_PRINTF(1, 2);

/// Copies the text and its terminator, ClipboardGetSize bytes at most. False if there is none.
bool ClipboardGetData(char * pData);

/// The text's size with its terminator; 0 without a text and while the clipboard is closed.
std::size_t ClipboardGetSize();

/// Whether the text is the empty one.
bool ClipboardIsEmpty();

/// Removes all data of all formats and puts an empty text there.
void ClipboardReset();

/// Registers the format.
class ModuleClipboard_c : public Module_c
{
public:
    constexpr ModuleClipboard_c()
        : Module_c("ModuleClipboard_c")
    {}
    ~ModuleClipboard_c() override;

    /// The instance.
    static ModuleClipboard_c * Get();

protected:
    bool Initialize() override;
};
