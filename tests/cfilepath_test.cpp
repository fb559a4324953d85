#include "tests/media_fixture.h"

#include "zqcore/cfilecache.h"

#include "platform/filereplace.h"
#include "platform/files.h"

#include <fstream>

using FilePathTest = MediaTest;

TEST_F(FilePathTest, EntersEveryFileUnderItsFoldedNameDepthFirstInOneOrder)
{
    Make({ { "Zoo/LION.txt", "roar" }, { "b/b2/deep.txt", "" }, { "b/b1/", "" }, { ".hidden", "" }, { "A/one.txt", "" },
        { "b.d/e.txt", "" } });
    g_AddSubfolderCallbacker.Add(NoteReport, false);
    ASSERT_TRUE(Scan());
    g_AddSubfolderCallbacker.Reset();
    EXPECT_EQ(Keys(), ".hidden deep.txt e.txt lion.txt one.txt");
    std::vector<std::string> dExpected;
    for (char const * szFolder : { "", "a\\", "b\\", "b\\b1\\", "b\\b2\\", "b.d\\", "zoo\\" })
    {
        dExpected.push_back(Folded("") + szFolder);
        EXPECT_NE(g_sPaths.FindByName(dExpected.back().c_str()), nullptr) << szFolder;
    }
    EXPECT_EQ(s_dReported, dExpected);
    File_c const * const pLion = FileStream("lion.txt");
    EXPECT_EACH(pLion->iLength == 4, pLion->ftLastWriteTime > 0, pLion->iReads == 0);
    EXPECT_EQ(Contents(FileOpen("Lion.TXT")), "roar") << "found on disk in its own spelling";
    EXPECT_EQ(m_Log.GetText(), "");

    FileReset();
    ASSERT_TRUE(FileAddSearchPath(m_Folder.GetPath().c_str(), false, false));
    EXPECT_EQ(Keys(), ".hidden") << "not recursive";
}

TEST_F(FilePathTest, ASecondScanMarksEachFileAndAddsNoFolder)
{
    Make({ { "a/same.txt", "" }, { " x/c.txt", "" } });
    for (char const * szEnd : { "", "\\" })
    {
        ASSERT_TRUE(FileAddSearchPath((m_Folder.Join("a") + szEnd).c_str(), true, false));
    }
    EXPECT_TRUE(FileStream("same.txt")->bDuplicate) << "a second scan finds each file again";
    EXPECT_EQ(g_sPaths.Next(g_sPaths.First()), nullptr) << "both spellings are one entry";
    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join(" x").c_str(), true, false));
    EXPECT_NE(g_sPaths.FindByName(Folded(" x").c_str()), nullptr) << "no separator after a leading blank";
}

TEST_F(FilePathTest, EntersOneOfNamesThatDifferInCaseOnly)
{
    ExpectComplaints(2);
    Make({ { "twins/A.TXT", "capitals" }, { "twins/a.txt", "small" }, { "twins/A", "" }, { "Twins/b.txt", "" },
        { "twins/OGRE.csv", "one" }, { "twins/Ogre.CSV", "second" }, { "twins/ogre.Csv", "the third" },
        { "twins/Elf/in.txt", "" }, { "twins/elF", "hidden" }, { "twins/ORC/in2.txt", "" }, { "twins/orc", "file" } });
    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join("twins").c_str(), true, false));
    EXPECT_EQ(Keys(), "a a.txt in.txt ogre.csv orc");
    for (auto const & [szName, szContents] :
        Rows_t<char const *, char const *>{ { "a.txt", "small" }, { "ogre.csv", "one" }, { "orc", "file" } })
    {
        EXPECT_EQ(FileStream(szName)->iLength, static_cast<int>(std::strlen(szContents))) << szName;
        EXPECT_EQ(Contents(FileOpen(szName)), szContents) << "of twins the one that was entered";
    }
    EXPECT_EQ(m_Log.CountHolding("\\elF\" differs from another entry in case only, it is not entered"), 1);
    EXPECT_EQ(m_Log.CountHolding("\\ORC\" differs from another entry in case only, it is not entered"), 1);
    EXPECT_FALSE(FileAddSearchPath(m_Folder.Join("Twins").c_str(), true, false));
    EXPECT_EQ(m_Log.CountHolding("Twins\", it is hidden by a folder that differs in case only"), 1);
}

TEST_F(FilePathTest, RefusesWhatIsNoFolder)
{
    m_Folder.Write("a/same.txt", "");
    EXPECT_FALSE(FileAddSearchPath(m_Folder.Join("a/same.txt").c_str(), true, false));
    EXPECT_FALSE(FileAddSearchPath("", true, false));
    EXPECT_EQ(m_Log.GetText(), "Path not found " + m_Folder.Join("a/same.txt") + "\nPath not found \n");
}

