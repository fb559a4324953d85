#include "tests/test_support.h"

#include <climits>
#include <cstdlib>

using namespace std::string_literals;

namespace
{
    using testing::HasSubstr;

    // Runs a check of a file of this name. Expects status 1 if it complains, and 0 otherwise. Returns its output
    // without the path.
    std::string Checked(std::string const & sName, std::string const & sText, std::string const & sOptions = "")
    {
        TempFolder_c const Folder;
        std::string const sFile = Folder.Write(sName, sText);
        Result_t const Result = RunTool("check " + sOptions + " " + sFile);
        EXPECT_EQ(Result.iStatus, Result.sOutput.find(": no complaint\n") == std::string::npos) << Result.sOutput;
        return Without(Result.sOutput, sFile);
    }

    constexpr char SCHEMA[] =
        "@head type least most required\nname text 1 5 yes\nprice int 0 100 yes\nspeed pair 1 20 -\n"
        "unit barrel|bag - - -\nweight float - 2.5 -\nopen bool - - no\n";
}

TEST(ZqtoolCheck, NamesThePlaceOfEachComplaint)
{
    std::string const sLong(600, 'x'), sQuoted(24600, 'y');
    for (auto const & [sName, sText, sExpected] :
        Rows_t<std::string, std::string, std::string>{ // Tables: what the format loses, see docs/formats.md.
            { "a.txt", "\xEF\xBB\xBF@head a b\r\nx 1 # note\r\ny \"2 2\"",
                ": table, 2 rows, 3 columns: no complaint\n" },
            { "a.txt", "# ships\n@haed name price\nherring 3\n",
                ": no line begins with @head\n"
                "(2, 1): this line begins with \"@haed\"; did you mean @head?\n"
                ": table: 2 complaints; the rest was not read\n" },
            { "b.csv", "@header;@head\n@load;1\n@x;2\n",
                ": no line begins with @head\n"
                "(1, 1): this line begins with \"@header\"; did you mean @head?\n"
                ": table: 2 complaints; the rest was not read\n" },
            { "b.csv", "@name,head\n@load,1\n", ": spreadsheet, 1 row, 2 columns: no complaint\n" },
            { "a.txt", "x 1\n@head a A b\ny 1 2 3 4 5\nX\n",
                "(2, 9): column \"A\" has the name of an earlier one, which is read\n"
                "(3, 9): this cell is after the last that is read\n"
                "(4, 1): a search for \"x\" finds the item in line 1\n"
                ": table, 3 rows, 4 columns: 3 complaints\n" },
            { "a.txt", "@head a b\nsalt #3 7\noil \"whale oil 5\nrye -\n@HEAD c\n",
                "(2, 6): this cell and the rest of the line are a comment\n"
                "(3, 5): this quote is not closed; the next line is joined to this one\n"
                "(4, 5): this cell is after the last that is read\n"
                "(5, 1): a second @head is skipped\n"
                ": table, 2 rows, 3 columns: 4 complaints\n" },
            { "a.txt", "@head a\r\nx \"1\r\ny \"2\r\n",
                "(2, 3): this quote is not closed\n(3, 3): this quote is not closed\n"
                ": table, 2 rows, 2 columns: 2 complaints\n" },
            { "a.csv", "@head;;b\n;1;2\n;;\nx;1,5;2\ny;\"" + sQuoted + "\"\nz;\"open\n",
                "(1, 7): this column has no name\n"
                "(2, 2): a line without a first cell is skipped\n"
                "(4, 7): this cell is after the last that is read\n"
                "(5, 3): a cell of more than 24576 characters is cut\n"
                "(6, 3): this quote is never closed; its cell holds the rest of the file\n"
                ": table, 3 rows, 3 columns: 5 complaints\n" },
            // Spreadsheets
            { "b.csv", "a,b\n1,\"2\n2\"\n", ": spreadsheet, 1 row, 2 columns: no complaint\n" },
            { "b.csv", "a,,A\nä,2,3,,5\n" + sLong + ",\"" + sQuoted + "\"\n",
                "(1, 3): this column has no name\n"
                "(1, 4): column \"A\" has the name of an earlier one, which is read\n"
                "(2, 8): no column has this cell\n"
                "(3, 1): a word of more than 511 characters is cut\n"
                "(3, 602): a text in quotes of more than 24575 characters is cut\n"
                ": spreadsheet, 2 rows, 3 columns: 5 complaints\n" },
            { "b.csv", "a,b\n" + sLong + ",1\n\"x\" ,2\n1,2,3\n",
                "(2, 1): a word of more than 511 characters is cut\n"
                "(3, 4): only a separator may follow the closing quote of a cell\n"
                ": spreadsheet: 2 complaints; the rest was not read\n" },
            { "b.csv", "\n\n", ": the file holds no row\n: spreadsheet: 1 complaint; the rest was not read\n" },
            { "b.csv", "a,b\n1,\"x\0y\"\n"s,
                "(2, 5): a NUL ends or separates the text here\n"
                ": spreadsheet, 1 row, 2 columns: 1 complaint\n" },
            // Property lists and scripts
            { "c.prp", "panel Chart\ndebug # off\npanel \"Cargo Hold\"   left\nfont #big\n",
                "(3, 22): this cell is after the last that is read\n"
                "(4, 6): this cell and the rest of the line are a comment\n"
                ": property list, 4 rows: 2 complaints\n" },
            { "d.scr", "// é\nsay \"Ünï\" 'é' a//b", ": script, 4 words: no complaint\n" },
            { "d.scr", "Rénate " + sLong + "\nsay \"open\n",
                "(1, 2): a character beyond ASCII separates words\n"
                "(1, 8): a word of more than 259 characters is cut\n"
                "(2, 5): no quote ends this text\n"
                ": script, 5 words: 3 complaints\n" },
            { "e.dat", "\xFF\xFE@\0"s,
                ": the kind of this file is unknown; give --as\n"
                ": 1 complaint; the rest was not read\n" } })
    {
        EXPECT_EQ(Checked(sName, sText), sExpected);
    }
}

