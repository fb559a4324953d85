// descriptor.h: owners of file descriptors, for a scope or for long, and whole reads and writes.
#pragma once

#include "platform/files.h"

#include <cerrno>
#include <cstddef>
#include <unistd.h>

namespace plat
{
    /// A descriptor that is closed at the end of its scope, with errno kept.
    class Descriptor_c
    {
    public:
        /// Owns the descriptor, or nothing if it is -1.
        explicit Descriptor_c(int iDescriptor = -1)
            : m_iDescriptor(iDescriptor)
        {}
        ~Descriptor_c() { Reset(-1); }
        Descriptor_c(Descriptor_c const &) = delete;
        Descriptor_c & operator=(Descriptor_c const &) = delete;

        /// Return whether a descriptor is held, and the descriptor or -1.
        bool IsOpen() const { return m_iDescriptor >= 0; }
        int Get() const { return m_iDescriptor; }

        /// Closes the present descriptor and holds another, or none if it is -1. Keeps errno.
        void Reset(int iDescriptor)
        {
            if (m_iDescriptor >= 0)
            {
                int const iError = errno;
                close(m_iDescriptor);
                errno = iError;
            }
            m_iDescriptor = iDescriptor;
        }

        /// Closes the present descriptor, for a file that was written. Returns false if a write was lost, or if no
        /// descriptor is held. A close that a signal interrupts has closed the file.
        bool Close() { return close(Release()) == 0 || errno == EINTR; }

        /// Releases the descriptor to the caller, who then owns it, and returns it. Returns -1 if none is held.
        int Release()
        {
            int const iDescriptor = m_iDescriptor;
            m_iDescriptor = -1;
            return iDescriptor;
        }

    private:
        int m_iDescriptor;
    };

    /// Returns the identity of a descriptor's file, or all zero if the descriptor is not open. Keeps errno.
    FileIdentity_t IdentityOf(int iDescriptor);

    /// A descriptor that is held for long. A host may close all descriptors, as a daemon does when it starts. The
    /// number may then belong to another file, which is neither used nor closed. Nothing is closed at the end of the
    /// scope.
    class KeptDescriptor_c
    {
    public:
        /// Returns the descriptor. Returns -1 if none is held, or if the number no longer belongs to its file. Makes at
        /// most one system call.
        int Get() const { return m_iDescriptor >= 0 && IdentityOf(m_iDescriptor) == m_Identity ? m_iDescriptor : -1; }

        /// Returns the number, even if it belongs to another file. Returns -1 if no number is set.
        int GetNumber() const { return m_iDescriptor; }

        /// Closes the present descriptor and holds another, or none if it is -1. Keeps errno. Requires that the other
        /// one is open.
        void Reset(int iDescriptor);

        /// Makes the number a copy of another descriptor and holds it. The copy is closed at exec. Returns false, with
        /// nothing changed, if Get returns -1 or the system refuses.
        bool Replace(int iDescriptor);

    private:
        int m_iDescriptor = -1;
        FileIdentity_t m_Identity;
    };

    /// Moves a descriptor that has the number of a standard stream to a higher one, because what anyone prints to a
    /// standard stream that is closed would go to the file. Returns the descriptor, or -1 for -1. Requires that fcntl
    /// has not locked the file: the close of the lower number ends such locks. Returns -1, with the file closed, if no
    /// number is left.
    int MoveAboveStandard(int iDescriptor);

    /// Reads up to nBytes and returns the number of bytes read. Fewer mean the end of the file, which keeps errno, or
    /// an error, which sets it.
    inline std::size_t ReadFully(int iDescriptor, void * pBuffer, std::size_t nBytes)
    {
        int const iError = errno;
        std::size_t nDone = 0;
        while (nDone < nBytes)
        {
            ssize_t const nRead = read(iDescriptor, static_cast<char *>(pBuffer) + nDone, nBytes - nDone);
            if (nRead <= 0 && !(nRead < 0 && errno == EINTR))
            {
                break;
            }
            errno = nRead < 0 ? iError : errno;   // an interruption is no reason for a short read
            nDone += nRead > 0 ? static_cast<std::size_t>(nRead) : 0;
        }
        return nDone;
    }

    /// Reads up to nSize - 1 bytes and terminates them. Requires that nSize is above 0. The text is empty if
    /// iDescriptor is -1 or can't be read.
    inline void ReadText(int iDescriptor, char * szText, std::size_t nSize)
    {
        szText[iDescriptor >= 0 ? ReadFully(iDescriptor, szText, nSize - 1) : 0] = 0;
    }

    /// Writes until the system accepts no more, at most nBytes, and returns the number of bytes written.
    inline std::size_t WriteSome(int iDescriptor, void const * pData, std::size_t nBytes)
    {
        std::size_t nDone = 0;
        while (nDone < nBytes)
        {
            ssize_t const nWritten = write(iDescriptor, static_cast<char const *>(pData) + nDone, nBytes - nDone);
            if (nWritten <= 0 && !(nWritten < 0 && errno == EINTR))
            {
                break;
            }
            nDone += nWritten > 0 ? static_cast<std::size_t>(nWritten) : 0;
        }
        return nDone;
    }

    /// Writes nBytes. Returns false as soon as the system accepts no more.
    inline bool WriteFully(int iDescriptor, void const * pData, std::size_t nBytes)
    {
        return WriteSome(iDescriptor, pData, nBytes) == nBytes;
    }
}