TEST_F(FilePathTest, SkipsWhatIsExcludedInAnyCase)
{
    Make({ { "Cvs/a.txt", "" }, { "sub/CVS/b.txt", "" }, { "cvs2/c.txt", "" }, { "sub/MESSAGE.LOG", "" } });
    FileAlwaysExcludeFolder("cvs");
    FileAlwaysExcludeFolder("CVS");
    FileAlwaysExcludeFile("Message.log");
    ASSERT_TRUE(Scan());
    EXPECT_EQ(Keys(), "c.txt");
    g_sExcludedFolders.Reset();
    g_sExcludedFiles.Reset();
    ASSERT_TRUE(Scan());
    EXPECT_EQ(Keys(), "a.txt b.txt c.txt message.log");
}

TEST_F(FilePathTest, EntersTheCurrentConfigurationsFolderOnly)
{
    std::string const sConfigs = "media/_configdependeddata/";
    Make({ { sConfigs + "low/in/l.txt", "" }, { sConfigs + "high/h.txt", "" }, { sConfigs + "flat.txt", "" },
        { sConfigs + "CVS/c.txt", "" } });
    FileAlwaysExcludeFolder("CVS");   // which excludes only what the configuration enters
    auto const Skipped = [&](char const * szName)
    { return "filesystem: skipping \"" + Folded(sConfigs) + szName + "\\\"\n"; };
    for (auto const & [szConfig, szKeys, sLog] : Rows_t<char const *, char const *, std::string>{
             { "", "flat.txt", Skipped("cvs") + Skipped("high") + Skipped("low") },
             { "low", "flat.txt l.txt", Skipped("cvs") + Skipped("high") },
             { "high", "flat.txt h.txt", Skipped("cvs") + Skipped("low") },
             { "LOW", "flat.txt", Skipped("cvs") + Skipped("high") + Skipped("low") },
             { "CVS", "flat.txt", Skipped("high") + Skipped("low") } })
    {
        FileReset();
        m_Log.Clear();
        SetPQXCurrentConfig(szConfig);
        ASSERT_TRUE(Scan());
        EXPECT_EQ(Keys(), szKeys) << szConfig;
        EXPECT_EQ(m_Log.GetText(), sLog) << szConfig;
    }
    g_sExcludedFolders.Reset();
}

// A link whose target is missing is skipped, so an entry whose name differs from it in case only is found.
TEST_F(FilePathTest, AFileBesideALinkToNothingOpens)
{
    Make({ { "One.txt", "one" }, { "Two.txt", "two" }, { "Three.txt", "three" } });
    fs::create_symlink("one.txt", m_Folder.Join("one.txt"));
    fs::create_symlink("nothing", m_Folder.Join("two.txt"));
    fs::create_symlink("One.txt/x", m_Folder.Join("three.txt"));
    ASSERT_TRUE(Scan());
    for (bool const bRecorded : { true, false })   // by the spellings that the scan found, and by reading the folder
    {
        for (std::string const sName : { "one", "two", "three" })
        {
            if (!bRecorded)
            {
                plat::SpellingsForget();
            }
            File_c * const pFile = FileOpen((sName + ".txt").c_str());
            EXPECT_EQ(Contents(pFile), sName) << bRecorded;
            FileClose(pFile);
        }
    }
}

TEST_F(FilePathTest, ALinkToWhatThisUserMayNotSeeIsThereInAnySpellingOfItsFolder)
{
    NEEDS_NOBODY;
    Make({ { "Sub/Closed/", "" } });
    fs::create_symlink("Closed/x", m_Folder.Join("Sub/Link"));
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    fs::permissions(m_Folder.Join("Sub"), fs::perms::all);
    fs::permissions(m_Folder.Join("Sub/Closed"), fs::perms::none);
    EXPECT_EQ(StatusAsNobody([this] { return plat::PathIsTaken(m_Folder.Join("sub/Link").c_str()) ? 0 : 1; }), 0);
    fs::permissions(m_Folder.Join("Sub/Closed"), fs::perms::all);
}

