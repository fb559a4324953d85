// folderreader.h: the raw entries of an open folder, in the disk's order.
//
// FolderReader_T uses no heap.
#pragma once

#include "platform/compiler.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <string>
#include <vector>

namespace plat
{
    /// Returns whether a name is "." or "..".
    inline bool IsDots(char const * szName)
    {
        return szName[0] == '.' && (szName[1] == 0 || (szName[1] == '.' && szName[2] == 0));
    }

    /// One walk over a folder's entries, without "." and "..". It reads up to BLOCK_BYTES bytes at a time into a buffer
    /// that it holds.
    template <std::size_t BLOCK_BYTES>
    class FolderReader_T
    {
    public:
        /// Makes a walk over the folder of a descriptor, from its position on. Requires that the descriptor stays open
        /// during the walk. The caller closes it.
        explicit FolderReader_T(int iFolder)
            : m_iFolder(iFolder)
        {}

        /// Moves to the next entry and returns it, valid until the next call. Returns null at the end or when reading
        /// fails.
        dirent64 const * Next()
        {
            while (m_iNext < m_nFilled || Fill())
            {
                dirent64 const * const pEntry = reinterpret_cast<dirent64 const *>(m_dBlock + m_iNext);
                m_iNext += pEntry->d_reclen;
                m_iPosition = pEntry->d_off;
                if (!IsDots(pEntry->d_name))
                {
                    return pEntry;
                }
            }
            return nullptr;
        }

        /// Returns whether an error, left in errno, ended the walk. A folder that was deleted meanwhile is at its end.
        bool IsBroken() const { return m_bBroken; }

    private:
        /// Reads the next block of entries and returns true. Returns false at the end or when reading fails.
        bool Fill()
        {
            if (m_iPosition == LAST_POSITION)
            {
                return false;
            }
            auto const nRead = getdents64(m_iFolder, m_dBlock, sizeof(m_dBlock));
            m_bBroken = nRead < 0 && errno != ENOENT;
            m_iNext = 0;
            m_nFilled = nRead > 0 ? static_cast<std::size_t>(nRead) : 0;
            return nRead > 0;
        }

        /// Position that no entry follows. If the file system reports it for the last entry, Fill saves a system call.
        static constexpr std::int64_t LAST_POSITION = INT64_MAX;

        int m_iFolder;
        bool m_bBroken = false;
        std::int64_t m_iPosition = 0;   // after the last entry read
        std::size_t m_iNext = 0;        // index in m_dBlock of the next entry
        std::size_t m_nFilled = 0;      // bytes in m_dBlock
        alignas(dirent64) char m_dBlock[BLOCK_BYTES];
    };

    /// A walk with few system calls. Requires that no recursive function has one on its stack.
    using FolderReader_c = FolderReader_T<32768>;

    /// Appends all names of an open folder to dNames, from its position on, without "." and "..". Returns false if
    /// reading fails. dNames then has the names that were read until then.
    ZQ_COLD inline bool ReadNames(int iFolder, std::vector<std::string> & dNames)
    {
        FolderReader_c Reader(iFolder);
        while (dirent64 const * pEntry = Reader.Next())
        {
            dNames.emplace_back(pEntry->d_name);
        }
        return !Reader.IsBroken();
    }
}
