// The blocks of the documents, cut out by the build (tests/examples.cmake) and run (CONTRIBUTING.md has the rules).
#include "tests/test_support.h"

#include <fstream>

namespace fs = std::filesystem;

namespace
{
    struct Block_s
    {
        int iLine;
        std::string_view sKind;    // cpp, sh or text
        std::string sWords;        // what follows the kind in the fence
        std::string sText;         // of cpp: the name of the program
        char const * szExpected;   // what it prints, or null
    };

    fs::path const SOURCE_FOLDER = TEST_SOURCE_FOLDER;

    std::string ReadFile(fs::path const & Path)
    {
        std::ifstream File(Path);
        return { std::istreambuf_iterator<char>(File), {} };
    }

    // Returns whether a text is the expected one, in which `...` means any text.
    bool Matches(std::string_view sText, std::string_view sExpected)
    {
        std::size_t const nDots = sExpected.find("...");
        if (!sText.starts_with(sExpected.substr(0, nDots)))
        {
            return false;
        }
        if (nDots == std::string_view::npos)
        {
            return sText == sExpected;
        }
        std::string_view const sRest = sExpected.substr(nDots + 3);
        std::string_view const sPart = sRest.substr(0, sRest.find("..."));
        for (std::size_t nAt = nDots; (nAt = sText.find(sPart, nAt)) != std::string_view::npos; ++nAt)
        {
            if (Matches(sText.substr(nAt), sRest))
            {
                return true;
            }
        }
        return false;
    }

    // Makes a script in `bin` for each command of the documents.
    void MakeCommands(TempFolder_c const & Folder)
    {
        std::vector<std::string> dPrograms = { ZQTOOL_PATH };
        for (auto const & Entry : fs::directory_iterator(PROGRAMS_FOLDER))
        {
            dPrograms.push_back(Entry.path().string());
        }
        for (fs::path const Program : dPrograms)
        {
            std::string const sScript = Folder.Write("bin/" + Program.filename().string(),
                "#!/bin/sh\nexec " TEST_EMULATOR + Program.string() + " \"$@\"\n");
            fs::permissions(sScript, fs::perms::owner_all);
        }
    }

    // Runs the blocks of a page in order, in a folder of its own.
    void RunPage(std::string const & sPage, std::initializer_list<Block_s> dBlocks)
    {
        SKIP_IF(sPage.find("crash") != std::string::npos && (*TEST_EMULATOR || !*ZQSYMBOLS_PATH),
            "an emulator, or a build without zqsymbols, reports less");
        TempFolder_c const Folder(fs::path(DOCUMENTS_PROGRAM).parent_path());
        CurrentFolderScope_c const Current(Folder.GetPath());
        fs::create_hard_link(DOCUMENTS_PROGRAM, "game");
        if (*ZQSYMBOLS_PATH)   // a program that contains the library looks for zqsymbols beside itself
        {
            fs::create_hard_link(ZQSYMBOLS_PATH, "zqsymbols");
        }
        fs::create_symlink(SOURCE_FOLDER / "examples", "examples");
        Folder.MakeFolder("media");
        MakeCommands(Folder);
        for (Block_s const & Block : dBlocks)
        {
            if (Block.sKind == "text")
            {
                Folder.Write(Block.sWords, Block.sText);
                continue;
            }
            std::string sCommand = TEST_EMULATOR "./game " + Block.sText;
            if (Block.sKind == "sh")
            {
                Folder.Write("commands", "PATH=$PWD/bin:$PATH\n" + Block.sText);
                sCommand = Block.sWords == "run" ? "bash -e commands" : "bash -n commands";
            }
            // Some memory is lost on purpose, and the library lists it.
            Result_t const Result = RunShell("ASAN_OPTIONS=detect_leaks=0; export ASAN_OPTIONS; " + sCommand
                                             + " </dev/null 2>&1" + (Block.szExpected ? "" : " >/dev/null"));
            SCOPED_TRACE(sPage + ":" + std::to_string(Block.iLine) + " ends with " + std::to_string(Result.iStatus)
                         + " and prints:\n" + Result.sOutput);
            EXPECT_EQ(Result.iStatus == 0, Block.sWords != "fails");
            EXPECT_NE(Result.iStatus, DOCUMENTS_NO_PROGRAM);
            EXPECT_TRUE(Matches(Result.sOutput, Block.szExpected ? Block.szExpected : ""));
        }
    }
}

