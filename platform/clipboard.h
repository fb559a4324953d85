// clipboard.h: the user's store of data that processes exchange, open to one process at a time.
//
// - Data are stored under formats. A format is a name of at most 255 bytes. A block has at most CLIPBOARD_LIMIT
//   bytes.
// - Only one process at a time can have the clipboard open. The end of that process closes it, also after a crash. In a
//   child process it is closed.
// - Other processes see data as soon as they are set, as a whole. If a process is killed meanwhile, the previous data
//   stay.
//
// Threads: one thread of a process at a time.
#pragma once

#include "platform/compiler.h"

#include <cstddef>

namespace plat
{
    inline constexpr std::size_t CLIPBOARD_LIMIT = 64 * 1024 * 1024;   // bytes of a block

    /// A block of bytes that can be put into the clipboard. A null block has the size 0 and can't be locked.
    struct ClipboardBlock_s;
    using ClipboardBlock_t = ClipboardBlock_s *;

    /// Function that ClipboardWait calls instead of a sleep.
    using ClipboardWait_t = void (*)(unsigned int nMilliseconds);

    /// Sets the place of the clipboard, for a host or a test. Null or an empty text restores the user's own. Moves no
    /// data. If the clipboard is made of files, a place is a folder. Copies the text, cut at 4095 bytes. Requires a
    /// closed clipboard.
    ZQ_API void ClipboardSetFolder(char const * szFolder);

    /// Registers a format and returns its number. Names that differ only in ASCII case have the same number. A process
    /// has at most 4096 formats. On failure returns 0.
    unsigned int ClipboardRegisterFormat(char const * szName);

    /// Opens the clipboard without waiting. Returns false if any process has it open, or if it can't be reached.
    bool ClipboardTryOpen();

    /// Closes the clipboard and frees the blocks that belong to it. Returns false if it is not open.
    bool ClipboardClose();

    /// Removes the data of all formats from the open clipboard. Other processes see this when data are set or the
    /// clipboard is closed. Returns false if it is not open.
    bool ClipboardEmpty();

    /// Allocates a block of zeroed bytes, which the caller owns, and returns it. Returns null above CLIPBOARD_LIMIT.
    ClipboardBlock_t ClipboardBlockAllocate(std::size_t nBytes);

    /// Frees a block that does not belong to the clipboard. Null does nothing.
    void ClipboardBlockFree(ClipboardBlock_t hBlock);

    /// Returns the size of a block in bytes.
    std::size_t ClipboardBlockSize(ClipboardBlock_t hBlock);

    /// Locks a block and returns its bytes, which are valid until the block is unlocked. Returns null for a null block,
    /// and for one of 0 bytes.
    char * ClipboardBlockLock(ClipboardBlock_t hBlock);

    /// Unlocks a block. Null does nothing.
    void ClipboardBlockUnlock(ClipboardBlock_t hBlock);

    /// Returns the format's data. Returns null if the clipboard is closed, or if it has no data of the format that can
    /// be read. The block belongs to the clipboard. It is valid until ClipboardEmpty, ClipboardClose or a ClipboardSet
    /// of the format.
    ClipboardBlock_t ClipboardGet(unsigned int iFormat);

    /// Puts a block into the open clipboard, which then owns it. Returns the block. On failure returns null, and the
    /// caller still owns the block. A failure changes the clipboard as follows:
    /// - A null block changes nothing.
    /// - An unknown format or a closed clipboard changes nothing.
    /// - A failed write changes no data. It undoes a ClipboardEmpty that no successful ClipboardSet has followed.
    ClipboardBlock_t ClipboardSet(unsigned int iFormat, ClipboardBlock_t hBlock);

    /// Sleeps, or calls the function of ClipboardSetWait. The library calls it after each failed attempt to open
    /// the clipboard.
    void ClipboardWait(unsigned int nMilliseconds);

    /// Replaces the wait function, for tests; null restores the default. Returns the previous one.
    ClipboardWait_t ClipboardSetWait(ClipboardWait_t fnWait);
}
