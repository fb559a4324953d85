// facts.h: what the system reports of a file, in the library's terms.
#pragma once

#include "platform/clock.h"
#include "platform/files.h"

#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>

namespace plat
{
    /// The fields that FactsFromStatx reads.
    inline constexpr unsigned FACTS_MASK = STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_BTIME;

    /// Returns a time since 1970 as 100-nanosecond ticks since 1601. Returns 0 for a time before 1601.
    inline FileTime_t TicksFromTime(std::int64_t nSeconds, std::uint32_t nNanoseconds)
    {
        std::int64_t const nSince1601 = nSeconds + FILE_TIME_SECONDS_TO_1970;
        return nSince1601 < 0 ? 0
                              : static_cast<FileTime_t>(nSince1601) * FILE_TIME_TICKS
                                    + nNanoseconds / (NANOSECONDS_OF_SECOND / FILE_TIME_TICKS);
    }

    /// Converts facts that statx read with FACTS_MASK. tCreation is 0 if statx did not report it.
    inline void FactsFromStatx(struct statx const & Stat, FileFacts_t & Facts)
    {
        Facts.nSize = Stat.stx_size;
        Facts.tCreation =
            (Stat.stx_mask & STATX_BTIME) != 0 ? TicksFromTime(Stat.stx_btime.tv_sec, Stat.stx_btime.tv_nsec) : 0;
        Facts.tLastWrite = TicksFromTime(Stat.stx_mtime.tv_sec, Stat.stx_mtime.tv_nsec);
        Facts.bFolder = S_ISDIR(Stat.stx_mode);
        Facts.bRegular = S_ISREG(Stat.stx_mode);
    }

    /// Returns whether two facts are those of one file or folder.
    inline bool IsOneFile(struct stat const & First, struct stat const & Second)
    {
        return First.st_dev == Second.st_dev && First.st_ino == Second.st_ino;
    }

    /// Reads the facts of what szPath names in the folder iFolder. iFlags are those of statx: 0 follows links. With
    /// AT_EMPTY_PATH an empty path is iFolder itself. On failure returns false and keeps Facts.
    inline bool ReadFactsAt(int iFolder, char const * szPath, int iFlags, FileFacts_t & Facts)
    {
        struct statx Stat;
        if (statx(iFolder, szPath, iFlags, FACTS_MASK, &Stat) != 0)
        {
            return false;
        }
        FactsFromStatx(Stat, Facts);
        return true;
    }

    /// Returns the facts of what sPath names in the folder iFolder. Follows links. On failure all are zero.
    inline FileFacts_t FactsOf(std::string const & sPath, int iFolder = AT_FDCWD)
    {
        FileFacts_t Facts = {};
        ReadFactsAt(iFolder, sPath.c_str(), 0, Facts);
        return Facts;
    }
}