TEST(ZqtoolCheck, OptionsChooseKindHeadAndSeparators)
{
    EXPECT_EQ(Checked("e.dat", "\xFF\xFE@\0"s, "--as table"), ": the text is UTF-16; only UTF-8 is read\n"
                                                              ": table: 1 complaint; the rest was not read\n");
    EXPECT_EQ(Checked("e.dat", "x 1\n", "--head 'size'"), ": table, 1 row, 2 columns: no complaint\n");
    EXPECT_EQ(Checked("e.SCR", "{x} // \"\n", "--head 'size'"), ": script, 1 word: no complaint\n");
    EXPECT_EQ(Checked("f.csv", "a;b\n1;2,3\n", "--separators ';'"), ": spreadsheet, 1 row, 2 columns: no complaint\n");
}

TEST(ZqtoolCheck, ComparesCellsWithASchemaAndReportsFaultsOfTheSchema)
{
    TempFolder_c const Folder;
    std::string const sSchema = "--schema " + Folder.Write("schema.txt", SCHEMA);
    EXPECT_EQ(Checked("a.csv", "@head;Name;price;speed;unit;weight;open\nx;ab;7;2-3;BAG;1e0;1\ny;ab;0;;;;\n", sSchema),
        ": table, 2 rows, 7 columns: no complaint\n");
    EXPECT_EQ(Checked("a.csv",
                  "@head;price;name;speed;unit;weight;open;more\nx;1.5;;a-3;tin;2.6;no\n"
                  "y;101;sixsix;3-99;bag;x;\n",
                  sSchema),
        "(1, 41): the schema has no column \"more\"\n"
        "(2, 3): there is no whole number in column \"price\"\n"
        "(2, 7): there is no value in column \"name\"\n"
        "(2, 8): \"a-3\" is read as 0 and 3 in column \"speed\"\n"
        "(2, 12): there is no known name in column \"unit\"\n"
        "(2, 16): 2.6 is above 2.5 in column \"weight\"\n"
        "(2, 20): there is no whole number in column \"open\"\n"
        "(3, 3): 101 is above 100 in column \"price\"\n"
        "(3, 7): a length of 6 is above 5 in column \"name\"\n"
        "(3, 14): 99 is above 20 in column \"speed\"\n"
        "(3, 23): there is no number in column \"weight\"\n"
        ": table, 2 rows, 8 columns: 11 complaints\n");
    EXPECT_EQ(Checked("b.csv", "name,unit\n\"a\nb\",bag\n,box\n", sSchema),
        "(1, 1): there is no column \"price\"\n"
        "(4, 1): there is no value in column \"name\"\n"
        "(4, 2): there is no known name in column \"unit\"\n"
        ": spreadsheet, 2 rows, 2 columns: 3 complaints\n");
    EXPECT_EQ(Checked("b.csv", "unit,name\nbag,", sSchema), "(1, 1): there is no column \"price\"\n"
                                                            "(2, 5): there is no value in column \"name\"\n"
                                                            ": spreadsheet, 1 row, 2 columns: 2 complaints\n");
    std::string const sFlag = Folder.Write("flag.txt", "@head type least\nopen bool 2\n");
    EXPECT_EQ(Checked("c.csv", "open\n1\n", "--schema " + sFlag), ": spreadsheet, 1 row, 1 column: no complaint\n")
        << "a limit has no meaning for a truth value";
    std::string const sLarge =
        Folder.Write("large.txt", "@head type most\nn int 9007199254740992\np pair -\nr int 100000\n");
    EXPECT_EQ(
        Checked("d.csv", "@head;n;p;r\nx;9007199254740993;007-0;100000\ny;9007199254740992;99999999999-1;100001\n",
            "--schema " + sLarge),
        "(2, 3): 9007199254740993 is above 9007199254740992 in column \"n\"\n"
        "(3, 20): \"99999999999-1\" is read as 2147483647 and 1 in column \"p\"\n"
        "(3, 34): 100001 is above 100000 in column \"r\"\n"
        ": table, 2 rows, 4 columns: 3 complaints\n");
    std::string const sBad = Folder.Write("bad.txt", "@head type least required\na in\nA int x\nb int - maybe\n");
    EXPECT_EQ(RunTool("check --schema " + sBad + " " + sBad).sOutput,
        sBad + "(3, 1): a search for \"a\" finds the item in line 2\n" + sBad
            + "(2, 3): there is no known name in column \"type\"\n" + sBad
            + "(3, 7): there is no number in column \"least\"\n" + sBad
            + "(4, 9): there is no known name in column \"required\"\n");
}

