// asyncwrite.h: a file that is written while its thread continues, one write at a time.
//
// The caller's bytes are written while the caller continues. Requires that they stay unchanged until the write is done.
// On a system without such writes, a write is done when the call returns.
//
// Ownership: a child process has none of its parent's files. Only the parent continues to write.
// Threads: all calls on a file belong to one thread.
// Cost: allocates nothing, except that Create may record spellings of the path (files.h).
// Failure: a call that fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/files.h"

namespace plat
{
    /// A file that is written at offsets, one write at a time.
    class AsyncFile_c
    {
    public:
        /// Sets whether files that are created from now on may be written while their thread continues. At start they
        /// may. Requires that no other thread creates a file meanwhile.
        static void AllowConcurrent(bool bAllow);

        constexpr AsyncFile_c() = default;
        ~AsyncFile_c() { Close(); }
        AsyncFile_c(AsyncFile_c const &) = delete;
        AsyncFile_c & operator=(AsyncFile_c const &) = delete;

        /// Creates and opens a file as FileCreate does. First closes one that is open, and does not report its losses.
        /// Returns false on failure.
        bool Create(char const * szPath);

        /// Returns the open file, or null. Requires that the caller does not use it while a write is under way.
        File_t GetHandle() const { return m_hFile; }

        /// Begins a write at an offset in bytes from the start. Finish returns whether the write succeeded. Requires an
        /// open file, and that Finish was called after the previous write.
        void Write(std::uint64_t nOffset, void const * pData, std::size_t nBytes);

        /// Returns whether the system still writes. Does not wait.
        bool IsBusy() const;

        /// Waits for the write to end. Returns false if not all bytes were written, and true if there was no write.
        bool Finish();

        /// Waits for the write to end and closes the file. Returns false if Finish fails, or if the system reports a
        /// loss. Returns true if no file is open.
        bool Close();

    private:
        bool WriteRest();
        void Abandon();

        static constexpr std::size_t SYSTEM_SIZE = 128;

        File_t m_hFile = nullptr;
        std::uint64_t m_nOffset = 0;   // of the write under way, or of what is left of it
        char const * m_pData = nullptr;
        std::size_t m_nLeft = 0;
        int m_iError = 0;   // the system's error of a write that was done when it returned
        alignas(std::uint64_t) unsigned char m_dSystem[SYSTEM_SIZE] = {};   // the system's own; zero until used
    };
}