#include "documents/pages.inl"

namespace
{
    // Returns the texts between each sBegin and the next sEnd, or the end.
    std::vector<std::string> Between(std::string const & sText, std::string_view sBegin, std::string_view sEnd)
    {
        std::vector<std::string> dFound;
        std::size_t nEnd = 0;
        for (std::size_t nAt = sText.find(sBegin); nAt != std::string::npos; nAt = sText.find(sBegin, nEnd))
        {
            nAt += sBegin.size();
            nEnd = std::min(sText.find(sEnd, nAt), sText.size());
            dFound.push_back(sText.substr(nAt, nEnd - nAt));
        }
        return dFound;
    }

    // Returns source text with string literals of consecutive lines joined, and `\"` and `\\` without the escaping
    // backslash.
    std::string Plain(std::string const & sSource)
    {
        std::string sPlain;
        for (std::size_t i = 0; i < sSource.size(); ++i)
        {
            std::size_t const nNext = sSource.find_first_not_of(' ', i + 2);
            if (sSource.compare(i, 2, "\"\n") == 0 && nNext != std::string::npos && sSource[nNext] == '"')
            {
                i = nNext;
                continue;
            }
            i += sSource[i] == '\\' && i + 1 < sSource.size() && (sSource[i + 1] == '"' || sSource[i + 1] == '\\');
            sPlain += sSource[i];
        }
        return sPlain;
    }
}

TEST(Documents, ProgramsFailWhenTheirOutputIsLost)
{
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    for (std::string const sCommand : { "read_table " TEST_MEDIA_FOLDER, "save_and_load", "profile_frames",
             "log_and_complain", "watch_memory", "auction " TEST_MEDIA_FOLDER " auction.sav auction.stats" })
    {
        std::string const sRun =
            "ASAN_OPTIONS=detect_leaks=0 " TEST_EMULATOR PROGRAMS_FOLDER "/" + sCommand + " 2>/dev/null >/dev/";
        EXPECT_EACH(RunShell(sRun + "null").iStatus == 0, RunShell(sRun + "full").iStatus == 1) << sCommand;
    }
}

// The tables of messages quote the library, with its %s and %i, whole or in part.
TEST(Documents, QuoteMessagesThatExistAndLinkToFilesThatExist)
{
    std::string sSource;
    for (char const * szFolder : { "zqcore", "platform", "tools" })
    {
        for (auto const & Entry : fs::recursive_directory_iterator(SOURCE_FOLDER / szFolder))
        {
            sSource += Entry.is_regular_file() ? Plain(ReadFile(Entry.path())) : "";
        }
    }
    std::size_t nMessages = 0;
    for (auto const & Entry : fs::directory_iterator(SOURCE_FOLDER / "docs/guides"))
    {
        std::string const sPage = ReadFile(Entry.path());
        for (std::string const & sTable : Between(sPage, "\n| Message |", "\n\n"))
        {
            std::vector<std::string> const dMessages = Between(sTable, "\n| `", "` |");
            nMessages += dMessages.size();
            for (std::string const & sMessage : dMessages)
            {
                EXPECT_NE(sSource.find(sMessage), std::string::npos) << Entry.path() << ": " << sMessage;
            }
        }
        for (std::string const & sLink : Between(sPage, "](", ")"))
        {
            fs::path const Target = Entry.path().parent_path() / sLink.substr(0, sLink.find('#'));
            // In an example "](" begins the parameters of a lambda. A link to a folder, or to an anchor of the same
            // page, is skipped too.
            bool const bLambda = !Target.has_extension() || sLink.find(' ') != std::string::npos;
            bool const bOwn = !bLambda && sLink.find("://") == std::string::npos;
            if (bOwn)
            {
                EXPECT_TRUE(fs::exists(Target)) << Entry.path() << ": " << sLink;
            }
        }
    }
    EXPECT_GT(nMessages, 50u);
}
