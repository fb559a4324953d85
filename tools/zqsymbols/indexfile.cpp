#include "tools/zqsymbols/indexfile.h"

#include "platform/bytes.h"
#include "platform/linux/descriptor.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zqsymbols
{
    namespace
    {
        constexpr char MARK[8] = { 'Z', 'Q', 'I', 'N', 'D', 'E', 'X', '1' };
        constexpr std::uint64_t MAX_FOLDER = 64 << 20;       // bytes of all files
        constexpr std::uint64_t MAX_FILE = MAX_FOLDER / 2;   // bytes of one file
        constexpr std::size_t MAX_BUILD_ID = 64;             // bytes
        constexpr char ENDING[] = ".index";

        struct Head_s
        {
            char dMark[sizeof(MARK)];
            std::uint64_t nSum;   // of all that follows
            char dBuildId[MAX_BUILD_ID];
            std::uint64_t nSpan;
            std::uint64_t nUnitBytes;
            std::uint64_t nSymbols;
            std::uint64_t nUnitRanges;
            std::uint64_t nSymbolRanges;
        };
        static_assert(sizeof(Head_s) == 120 && sizeof(IndexRange_t) == 16);
        constexpr std::size_t SUMMED_FROM = offsetof(Head_s, dBuildId);

        // Returns a checksum by words, because a file has some megabytes. Ignores an incomplete last word, which only a
        // damaged file has.
        std::uint64_t Sum(std::string_view sBytes)
        {
            std::uint64_t nSum = sBytes.size();
            for (std::size_t i = 0; i + sizeof(nSum) <= sBytes.size(); i += sizeof(nSum))
            {
                std::uint64_t nWord;
                std::memcpy(&nWord, sBytes.data() + i, sizeof(nWord));
                nSum = (nSum ^ nWord) * plat::GOLDEN_RATIO;
                nSum ^= nSum >> 32;
            }
            return nSum;
        }

        // Returns the head of a file, without its checksum.
        Head_s HeadOf(IndexKey_t const & Key, std::uint64_t nUnitRanges, std::uint64_t nSymbolRanges)
        {
            Head_s Head{};
            std::memcpy(Head.dMark, MARK, sizeof(MARK));
            Key.sBuildId.copy(Head.dBuildId, MAX_BUILD_ID);
            Head.nSpan = Key.nSpan;
            Head.nUnitBytes = Key.nUnitBytes;
            Head.nSymbols = Key.nSymbols;
            Head.nUnitRanges = nUnitRanges;
            Head.nSymbolRanges = nSymbolRanges;
            return Head;
        }

        std::string_view BytesOf(std::vector<IndexRange_t> const & dRanges)
        {
            return { reinterpret_cast<char const *>(dRanges.data()), dRanges.size() * sizeof(IndexRange_t) };
        }

        std::vector<IndexRange_t> RangesOf(std::string_view sBytes)
        {
            std::vector<IndexRange_t> dRanges(sBytes.size() / sizeof(IndexRange_t));
            sBytes.copy(reinterpret_cast<char *>(dRanges.data()), sBytes.size());
            return dRanges;
        }

        // Returns whether the user owns a file and no one else may write to it.
        bool IsOwn(struct stat const & Stat)
        {
            return Stat.st_uid == geteuid() && (Stat.st_mode & (S_IWGRP | S_IWOTH)) == 0;
        }

        std::string NameOf(IndexKey_t const & Key)
        {
            return Key.sBuildId + ENDING;
        }

        // Opens a folder and returns it. Returns -1 on failure, and if the folder is not the user's own.
        int OpenFolder(std::string const & sFolder)
        {
            int const hFolder =
                sFolder.empty() ? -1 : open(sFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            struct stat Stat = {};
            if (hFolder >= 0 && (fstat(hFolder, &Stat) != 0 || !IsOwn(Stat)))
            {
                close(hFolder);
                return -1;
            }
            return hFolder;
        }

        // Deletes the files that were unused for the longest time until the rest and nBytes more are within MAX_FOLDER.
        // Returns false if the files can't be counted.
        bool MakeRoom(int hFolder, std::uint64_t nBytes)
        {
            struct Entry_s
            {
                timespec tUsed;
                std::uint64_t nBytes;
                std::string sName;
            };
            plat::Descriptor_c Own(openat(hFolder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            DIR * const pFolder = Own.IsOpen() ? fdopendir(Own.Get()) : nullptr;
            if (pFolder == nullptr)
            {
                return false;
            }
            Own.Release();   // closedir closes it
            std::vector<Entry_s> dEntries;
            while (dirent const * const pEntry = readdir(pFolder))
            {
                struct stat Stat = {};
                std::string sName = pEntry->d_name;
                if (sName.ends_with(ENDING) && fstatat(hFolder, sName.c_str(), &Stat, AT_SYMLINK_NOFOLLOW) == 0)
                {
                    dEntries.push_back({ Stat.st_mtim, static_cast<std::uint64_t>(Stat.st_size), std::move(sName) });
                    nBytes += dEntries.back().nBytes;
                }
            }
            closedir(pFolder);
            std::ranges::sort(
                dEntries, {}, [](Entry_s const & Entry) { return std::pair(Entry.tUsed.tv_sec, Entry.tUsed.tv_nsec); });
            for (std::size_t i = 0; i < dEntries.size() && nBytes > MAX_FOLDER; ++i)
            {
                unlinkat(hFolder, dEntries[i].sName.c_str(), 0);
                nBytes -= dEntries[i].nBytes;
            }
            return true;
        }
    }

    std::string FormatIndex(IndexKey_t const & Key, IndexParts_t const & Parts)
    {
        Head_s const Head = HeadOf(Key, Parts.dUnits.size(), Parts.dSymbols.size());
        std::string sFile(reinterpret_cast<char const *>(&Head), sizeof(Head));
        sFile += BytesOf(Parts.dUnits);
        sFile += BytesOf(Parts.dSymbols);
        std::uint64_t const nSum = Sum(std::string_view(sFile).substr(SUMMED_FROM));
        std::memcpy(sFile.data() + offsetof(Head_s, nSum), &nSum, sizeof(nSum));
        return sFile;
    }

    std::optional<IndexParts_t> ParseIndex(std::string_view sFile, IndexKey_t const & Key)
    {
        Head_s Head;
        if (sFile.size() < sizeof(Head) || sFile.size() > MAX_FILE)
        {
            return std::nullopt;
        }
        std::memcpy(&Head, sFile.data(), sizeof(Head));
        Head_s Expected = HeadOf(Key, Head.nUnitRanges, Head.nSymbolRanges);
        Expected.nSum = Sum(sFile.substr(SUMMED_FROM));
        std::string_view const sRanges = sFile.substr(sizeof(Head));
        std::uint64_t const nRanges = sRanges.size() / sizeof(IndexRange_t);
        if (std::memcmp(&Head, &Expected, sizeof(Head)) != 0 || sRanges.size() % sizeof(IndexRange_t) != 0
            || Head.nUnitRanges > nRanges || Head.nSymbolRanges != nRanges - Head.nUnitRanges)
        {
            return std::nullopt;
        }
        std::size_t const nUnitBytes = static_cast<std::size_t>(Head.nUnitRanges) * sizeof(IndexRange_t);
        IndexParts_t Parts = { RangesOf(sRanges.substr(0, nUnitBytes)), RangesOf(sRanges.substr(nUnitBytes)) };
        auto const IsGood = [&Key](std::vector<IndexRange_t> const & dRanges)
        {
            return std::is_sorted(dRanges.begin(), dRanges.end(), IsBefore)
                   && std::ranges::all_of(dRanges, [&Key](IndexRange_t const & Range)
                       { return std::uint64_t{ Range.nStart } + Range.nBytes <= Key.nSpan; });
        };
        return IsGood(Parts.dUnits) && IsGood(Parts.dSymbols) ? std::optional(std::move(Parts)) : std::nullopt;
    }

    std::optional<IndexParts_t> IndexFolder_c::Load(IndexKey_t const & Key) const
    {
        plat::Descriptor_c const Folder(OpenFolder(m_sFolder));
        struct stat Stat = {};
        plat::Descriptor_c const File(!Folder.IsOpen() ? -1
                                                       : openat(Folder.Get(), NameOf(Key).c_str(),
                                                           O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!File.IsOpen() || fstat(File.Get(), &Stat) != 0 || !S_ISREG(Stat.st_mode) || !IsOwn(Stat)
            || static_cast<std::uint64_t>(Stat.st_size) > MAX_FILE)
        {
            return std::nullopt;
        }
        std::string sFile(static_cast<std::size_t>(Stat.st_size), '\0');
        std::optional<IndexParts_t> Parts;
        if (pread(File.Get(), sFile.data(), sFile.size(), 0) == Stat.st_size)
        {
            Parts = ParseIndex(sFile, Key);
        }
        if (Parts)
        {
            futimens(File.Get(), nullptr);   // the time of its last use
        }
        return Parts;
    }

    void IndexFolder_c::Save(IndexKey_t const & Key, IndexParts_t const & Parts) const
    {
        std::string const sFile = FormatIndex(Key, Parts);
        if (m_sFolder.empty() || sFile.size() > MAX_FILE)
        {
            return;
        }
        mkdir(m_sFolder.substr(0, m_sFolder.rfind('/')).c_str(), S_IRWXU);
        mkdir(m_sFolder.c_str(), S_IRWXU);
        plat::Descriptor_c const Folder(OpenFolder(m_sFolder));
        std::string const sNew = NameOf(Key) + std::to_string(getpid()) + ENDING;
        constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        bool const bRoom = Folder.IsOpen() && MakeRoom(Folder.Get(), sFile.size());
        plat::Descriptor_c const File(bRoom ? openat(Folder.Get(), sNew.c_str(), FLAGS, S_IRUSR | S_IWUSR) : -1);
        if (File.IsOpen()
            && (!plat::WriteFully(File.Get(), sFile.data(), sFile.size())
                || renameat(Folder.Get(), sNew.c_str(), Folder.Get(), NameOf(Key).c_str()) != 0))
        {
            unlinkat(Folder.Get(), sNew.c_str(), 0);
        }
    }

    std::string IndexFolderOfUser()
    {
        std::string sFolder;
        std::FILE * const pUsers = std::fopen("/etc/passwd", "re");
        if (pUsers == nullptr)
        {
            return sFolder;
        }
        while (passwd const * const pUser = fgetpwent(pUsers))
        {
            if (pUser->pw_uid == geteuid() && pUser->pw_dir[0] == '/')
            {
                sFolder = std::string(pUser->pw_dir) + "/.cache/zqcore";
                break;
            }
        }
        std::fclose(pUsers);
        return sFolder;
    }
}
