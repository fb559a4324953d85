// asyncwrite.h: a file that is written beside its thread, one write at a time.
//
// The caller's bytes go to the disk while the caller goes on. They must stay as they are until the write is done. Where
// the system has no such writes, a write is done when it returns; nothing else differs.
//
// Ownership: a child process has none of its parent's files, so the parent alone writes on.
// Threads: all calls on a file belong to one thread.
// Cost: allocates nothing.
// Failure: a call that fails leaves the reason for LastErrorText (process.h).
#pragma once

#include "platform/filewrite.h"

namespace plat
{
    class AsyncFile_c
    {
    public:
        /// Whether files that are created from now on may be written beside their thread. Starts true.
        static void AllowBeside(bool bAllow);

        constexpr AsyncFile_c() = default;
        ~AsyncFile_c() { Close(); }
        AsyncFile_c(AsyncFile_c const &) = delete;
        AsyncFile_c & operator=(AsyncFile_c const &) = delete;

        /// Makes and opens a file as FileCreate does; false on failure. Closes one that is open.
        bool Create(char const * szPath);

        /// The open file, or null. What is done to it by other means must not meet a write under way.
        File_t GetHandle() const { return m_hFile; }

        /// Begins to write at an offset from the start. Requires an open file and no write under way. Finish
        /// returns whether it succeeded.
        void Write(std::uint64_t nOffset, void const * pData, std::size_t nBytes);

        /// Whether the system still writes. Does not wait.
        bool IsBusy() const;

        /// Waits for the write to end; false if not all of it went out. True if there was none.
        bool Finish();

        /// Waits for the write to end and closes the file; false if Finish or the system says that some of it is lost.
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
        alignas(std::uint64_t) unsigned char m_dSystem[SYSTEM_SIZE] = {};   // the system's own, zero until it is used
    };
}
