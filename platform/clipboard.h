// clipboard.h: the user's store of data that processes exchange, open to one process at a time.
//
// - Data are kept under formats, each a name of at most 255 bytes. A block has at most 64 MiB.
// - The process that opens the clipboard has it alone. A process that ends, however it ends, closes it. A child process
//   finds it closed.
// - Data reach other processes when they are set, as a whole. A process that is killed meanwhile leaves the previous data.
//
// Threads: one thread of a process at a time.
#pragma once

#include "platform/compiler.h"

#include <cstddef>

namespace plat
{
    constexpr std::size_t CLIPBOARD_LIMIT = 64 * 1024 * 1024;   // bytes of a block

    /// Keeps the clipboard at another place, which a host or a test names; null restores the user's. Where it is made of
    /// files, a place is a folder. The text is copied. Requires a closed clipboard.
    ZQ_API void ClipboardSetFolder(char const * szFolder);

    /// The number of a format, the same for names that differ in ASCII case only; 0 if it can't be had.
    unsigned int ClipboardRegisterFormat(char const * szName);

    /// Opens the clipboard; false if anyone has it open, or it can't be reached. Does not wait.
    bool ClipboardTryOpen();

    /// Closes it; false if it is not open. Blocks that belong to the clipboard end here.
    bool ClipboardClose();

    /// Removes the data of all formats from the open clipboard; false if it is not open. The others see it when data
    /// are set or the clipboard is closed.
    bool ClipboardEmpty();

    /// A block of bytes that can be put into the clipboard. Null is none: of size 0, and never locked.
    struct ClipboardBlock_s;
    using ClipboardBlock_t = ClipboardBlock_s *;

    /// Makes a block; null above CLIPBOARD_LIMIT.
    ClipboardBlock_t ClipboardBlockNew(std::size_t nBytes);

    /// Frees a block that does not belong to the clipboard. Null does nothing.
    void ClipboardBlockFree(ClipboardBlock_t hBlock);

    std::size_t ClipboardBlockSize(ClipboardBlock_t hBlock);

    /// The block's bytes, until it is unlocked; null on failure.
    char * ClipboardBlockLock(ClipboardBlock_t hBlock);
    void ClipboardBlockUnlock(ClipboardBlock_t hBlock);

    /// The format's data in the open clipboard, null if there are none. The block belongs to the clipboard and is valid
    /// until that is emptied or closed or the format is set.
    ClipboardBlock_t ClipboardGet(unsigned int iFormat);

    /// Puts a block into the open clipboard, to which it then belongs; the block. Null on failure: the block is still
    /// the caller's, and the clipboard holds what it held before it was last emptied.
    ClipboardBlock_t ClipboardSet(unsigned int iFormat, ClipboardBlock_t hBlock);

    /// Waits before another try to open.
    void ClipboardWait(unsigned int nMilliseconds);

    /// Replaces the wait function; null restores the default. Returns the previous one. For tests.
    using ClipboardWait_t = void (*)(unsigned int nMilliseconds);
    ClipboardWait_t ClipboardSetWait(ClipboardWait_t fnWait);
}
