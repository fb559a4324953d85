#include "platform/asyncwrite.h"
#include "platform/common/storedisk.h"
#include "platform/filereplace.h"
#include "platform/files.h"
#include "platform/filewrite.h"
#include "platform/linux/openfile.h"
#include "platform/rawfiles.h"
#include "tests/test_support.h"
#include "zqcore/cfilesave.h"
#include "zqcore/cserialize.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace
{
    // Fixture with a folder of its own. It leaves no spellings to other tests.
    class PlatformFiles : public testing::Test
    {
    protected:
        ~PlatformFiles() override { plat::SpellingsForget(); }

        // Returns the contents of the file that a path opens, or why none opened.
        static std::string Open(std::string const & sPath)
        {
            plat::FileFacts_t Facts;
            plat::File_t const hFile = plat::FileOpenRead(sPath.c_str(), plat::Share_e::ReadWrite, &Facts);
            if (hFile == nullptr)
            {
                return std::strerror(errno);
            }
            std::string sContents(static_cast<std::size_t>(Facts.nSize) + 10, '?');
            sContents.resize(plat::FileRead(hFile, sContents.data(), sContents.size()));
            plat::FileClose(hFile);
            return sContents;
        }

        // Returns the entries of a folder in the listing's order, separated by blanks. An entry has one of these forms:
        // - "name4" for a file of 4 bytes.
        // - "name/" for a folder.
        // - "name!" for what is neither.
        // - "name?" for what no path leads to, or what the system can't report.
        //
        // A link has "->" before it. Returns "unreadable" if the listing fails, or "entries of a failed listing" if it
        // has some all the same.
        static std::string List(std::string const & sPath)
        {
            plat::FolderListing_c Listing;
            if (!Listing.Read(sPath.c_str()))
            {
                return Listing.GetCount() == 0 ? "unreadable" : "entries of a failed listing";
            }
            std::string sAll;
            for (std::size_t iEntry = 0; iEntry < Listing.GetCount(); ++iEntry)
            {
                plat::FolderEntry_t const & Entry = Listing.GetEntry(iEntry);
                sAll += (sAll.empty() ? "" : " ") + std::string(Entry.bLink ? "->" : "") + Entry.szName;
                sAll += !Entry.bReachable || Entry.bFailed ? "?"
                        : Entry.Facts.bFolder              ? "/"
                        : Entry.Facts.bRegular             ? std::to_string(Entry.Facts.nSize)
                                                           : "!";
            }
            return sAll;
        }

        TempFolder_c const m_Folder;
    };

    // Runs a function in a child process without the superuser's rights. Returns whether it returned true. Requires
    // CanDropRights().
    bool RunAsNobody(std::function<bool()> const & fnRun)
    {
        return StatusAsNobody([&] { return fnRun() ? 0 : 1; }) == 0;
    }
}