TEST_F(FilePathTest, AFileWithoutFactsIsMissedIfOnlyFoldersOfItsNameAreExcluded)
{
    NEEDS_NOBODY;
    Make({ { "dark/sources", "" } });
    fs::permissions(m_Folder.GetPath(), fs::perms::all);
    fs::permissions(m_Folder.Join("dark"), fs::perms(0444));   // a folder whose entries have no facts
    auto const ScanAsUser = [this]
    {
        FileAlwaysExcludeFolder("sources");
        Scan();
        bool const bMissed = !FileScanIsWhole(m_Folder.GetPath().c_str());
        FileAlwaysExcludeFile("sources");
        Scan();
        EXPECT_EACH(bMissed, FileScanIsWhole(m_Folder.GetPath().c_str()));
        return 0;
    };
    EXPECT_EQ(StatusAsNobody(ScanAsUser), 0);
    fs::permissions(m_Folder.Join("dark"), fs::perms::all);
}

TEST_F(FilePathTest, SkipsWithALineWhatItCantEnter)
{
    std::string const sLong(200, 'p');
    Make({ { "a/a.txt", "" }, { "b/b.txt", "" }, { "b/B2/x.txt", "" }, { "b/b2/y.txt", "" },
        { "bad\n\x1B\xFF/in.txt", "" }, { "bad\xC3(.txt", "" }, { "gr\xC3\xBC\xC3\x9F.txt", "" }, { "gone/z.txt", "" },
        { "huge.bin", "" }, { sLong + "/" + sLong + "/in.txt", "" }, { std::string(130, 'n') + ".txt", "" },
        { "q:drive.txt", "" } });
    fs::resize_file(m_Folder.Join("huge.bin"), (std::uintmax_t{ 1 } << 31) + 1);
    fs::create_directory_symlink(m_Folder.GetPath(), m_Folder.Join("b/loop"));
    fs::create_directory_symlink(m_Folder.Join("b"), m_Folder.Join("a/zlink"));
    fs::create_symlink(m_Folder.Join("nothing"), m_Folder.Join("dangling"));
    fs::create_symlink(m_Folder.Join("b/b.txt"), m_Folder.Join("linked.txt"));
    std::ofstream(m_Folder.GetPath() + "/back\\slash.txt").put('x');
    MakePipe(m_Folder.Join("pipe"));
    static std::string s_sGone;
    s_sGone = m_Folder.Join("gone");
    auto const RemoveGone = [](char const * szFolder)
    {
        if (std::string_view(szFolder).ends_with("\\gone\\"))
        {
            fs::remove_all(s_sGone);
        }
    };
    g_AddSubfolderCallbacker.Add(RemoveGone, false);
    static std::multiset<FileSkip_e> s_dSkips;
    s_dSkips.clear();
    CallbackScope_T const Skips(g_FileSkipCallbacker, [](FileSkip_t Skip) { s_dSkips.insert(Skip.eWhy); });
    ASSERT_TRUE(Scan());
    g_AddSubfolderCallbacker.Reset();

    using enum FileSkip_e;
    EXPECT_EQ(s_dSkips, (std::multiset{ CutName, TooLarge, LongPath, Case, Drive, Separator, NotUtf8, NotUtf8,
                            NoRegularFile, Unreadable, LinkToEntered, EnteredByLink }));
    EXPECT_EQ(Keys(), "a.txt b.txt gr\xC3\xBC\xC3\x9F.txt huge.bin linked.txt " + std::string(127, 'n') + " y.txt");
    for (std::string const sPart :
        { "a\\zlink\\loop\", it is a link to a folder of this scan", "\\b\", the scan was in it by a link already",
            "a\\zlink\\B2\" differs from another folder in case only, it is not entered",
            "\\q:drive.txt\", its name begins like a drive", "\\bad\\n\\x1B\\xFF\", its name is not UTF-8",
            "\\bad\\xC3(.txt\", its name is not UTF-8", "\\pipe\", it is no regular file",
            "\\back\\slash.txt\", its name holds a '\\'", "pp\", its path is too long", "can't read folder \"",
            "huge.bin\" has 2 GiB or more and can't be opened",
            "filesystem: name of 134 characters is cut to 127: \"nnn" })
    {
        EXPECT_EQ(m_Log.CountHolding(sPart), 1) << sPart << "\n" << m_Log.GetText();
    }
    EXPECT_EQ(m_Log.CountHolding("File duplication"), 0);
    EXPECT_EQ(FileStream("huge.bin")->iLength, static_cast<int>(0x80000001u));
    EXPECT_EQ(FileOpen((std::string(130, 'n') + ".txt").c_str()), nullptr);
    EXPECT_FALSE(FileAddSearchPath(m_Folder.Join(sLong + "/" + sLong).c_str(), true, false));
}

