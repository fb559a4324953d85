// scan_fuzz.cpp: scans of generated trees, compared with a model that walks the tree itself.
//
// Bit 0 of the first byte chooses relative names. The rest makes the tree: a byte for what is made, one for the length
// of its name, the letters, and for a link the letter of its target.
#include "fuzz/fuzz_support.h"
#include "platform/text.h"
#include "zqcore/cfilemedia.h"
#include "zqcore/cfilepath_internal.h"
#include "zqcore/cfilereplace.h"
#include "zqcore/clog.h"

#include <fstream>
#include <map>
#include <set>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace
{
    // Removes the input's next nName bytes, fewer at its end, and returns a name of as many of LETTERS.
    std::string ExtractName(Input_c & Input, std::size_t nName)
    {
        static constexpr char LETTERS[] = "aAbB.:\\-~zq0\x1b\xc3\xa4\xc4";
        std::string sName = Input.Extract(nName);
        for (char & cLetter : sName)
        {
            cLetter = LETTERS[static_cast<unsigned char>(cLetter) % (sizeof LETTERS - 1)];
        }
        return sName;
    }

    // Makes the tree. A kind, modulo 8, selects the step:
    // - 0 returns to the parent.
    // - 1 and 2 make a link.
    // - 3 and 4 make and enter a folder.
    // - 5 makes a pipe.
    // - 6 and 7 make a file.
    void MakeTree(Input_c & Input, fs::path const & Root)
    {
        fs::path Folder = Root;
        std::error_code Ignored;
        for (int nEntries = 0; !Input.IsEmpty() && nEntries < 64; ++nEntries)
        {
            unsigned char const cKind = Input.Get(), nName = Input.Get();
            fs::path const Path =
                Folder / (ExtractName(Input, nName & 15) + std::string(nName & 16 ? 100 + nName / 4 : 0, 'x'));
            if (cKind % 8 == 0)
            {
                Folder = Folder == Root ? Root : Folder.parent_path();
            }
            else if (cKind % 8 < 3)
            {
                fs::path const Target = (cKind & 1 ? Folder : Root) / ExtractName(Input, 1);
                fs::create_symlink(cKind & 8 ? fs::path("..") : Target, Path, Ignored);
            }
            else if (cKind % 8 < 5)
            {
                Folder = fs::create_directory(Path, Ignored) ? Path : Folder;
            }
            else if (cKind % 8 == 5)
            {
                mkfifo(Path.c_str(), 0600);
            }
            else if (!fs::exists(fs::symlink_status(Path, Ignored)))   // writes through no link
            {
                std::ofstream(Path) << Path.string();
            }
        }
    }

    // Model of what a scan finds, by the rules of cfilepath.h.
    struct Model_s
    {
        std::map<std::string, std::string> Files;   // by key: the path on disk
        std::set<std::string> Duplicates, Folders;
        std::set<std::pair<dev_t, ino_t>> Entered;
        int nDropped = 0;        // files whose key another one has: each has a line in the log
        std::size_t nRoot = 0;   // of relative names: characters of the root with its separator

        void AddFile(std::string const & sFolder, std::string const & sName, std::string const & sDisk)
        {
            std::string const sBelow = nRoot ? sFolder.substr(nRoot) : "";
            std::string const sKey = sBelow + Lower(sName).substr(0, FILE_KEY_LENGTH);
            if (!FileReplacement_c::IsBeside(sName.c_str()) && (!sBelow.empty() || sName.substr(1, 1) != ":")
                && (!nRoot || sBelow.size() + sName.size() <= FILE_KEY_LENGTH) && !Files.emplace(sKey, sDisk).second)
            {
                Duplicates.insert(sKey);
                ++nDropped;
            }
        }

        void Scan(std::string const & sFolder, fs::path const & Disk)
        {
            struct stat Stat;
            if (stat(Disk.c_str(), &Stat) != 0 || !Entered.emplace(Stat.st_dev, Stat.st_ino).second)
            {
                return;
            }
            std::error_code Ignored;
            Folders.insert(sFolder);
            std::map<std::string, std::vector<std::string>> Names;   // by lower case, of which a path finds the first
            for (fs::directory_entry const & Entry : fs::directory_iterator(Disk))
            {
                std::string const sName = Entry.path().filename().string();
                if (sName.find('\\') == std::string::npos && fs::exists(fs::status(Entry.path(), Ignored)))
                {
                    Names[Lower(sName)].push_back(sName);
                }
            }
            for (auto & [sLower, dNames] : Names)
            {
                auto const Order = [&sLower = sLower](std::string const & sName)
                { return std::pair(sName != sLower, sName); };
                std::ranges::sort(dNames, {}, Order);
                fs::path const Reached = Disk / dNames[0];
                bool const bUtf8 = plat::IsUtf8(sLower.c_str());
                if (bUtf8 && fs::is_directory(Reached) && sFolder.size() + sLower.size() + 1 <= 255)
                {
                    Scan(sFolder + sLower + '\\', Reached);
                }
                for (std::string const & sName : dNames)
                {
                    if (bUtf8 && fs::is_regular_file(Reached) && fs::is_regular_file(Disk / sName))
                    {
                        AddFile(sFolder, sName, Reached);
                    }
                }
            }
        }
    };

    int g_nDroppedLines = 0;   // lines of the log about dropped files
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    [[maybe_unused]] static bool const s_bListens = []
    {
        LogAddCallback(
            [](char const * szLine) { g_nDroppedLines += std::string_view(szLine).starts_with("File dup"); });
        return true;
    }();
    Input_c Input(pData, nSize);
    g_nDroppedLines = 0;
    fs::path const Root = MakeFuzzFolder() + "/tree";
    std::string sFolder = Lower(Root.string()) + '\\';
    std::replace(sFolder.begin(), sFolder.end(), '/', '\\');
    bool const bRelative = Input.Get() & 1;
    fs::create_directory(Root);
    MakeTree(Input, Root);

    Model_s Model;
    Model.nRoot = bRelative ? sFolder.size() : 0;
    Model.Scan(sFolder, Root);
    SetPQXMediaPath(Root.c_str());
    Require(FileAddSearchPath(Root.c_str(), true, bRelative));
    std::size_t nFiles = 0, nFolders = 0;
    for (FileTable_t::Slot_s * pSlot = g_sFileObjects.First(); pSlot; pSlot = g_sFileObjects.Next(pSlot), ++nFiles)
    {
        std::string const sKey(*pSlot->pName);
        File_c * const pFile = pSlot->pObject;
        Require(Model.Files.contains(sKey));
        Require(pFile->bDuplicate == Model.Duplicates.contains(sKey));
        bool const bOpen = FileOpen(pFile);   // false for a cut name, which no file on disk has
        std::string const sPath(pFile->pData, pFile->pData + (bOpen ? pFile->iLength : 0));
        Require(bOpen ? sPath == fs::canonical(Model.Files[sKey]) : sKey.size() == FILE_KEY_LENGTH);
        FileClose(bOpen ? pFile : nullptr);
    }
    for (PathTable_t::Slot_s * pSlot = g_sPaths.First(); pSlot; pSlot = g_sPaths.Next(pSlot), ++nFolders)
    {
        Require(Model.Folders.contains(std::string(*pSlot->pName)));
    }
    Require(nFiles == Model.Files.size());
    Require(nFolders == Model.Folders.size());
    Require(g_nDroppedLines == Model.nDropped);
    FileReset();
    fs::remove_all(Root);
    return 0;
}