TEST_F(PlatformFiles, OpensAPathInAnySpellingOrReportsWhyNot)
{
    m_Folder.Write("Media/Textures/Hero.TGA", "hero");
    m_Folder.Write("Media/lower/name.txt", "lower");
    m_Folder.Write("media2/B.txt", "upper");
    m_Folder.Write("media2/b.TXT", "mixed");
    m_Folder.Write("media2/b\xC3\x84.txt", "umlaut");
    m_Folder.Write("media2/C.txt", "capital");
    m_Folder.Write("media2/c.txt", "exact");
    Rows_t<char const *, char const *> const dRows = { { "media\\textures\\hero.tga", "hero" },
        { "MEDIA/TEXTURES\\HERO.tga", "hero" }, { "Media\\Textures\\Hero.TGA", "hero" },
        { "media\\\\.\\textures//hero.tga", "hero" }, { "media\\lower\\..\\textures\\hero.tga", "hero" },
        { "media\\LOWER\\NAME.TXT", "lower" }, { "media2\\b.txt", "upper" },   // the first in the order of listings
        { "MEDIA2\\b.TXT", "mixed" }, { "MEDIA2\\c.txt", "exact" },            // but for the exact name
        { "MEDIA2\\C.txt", "capital" }, { "media2\\B\xC3\x84.TXT", "umlaut" },
        { "media2\\b\xC3\xA4.txt", "No such file or directory" },   // only ASCII letters fold
        { "media\\textures\\villain.tga", "No such file or directory" },
        { "media3\\textures\\hero.tga", "No such file or directory" },
        { "media\\textures\\hero.tga\\", "Not a directory" }, { "media\\textures", "Is a directory" } };
    std::string const sRoot = m_Folder.GetPath() + "\\";
    for (int iRound = 0; iRound < 3; ++iRound)   // by reading folders, from what that found, and from listings
    {
        for (auto const & [szPath, szContents] : dRows)
        {
            EXPECT_EQ(Open(sRoot + szPath), szContents) << szPath << ", round " << iRound;
        }
        if (iRound == 1)
        {
            plat::SpellingsForget();
            EXPECT_EQ(List(sRoot + "media"), "lower/ Textures/");
            EXPECT_EQ(List(sRoot + "media\\textures"), "Hero.TGA4");
            EXPECT_EQ(List(sRoot + "media2"), "B.txt5 b.TXT5 b\xC3\x84.txt6 C.txt7 c.txt5");
        }
    }
    CurrentFolderScope_c const Current(m_Folder.GetPath());
    EXPECT_EQ(Open(".\\media\\textures\\hero.tga"), "hero");
    EXPECT_EQ(Open(""), "No such file or directory");
    EXPECT_EQ(Open(std::string(5000, 'a')), "File name too long");
    EXPECT_EQ(Open("media\\" + std::string(300, 'a')), "File name too long");
    EXPECT_EQ(Open(MakePipe(m_Folder.Join("pipe"))), "Invalid argument");
    EXPECT_EQ(Open("/dev/null"), "Invalid argument");
}

TEST_F(PlatformFiles, RemembersANameThatAListingMetAndNoticesItsRenaming)
{
    std::string const sFile = m_Folder.Write("Data/Map.dat", "map"), sData = m_Folder.Join("Data");
    std::string const sAsked = m_Folder.GetPath() + "\\data\\map.dat";
    EXPECT_EQ(List(m_Folder.GetPath() + "\\data"), "Map.dat3");
    fs::rename(sFile, m_Folder.Join("Data/MAP.DAT"));
    EXPECT_EQ(Open(sAsked), "map") << "the recorded name is stale";
    NEEDS_NOBODY;
    fs::permissions(sData, fs::perms(0311));
    fs::permissions(m_Folder.GetPath(), fs::perms(0311));
    EXPECT_TRUE(RunAsNobody([&]() { return Open(sAsked) == "map"; })) << "the folders can't be read, only remembered";
    plat::SpellingsForget();
    EXPECT_TRUE(RunAsNobody([&]() { return Open(sAsked) == "No such file or directory"; }));
    fs::permissions(sData, fs::perms(0444));
    EXPECT_TRUE(RunAsNobody([&]() { return List(sData) == "MAP.DAT?"; })) << "its facts can't be seen";
    fs::permissions(m_Folder.GetPath(), fs::perms(0700));
    fs::permissions(sData, fs::perms(0700));
    fs::remove(m_Folder.Join("Data/MAP.DAT"));
    m_Folder.Write("Data/map.dat", "exact");
    EXPECT_EQ(Open(sAsked), "exact");
}