TEST_F(FilePathTest, RelativeNamesHoldTheFolderBelowTheMediaRoot)
{
    std::string const sDeep(100, 'd'), sFits = std::string(22, 'n') + ".txt";
    Make({ { "root/sub/A.txt", "x" }, { "root/top.txt", "" }, { "root/" + sDeep + "/" + sFits, "" },
        { "root/" + sDeep + "/n" + sFits, "" }, { "root/" + std::string(128, 't'), "" }, { "rootless/b.txt", "" } });
    SetPQXMediaPath((m_Folder.Join("Root") + "/").c_str());
    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join("root").c_str(), true, true));
    EXPECT_EQ(Keys(), sDeep + "\\" + sFits + " sub\\a.txt top.txt");
    for (std::string const & sLeftOut : { sDeep + "/n" + sFits, std::string(128, 't') })
    {
        EXPECT_EQ(m_Log.Count("filesystem: skipping \"" + Folded("root/" + sLeftOut)
                              + "\", its relative name takes more than 127 characters"),
            1);
    }
    EXPECT_EQ(Contents(FileOpen("SUB/a.txt")), "x");

    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join("rootless").c_str(), true, true));
    EXPECT_TRUE(FileExists("b.txt"));
    EXPECT_EQ(m_Log.CountHolding("is not below the media root, its files go by their bare names"), 1);
}

TEST_F(FilePathTest, ListsAndForgetsFilesBelowAPrefixButNotFromUnderTheirHolders)
{
    std::ptrdiff_t const nBlocks = FileBlocks();
    Make({ { "a/x.txt", "held" }, { "a/in/y.txt", "" }, { "ab/z.txt", "" } });
    ASSERT_TRUE(Scan());
    for (auto const & [sPath, iMax, nFiles] : Rows_t<std::string, int, int>{ { m_Folder.Join("A/"), 1, 1 },
             { m_Folder.Join("a/"), 4, 2 }, { m_Folder.Join("a/in"), 4, 1 }, { "nowhere", 4, 0 }, { "", 4, 3 } })
    {
        File_c * dFiles[4] = {};
        EXPECT_EQ(FileGetDirectoryFiles(sPath.c_str(), dFiles, iMax), nFiles) << sPath;
        EXPECT_EQ(std::find(dFiles, std::end(dFiles), nullptr) - dFiles, nFiles)
            << sPath << ": nothing written after the result";
    }
    File_c * const pHeld = FileOpen("x.txt");
    ASSERT_TRUE(FileOpen(pHeld));
    EXPECT_TRUE(FileResetFiles(m_Folder.Join("A").c_str()));
    EXPECT_EQ(Keys(), "z.txt");
    EXPECT_EQ(g_sPaths.FindByName((Folded("a") + "\\").c_str()), nullptr);
    EXPECT_EACH(pHeld->GetOpensCount() == 1, Contents(pHeld) == "held");
    EXPECT_EQ(pHeld->GetFullPath(), (Folded("a") + "\\x.txt").c_str()) << "the folder's text lives on";
    FileClose(pHeld);
    EXPECT_TRUE(FileOpen(pHeld));
    EXPECT_FALSE(FileResetFiles(m_Folder.Join("a").c_str()));

    ASSERT_TRUE(FileAddSearchPath(m_Folder.Join("a").c_str(), true, false));
    FileRemoveSearchPath(m_Folder.GetPath().c_str(), false);
    EXPECT_EQ(Keys(), "");
    FileReset();
    EXPECT_EQ(FileBlocks(), nBlocks);
}