TEST(ZqtoolCheck, ShowsCellsAndWalksFolders)
{
    std::string const sText = "@head name\nx \"North herring\"\nlong ä\n";
    EXPECT_EQ(Checked("a.txt", sText, "--show"), ": table, 2 rows, 2 columns: no complaint\n"
                                                 "@head  name\nx      North herring\nlong   ä\n");
    TempFolder_c const Folder;
    std::string const sFile = Folder.Write("b/a.txt", sText);
    Result_t const Narrow = RunOnTerminal(
        [&]
        {
            return std::system(("stty cols 12; cd " + Folder.GetPath()
                                + "; NO_COLOR=1 " TEST_EMULATOR ZQTOOL_PATH " check --show b/a.txt")
                                   .c_str());
        });
    EXPECT_THAT(Narrow.sOutput, HasSubstr("@head  name\r\nx      Nort…\r\nlong   ä\r\n"));

    Folder.Write("b/Words.TXT", "Free text, of no kind.\n");
    Folder.Write("c.csv", "a,b\n1,2,3\n");
    Result_t const Whole = RunTool("check --json " + Folder.GetPath());
    EXPECT_EQ(Whole.iStatus, 1);
    EXPECT_EQ(
        Whole.sOutput, "{\"complaints\":1,\"files\":[{\"file\":\"" + sFile
                           + "\",\"kind\":\"table\",\"whole\":true,\"rows\":2,\"columns\":[\"@head\",\"name\"],"
                             "\"complaints\":[]},{\"file\":\""
                           + Folder.Join("c.csv")
                           + "\",\"kind\":\"spreadsheet\",\"whole\":true,\"rows\":1,\"columns\":[\"a\",\"b\"],"
                             "\"complaints\":[{\"line\":2,\"column\":5,\"text\":\"no column has this cell\"}]}]}\n");
    EXPECT_THAT(RunTool("check " + Folder.GetPath()).sOutput, HasSubstr("2 files, 1 complaint\n"));
}

TEST(ZqtoolCheck, RefusesUnreadableFilesAndWrongArguments)
{
    TempFolder_c const Folder;
    // Statuses: 1 a file can't be read, 2 wrong arguments.
    for (auto const & [sArguments, iStatus] :
        Rows_t<std::string, int>{ { Folder.Join("absent.txt"), 1 }, { MakePipe(Folder.Join("pipe.csv")), 1 }, { "", 2 },
            { "--as wish a", 2 }, { "--as script --schema a b", 2 } })
    {
        EXPECT_EQ(RunTool("check " + sArguments).iStatus, iStatus) << sArguments;
    }
    std::string const sLarge = Folder.Write("large.scr", "");
    std::filesystem::resize_file(sLarge, INT_MAX);
    EXPECT_THAT(
        RunTool("check " + sLarge).sOutput, HasSubstr("large.scr: it has 2147483647 bytes, more than 2147483646\n"));
}