TEST_F(PlatformFiles, ReportsTheFactsOfALargeFileAndSeeksInIt)
{
    constexpr std::int64_t START = 3LL << 30;
    std::string const sFile = m_Folder.Write("Big.bin", "start");
    fs::resize_file(sFile, START + 5);
    timespec const dTimes[2] = { { 0, 0 }, { 1000000000, 123456789 } };
    ASSERT_EQ(utimensat(AT_FDCWD, sFile.c_str(), dTimes, 0), 0);

    plat::FileFacts_t Facts, OfHandle;
    ASSERT_TRUE(plat::PathGetFacts((m_Folder.GetPath() + "\\big.bin").c_str(), Facts));
    plat::File_t const hFile = plat::FileOpenRead(sFile.c_str(), plat::Share_e::ReadWrite);
    ASSERT_TRUE(hFile);
    ASSERT_TRUE(plat::FileGetFacts(hFile, OfHandle));
    EXPECT_EQ(Facts.nSize, static_cast<std::uint64_t>(START) + 5);
    EXPECT_EQ(Facts.tLastWrite, (1000000000 + plat::FILE_TIME_SECONDS_TO_1970) * plat::FILE_TIME_TICKS + 1234567);
    EXPECT_THAT(Facts.tCreation,
        testing::AnyOf(0, testing::Gt((1600000000 + plat::FILE_TIME_SECONDS_TO_1970) * plat::FILE_TIME_TICKS)));
    EXPECT_EACH(Facts.bRegular, !Facts.bFolder, OfHandle.nSize == Facts.nSize, OfHandle.tLastWrite == Facts.tLastWrite);
    plat::FileHintSequential(hFile);
    // Origins: 0 the start, 1 the current position, 2 the end. Any other counts as the start. -1 is a failure.
    for (auto const & [iOffset, iOrigin, iMoved] : Rows_t<std::int64_t, int, std::int64_t>{
             { START, 0, START }, { 2, 1, START + 2 }, { -1, 2, START + 4 }, { -1, 0, -1 }, { 1, 7, 1 } })
    {
        EXPECT_EQ(plat::FileSeek(hFile, iOffset, iOrigin), iMoved) << iOffset << " from " << iOrigin;
    }
    char szRead[3] = "";
    EXPECT_EQ(plat::FileRead(hFile, szRead, 2), 2u);
    EXPECT_STREQ(szRead, "ta");
    plat::FileClose(hFile);
    EXPECT_EACH(plat::PathGetFacts(m_Folder.GetPath().c_str(), Facts), Facts.bFolder, !Facts.bRegular);
    EXPECT_FALSE(plat::PathGetFacts(m_Folder.Join("none").c_str(), Facts));
}

TEST_F(PlatformFiles, ListsAFolderInOneOrder)
{
    for (char const * szName : { "b.txt", "A.txt", "a.txt", "B.TXT", "_x", "Zz", "a b", "z\xC3\xA4 " })
    {
        m_Folder.Write(szName, szName);
    }
    m_Folder.MakeFolder("Sub");
    std::ofstream(m_Folder.GetPath() + "/un\\reachable").put('x');
    MakePipe(m_Folder.Join("pipe"));
    for (auto const & [szTarget, szLink] : Rows_t<char const *, char const *>{
             { "b.txt", "link" }, { "Sub", "linked sub" }, { "loop", "loop" }, { "nowhere", "dangling" } })
    {
        fs::create_symlink(szTarget, m_Folder.Join(szLink));
    }
    EXPECT_EQ(List(m_Folder.GetPath()),
        "_x2 a b3 A.txt5 a.txt5 B.TXT5 b.txt5 ->link5 ->linked sub/ pipe! Sub/ un\\reachable? Zz2 z\xC3\xA4 4");
    EXPECT_EQ(List(m_Folder.GetPath() + "\\sub"), "");
    EXPECT_EQ(List(m_Folder.Join("b.txt")), "unreadable");
    EXPECT_EQ(List(m_Folder.Join("none")), "unreadable");
    plat::FolderListing_c Listing;
    ASSERT_TRUE(Listing.Read(m_Folder.GetPath().c_str()));
    plat::FileFacts_t Facts;
    plat::FileFacts_t const & Listed = Listing.GetEntry(0).Facts;
    ASSERT_TRUE(plat::PathGetFacts(m_Folder.Join("_x").c_str(), Facts));
    EXPECT_EQ(std::pair(Listed.tLastWrite, Listed.tCreation), std::pair(Facts.tLastWrite, Facts.tCreation));
}