TEST_F(FilePathTest, AnObjectOfALibraryAboveHidesAFileUntilItIsDestroyed)
{
    struct Above_c : FileOnDisk_c
    {
        bool Open(void *) override { return false; }
    };
    auto const Add = [](char const * szKey, bool bOver)
    {
        File_c * const pFile = new Above_c;
        pFile->sName = szKey;
        if (HashAdd_e const eAdded = FileAddObject(pFile, bOver))
        {
            EXPECT_EQ(eAdded, HASH_PRESENT);
            pFile->sName = "";
            delete pFile;
            return static_cast<File_c *>(nullptr);
        }
        return pFile;
    };
    Make({ { "a/a.txt", "a" }, { "b/b.txt", "b" } });
    SetPQXMediaPath(m_Folder.GetPath().c_str());
    ASSERT_TRUE(Scan());
    File_c * const pA = FileStream("a.txt");
    File_c * const pB = FileOpen("b.txt");
    EXPECT_EACH(Add("c.txt", false), !Add("a.txt", false), FileStream("a.txt") == pA);
    EXPECT_EQ(FileOpen("c.txt"), nullptr);
    EXPECT_EQ(FileGetWhyNot("c.txt"), "it can't be read");
    File_c * const pOver = Add("a.txt", true);
    File_c * const pTop = Add("a.txt", true);
    EXPECT_EACH(FileAddObject(pTop, true) == HASH_PRESENT, FileAddObject(pOver, true) == HASH_PRESENT);
    File_c * const pOverB = Add("b.txt", true);
    FilesystemCacheSave(m_Folder.Join("cache.bin").c_str());
    EXPECT_THAT(m_Folder.Read("cache.bin"), testing::AllOf(testing::HasSubstr("a.txt"), testing::HasSubstr("b.txt")));
    EXPECT_EACH(FileStream("a.txt") == pTop, FileStream("b.txt") == pOverB, Contents(pB) == "b");
    delete pOver;
    EXPECT_EQ(FileStream("a.txt"), pTop);
    FileKill(pTop);
    EXPECT_EACH(FileStream("a.txt") == pA, Contents(FileOpen("a.txt")) == "a");

    FileOpen(pB);
    EXPECT_TRUE(FileResetFiles(m_Folder.Join("b").c_str()));
    FileKill(pOverB);
    EXPECT_EACH(!FileExists("b.txt"), Contents(pB) == "b", *pB->pPath == Folded("b\\").c_str());
    FileClose(pB);
    EXPECT_EQ(FailedConditions([] { EXPECT_EQ(FileAddObject(nullptr, false), HASH_FULL); }),
        "pFile && !pFile->sName.IsEmpty()");
    Add("a.txt", true);   // FileReset destroys it and the file that it hides
}

TEST_F(FilePathTest, AddsOneFileIfItCanBeRead)
{
    m_Folder.Write("a/known.txt", "x");
    ASSERT_TRUE(Scan());
    m_Folder.Write("b/New.txt", "fresh");
    std::ptrdiff_t const nBlocks = FileBlocks();
    EXPECT_TRUE(FileAddOneFile("elsewhere/KNOWN.txt"));
    EXPECT_FALSE(FileAddOneFile(m_Folder.Join("b/missing.bin").c_str()));
    EXPECT_FALSE(FileAddOneFile((m_Folder.Join("b/") + std::string(300, 'x')).c_str()));
    std::string const sLongest(127, 'y');   // what the key of a longer name would be
    std::string const sLonger = m_Folder.Write("b/" + sLongest, "y") + "y";
    EXPECT_FALSE(FileAddOneFile(sLonger.c_str()));
    EXPECT_EACH(!FileExists(sLongest.c_str()), FileGetWhyNot((sLongest + "y").c_str()) == "its path is too long");
    EXPECT_EQ(FileBlocks(), nBlocks + 1) << "the folder stays";
    EXPECT_TRUE(FileAddOneFile(m_Folder.Join("b/NEW.txt").c_str()));
    EXPECT_EQ(Keys(), "known.txt new.txt");
    File_c const * const pNew = FileStream("new.txt");
    EXPECT_EACH(pNew->iLength == 5, !pNew->pData, pNew->ftLastWriteTime > 0, !pNew->bOpened);
    EXPECT_EQ(*pNew->pPath, (Folded("b") + "\\").c_str());
}

TEST_F(FilePathTest, AFullTableIsReportedOnceAndLosesNoMemory)
{
    ExpectComplaints(1);
    Make({ { "a.txt", "" }, { "b.txt", "" } });
    std::ptrdiff_t const nBlocks = FileBlocks();
    FileOnDisk_c Dummy;
    std::vector<File_c::Key_t> dKeys(40000);   // more than the table has slots
    for (std::size_t i = 0; i < dKeys.size(); ++i)
    {
        dKeys[i] = NewString("%zu-%zx", i, i * 40503);   // 2^16 / golden ratio: spreads the hashes
        g_sFileObjects.Add(&Dummy, &dKeys[i]);
    }
    ASSERT_TRUE(Scan());
    EXPECT_EACH(!FileExists("a.txt"), !FileAddOneFile(m_Folder.Join("a.txt").c_str()));
    EXPECT_STREQ(FileGetWhyNot("b.txt"), "it was not found, and the table of files had no room for some");
    EXPECT_EQ(m_Log.Count("file hash overflow"), 1);
    EXPECT_EQ(m_Log.Count("FileAddOneFile - unknown file hash error [Ivo Renning]"), 1);
    g_sFileObjects.Reset();
    FileReset();
    EXPECT_STREQ(FileGetWhyNot("b.txt"), "there is no such file");
    EXPECT_EQ(FileBlocks(), nBlocks) << "objects that found no room are destroyed, or their pool would stay";
}