TEST_F(PlatformFiles, IdentifiesAFolderByEachPathThatLeadsThere)
{
    std::string const sSub = m_Folder.MakeFolder("Sub"), sFile = m_Folder.Write("file", "x");
    fs::create_symlink(sSub, m_Folder.Join("link"));
    plat::FileIdentity_t First, Second;
    EXPECT_EACH(plat::FolderGetIdentity(m_Folder.Join("sub").c_str(), First),
        plat::FolderGetIdentity(m_Folder.Join("link").c_str(), Second), First == Second,
        plat::FolderGetIdentity(m_Folder.GetPath().c_str(), Second), !(First == Second));
    errno = 0;
    EXPECT_FALSE(plat::FolderGetIdentity(sFile.c_str(), First));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(PlatformFiles, ListsALargeFolderThatAThreadChanges)
{
    constexpr int STEADY = 3000;
    for (int iFile = 0; iFile < STEADY; ++iFile)
    {
        m_Folder.Write("steady_file_" + std::to_string(iFile), "");
    }
    std::atomic<bool> bStop{ false };
    std::thread Changer(
        [&]()
        {
            for (int iFile = 0; !bStop; iFile = (iFile + 1) % 200)
            {
                m_Folder.Write("passing_" + std::to_string(iFile), "");
                fs::remove(m_Folder.Join("passing_" + std::to_string((iFile + 100) % 200)));
            }
        });
    for (int iRound = 0; iRound < 10; ++iRound)
    {
        std::istringstream Names(List(m_Folder.GetPath()));
        std::vector<std::string> const dNames(std::istream_iterator<std::string>(Names), {});
        EXPECT_EQ(
            std::ranges::count_if(dNames, [](auto const & sName) { return sName.starts_with("steady"); }), STEADY);
        EXPECT_THAT(dNames, testing::Each(testing::EndsWith("0"))) << "one that is gone is listed";
        EXPECT_EQ(std::ranges::adjacent_find(dNames, std::greater_equal<>()), dNames.end()) << "out of order";
    }
    bStop = true;
    Changer.join();
}

TEST_F(PlatformFiles, OpensStreamsByAnySpellingAndCreatesByItsOwn)
{
    std::string const sRoot = m_Folder.GetPath() + "\\";
    EXPECT_TRUE(plat::FolderCreate((sRoot + "Logs\\").c_str()));
    EXPECT_FALSE(plat::FolderCreate((sRoot + "logs").c_str())) << "it exists in another spelling";
    EXPECT_TRUE(plat::FolderCreate((sRoot + "logs\\Z").c_str()));
    EXPECT_FALSE(plat::FolderCreate((sRoot + "none\\slot").c_str()));
    m_Folder.Write("Logs/Old.log", "old\n");
    // The contents after writing "new", or null if the stream must not open.
    for (auto const & [szPath, szMode, szFile, szContents] :
        Rows_t<char const *, char const *, char const *, char const *>{
            { "logs\\old.log", "a", "Logs/Old.log", "old\nnew" }, { "logs\\old.log", "wx", "Logs/Old.log", nullptr },
            { "logs\\Old.log", "r+", "Logs/Old.log", "new\nnew" }, { "logs\\OLD.LOG", "wt", "Logs/Old.log", "new" },
            { "logs\\Fresh.log", "w", "Logs/Fresh.log", "new" }, { "logs\\X.log", "wbx", "Logs/X.log", "new" },
            { "logs\\none.log", "r+", "Logs/none.log", nullptr }, { "nowhere\\a.log", "w", "nowhere", nullptr },
            { "logs\\old.log", "q", "Logs/Old.log", nullptr } })
    {
        std::string const sBefore = m_Folder.Read(szFile);
        std::FILE * const pStream = plat::StreamOpen((sRoot + szPath).c_str(), szMode);
        EXPECT_EQ(pStream != nullptr, szContents != nullptr) << szPath << " " << szMode;
        if (pStream != nullptr)
        {
            EXPECT_EQ(fcntl(fileno(pStream), F_GETFD), FD_CLOEXEC);
            std::fputs("new", pStream);
            std::fclose(pStream);
        }
        EXPECT_EQ(m_Folder.Read(szFile), szContents != nullptr ? szContents : sBefore) << szPath;
    }
    EXPECT_EQ(List(m_Folder.Join("Logs")), "Fresh.log3 Old.log3 X.log3 Z/");
}

TEST_F(PlatformFiles, CopiesContentsAndWriteTime)
{
    std::string sContents(300000, 'x');
    sContents.replace(1000, 3, "abc");
    std::string const sFrom = m_Folder.Write("From.bin", sContents), sFolder = m_Folder.GetPath();
    std::string const sTo = m_Folder.Write("To.bin", std::string(500000, 'o')), sSame = m_Folder.Join("same");
    std::string const sPipe = MakePipe(m_Folder.Join("pipe"));
    timespec const dTimes[2] = { { 0, 0 }, { 1234567890, 0 } };
    ASSERT_EQ(utimensat(AT_FDCWD, sFrom.c_str(), dTimes, 0), 0);
    fs::create_hard_link(sFrom, sSame);
    for (auto const & [sSource, sTarget, bCopied] :
        Rows_t<std::string, std::string, bool>{ { sFolder + "\\from.bin", sFolder + "\\to.BIN", true },
            { sFrom, sSame, false }, { m_Folder.Join("none"), sTo, false }, { sFolder, sTo, false },
            { sFrom, sFolder, false }, { sPipe, sTo, false }, { sFrom, sPipe, false } })
    {
        EXPECT_EQ(plat::FileCopy(sSource.c_str(), sTarget.c_str()), bCopied) << sSource << " to " << sTarget;
        EXPECT_EACH(m_Folder.Read("From.bin") == sContents, m_Folder.Read("To.bin") == sContents) << sSource;
    }
    EXPECT_EQ(fs::last_write_time(sTo), fs::last_write_time(sFrom));
}

TEST_F(PlatformFiles, DeletesTreesAndNotWhatTheyLinkTo)
{
    std::string const sRoot = m_Folder.GetPath() + "\\";
    m_Folder.Write("Keep/file", "kept");
    m_Folder.Write("Gone/a/b/c/file", "x");
    fs::create_directory(m_Folder.GetPath() + "/Gone/a/with\\backslash");
    fs::create_symlink("../Keep", m_Folder.Join("Gone/a/link"));
    fs::create_symlink("Keep", m_Folder.Join("toplink"));
    for (auto const & [szTree, bDeleted] : Rows_t<char const *, bool>{ { "gone\\", true }, { "toplink\\", true },
             { "none", false }, { ".", false }, { "keep\\..", false }, { "keep\\.", false } })
    {
        EXPECT_EQ(plat::TreeDelete((sRoot + szTree).c_str()), bDeleted) << szTree;
    }
    EXPECT_EQ(List(sRoot), "Keep/");
    NEEDS_NOBODY;
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    fs::permissions(m_Folder.Join("Keep"), fs::perms(0555));
    auto const ExpectRefusal = [this](std::string const & sTree)
    {
        std::string const sPath = m_Folder.Join(sTree);
        bool const bDeleted = plat::TreeDelete(sPath.c_str());
        EXPECT_EQ(std::pair(bDeleted, errno), std::pair(false, EACCES)) << sTree;
        return 0;
    };
    EXPECT_EQ(StatusAsNobody([&] { return ExpectRefusal("Keep"); }), 0);
    m_Folder.Write("Closed/file", "x");
    fs::permissions(m_Folder.Join("Closed"), fs::perms::none);
    EXPECT_EQ(StatusAsNobody([&] { return ExpectRefusal("Closed"); }), 0);
    for (char cClosed = '0'; cClosed < '8'; ++cClosed)   // one of these is the first that the system lists
    {
        for (char cFolder = '0'; cFolder < '8'; ++cFolder)
        {
            m_Folder.MakeFolder(std::string("Some/") + cFolder);
        }
        m_Folder.Write(std::string("Some/") + cClosed + "/file", "x");
        fs::permissions(m_Folder.Join("Some"), fs::perms::all);
        fs::permissions(m_Folder.Join(std::string("Some/") + cClosed), fs::perms(0555));
        EXPECT_EQ(StatusAsNobody([&] { return ExpectRefusal("Some"); }), 0) << cClosed;
        fs::permissions(m_Folder.Join(std::string("Some/") + cClosed), fs::perms::all);
    }
    fs::permissions(m_Folder.Join("Keep"), fs::perms(0755));
    EXPECT_EQ(m_Folder.Read("Keep/file"), "kept");
}

TEST_F(PlatformFiles, LockTestWithoutLeasesNeedsTwoEqualTries)
{
    NEEDS_NOBODY;
    bool const bSuperuser = IsSuperuser();
    std::string const sOther = bSuperuser ? m_Folder.Write("file", "1") : "/etc/passwd";
    fs::permissions(m_Folder.GetPath(), fs::perms(0755));
    if (bSuperuser)
    {
        fs::permissions(sOther, fs::perms(0666));
    }
    auto const TryTwice = [&]   // as no owner of the file, and without the right to leases
    {
        plat::FileLockTest_c LockTest(sOther.c_str());
        EXPECT_EACH(!LockTest.Try(), LockTest.Try()) << "one try proves nothing";
        if (bSuperuser)
        {
            m_Folder.Write("file", "22");
            EXPECT_EACH(!LockTest.Try(), LockTest.Try()) << "written meanwhile";
        }
        return 0;
    };
    EXPECT_EQ(StatusAsNobody(TryTwice), 0);
}

TEST_F(PlatformFiles, ALogThatCantBeBegunAnewGoesOnInItsFile)
{
    int const dLow[] = { dup(0), dup(0), dup(0) };   // numbers below the stream's, for the new file
    std::string const sLog = m_Folder.Join("log");
    std::FILE * const pStream = plat::StreamOpenLog(sLog.c_str());
    plat::StreamWriteThrough(pStream, "line\n", 5);
    std::for_each(std::begin(dLow), std::end(dLow), close);
    {
        FewDescriptors_c const Few(static_cast<rlim_t>(fileno(pStream)));   // a new file opens, but not as the stream
        EXPECT_EQ(plat::StreamLimitLog(pStream, sLog.c_str(), 3, 1), 5u);
    }
    EXPECT_EQ(plat::StreamLimitLog(pStream, sLog.c_str(), 3, 1), 0u);
    close(fileno(pStream));
    EXPECT_EQ(plat::StreamLimitLog(pStream, sLog.c_str(), 3, 1), 0u) << "the system can't say";
    std::fclose(pStream);
}

TEST_F(PlatformFiles, ANewLogIsSharedAfterAnotherProcessHasOpenedIt)
{
    std::string const sLog = m_Folder.Join("log");
    std::FILE * const pStream = plat::StreamOpenLog(sLog.c_str());
    fs::rename(sLog, sLog + ".1");
    int const iOther = open(sLog.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(flock(iOther, LOCK_EX), 0);   // as the other process does while it empties the file
    std::thread Opener(
        [iOther]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            flock(iOther, LOCK_UN);
        });
    EXPECT_EQ(plat::StreamLimitLog(pStream, sLog.c_str(), 3, 1), 0u);
    Opener.join();
    EXPECT_NE(flock(iOther, LOCK_EX | LOCK_NB), 0) << "the log may be emptied";
    close(iOther);
    std::fclose(pStream);
}

// What anyone prints to a standard stream that is closed gets into no file.
TEST_F(PlatformFiles, AreNotThoseOfClosedStandardStreams)
{
    auto const Print = [](bool bOpen)
    {
        for (int i = 0; i <= STDERR_FILENO; ++i)
        {
            dprintf(i, "foreign");
        }
        return bOpen;
    };
    auto const Fill = [&Print](BufferedWriteable_c & Archive)
    {
        bool const bOpen = Print(Archive.Open());
        for (int i = 0; i < 20000; ++i)   // more than a buffer
        {
            Archive.Serialize(i);
        }
        EXPECT_EACH(Print(bOpen), Archive.Close(), !Archive.IsFailed());
    };
    std::pair<std::string, std::function<bool(char const *)>> const WRITERS[] = {
        { "save",
            [&](char const * szPath)
            {
                FileSave_c Save(szPath);
                FileSaveWriter_c Writer(Save);
                BufferedWriteable_c Archive(Writer, 1);
                Fill(Archive);
                return Writer.Commit();
            } },
        { "archive",
            [&](char const * szPath)
            {
                BufferedWriteable_c Archive(szPath, 1);
                Fill(Archive);
                return true;
            } },
        { "log", [&](char const * szPath) { return Print(plat::StreamOpenLog(szPath)); } },
        { "report",
            [&, bTaken = false](char const * szPath) mutable { return Print(plat::RawMakePrivate(szPath, bTaken)); } },
        { "present", [&](char const * szPath) { return Print(plat::FileCreate(szPath)); } },
        { "lock",
            [&](char const * szPath)
            {
                plat::StoreHandle_t const hFolder = plat::StoreOpenPath(m_Folder.GetPath().c_str());
                return Print(plat::StoreOpenLock(hFolder, szPath + m_Folder.GetPath().size() + 1) != plat::STORE_NONE);
            } },
        { "record", [&](char const * szPath) { return Print(plat::CreateOrReplace(AT_FDCWD, szPath, 0600) >= 0); } },
    };
    m_Folder.Write("present", "");
    for (auto const & [sName, fnWrite] : WRITERS)
    {
        std::string const sPath = m_Folder.Join(sName);
        auto const InChild = [&sPath, fnWrite = fnWrite]
        {
            close_range(0, STDERR_FILENO, 0);
            return fnWrite(sPath.c_str()) ? 0 : 1;
        };
        EXPECT_EQ(StatusOfChild(StartChild(InChild)), 0) << sName;
        EXPECT_EQ(m_Folder.Read(sName).find("foreign"), std::string::npos) << sName;
    }
    EXPECT_EQ(FileSave_c(m_Folder.Join("save").c_str()).Load(1), FileSave_c::WHOLE);
}

// Another user may plant an entry under a file's name. No writer writes through it or waits for it.
TEST_F(PlatformFiles, WritesThroughNothingThatWasPlanted)
{
    std::string const sVictim = m_Folder.Write("victim", "kept"), sFrom = m_Folder.Write("from", "new"),
                      sAt = m_Folder.Join("at");
    auto const Stream = [&](char const * szMode)
    {
        std::FILE * const pStream = *szMode ? plat::StreamOpen(sAt.c_str(), szMode) : plat::StreamOpenLog(sAt.c_str());
        return pStream && std::fclose(pStream) == 0;
    };
    auto const Made = [](plat::File_t hFile) { return hFile && plat::FileFinish(hFile); };
    std::pair<char const *, std::function<bool()>> const WRITERS[] = { { "w", [&] { return Stream("w"); } },
        { "a", [&] { return Stream("a"); } }, { "r+", [&] { return Stream("r+"); } },
        { "wx", [&] { return Stream("wx"); } }, { "log", [&] { return Stream(""); } },
        { "create", [&] { return Made(plat::FileCreate(sAt.c_str())); } },
        { "make", [&] { return Made(plat::FileMake(sAt.c_str(), plat::Rights_e::Private)); } },
        { "copy", [&] { return plat::FileCopy(sFrom.c_str(), sAt.c_str()); } },
        { "asynchronous", [&] { return plat::AsyncFile_c().Create(sAt.c_str()); } } };
    auto const PlantAnothers = [&]
    {
        if (chown(m_Folder.Write("at", "kept").c_str(), geteuid() + 1, getegid()) != 0)
        {
            fs::remove(sAt);
        }
    };
    std::pair<char const *, std::function<void()>> const PLANTS[] = { { "link",
                                                                          [&] { fs::create_symlink(sVictim, sAt); } },
        { "link to nothing", [&] { fs::create_symlink(m_Folder.Join("no"), sAt); } },
        { "pipe", [&] { MakePipe(sAt); } }, { "folder", [&] { fs::create_directory(sAt); } },
        { "second name", [&] { fs::create_hard_link(sVictim, sAt); } }, { "another user's", PlantAnothers } };
    fs::permissions(m_Folder.GetPath(), fs::perms(01777));
    for (auto const & [szPlant, fnPlant] : PLANTS)
    {
        for (auto const & [szWriter, fnWrite] : WRITERS)
        {
            fnPlant();
            if (fs::exists(fs::symlink_status(sAt)))
            {
                std::string const sBefore = fs::is_regular_file(sAt) ? m_Folder.Read("at") : "";
                EXPECT_FALSE(fnWrite()) << szWriter << " onto " << szPlant;
                EXPECT_EQ(fs::is_regular_file(sAt) ? m_Folder.Read("at") : "", sBefore)
                    << szWriter << " onto " << szPlant;
            }
            EXPECT_EQ(m_Folder.Read("victim"), "kept") << szWriter << " onto " << szPlant;
            fs::remove(sAt);
        }
    }
    EXPECT_FALSE(fs::exists(m_Folder.Join("no")));
    SKIP_IF(!IsSuperuser(), "only the superuser makes another user's file; all else was tried");
}

TEST_F(PlatformFiles, AReplacementHasTheRightsThatItsWriterAskedFor)
{
    std::string const sAt = m_Folder.Join("at"), sOld = m_Folder.Join("old");
    for (auto const & [eRights, iRights] :
        Rows_t<plat::Rights_e, unsigned>{ { plat::Rights_e::Private, 0600 }, { plat::Rights_e::Shared, 0644 } })
    {
        m_Folder.Write("old", "o");
        fs::permissions(sOld, fs::perms(0644));
        plat::File_t const hFile = plat::FileMake(sAt.c_str(), eRights);
        EXPECT_EQ(static_cast<unsigned>(fs::status(sAt).permissions()), iRights);
        EXPECT_TRUE(plat::FileReplace(hFile, sAt.c_str(), sOld.c_str(), eRights));
        EXPECT_TRUE(plat::FileFinish(hFile));
        EXPECT_EQ(static_cast<unsigned>(fs::status(sOld).permissions()), iRights);
    }
    std::string const sFrom = m_Folder.Write("from", "new");
    fs::create_symlink(sOld, sAt);
    fs::permissions(sOld, fs::perms(0666));
    plat::File_t const hFrom = plat::FileCreate(sFrom.c_str());
    EXPECT_EACH(plat::FileReplace(hFrom, sFrom.c_str(), sAt.c_str()), plat::FileFinish(hFrom));
    EXPECT_EQ(fs::symlink_status(sAt).type(), fs::file_type::regular);
    EXPECT_EQ(static_cast<unsigned>(fs::status(sAt).permissions()), 0644u) << "no rights by way of a link";
}
