// zqtool check: what the library's readers say about tables, spreadsheets, property lists and scripts.
#include "platform/terminal.h"
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/checkschema.h"
#include "tools/zqtool/checktext.h"
#include "tools/zqtool/columns.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/terminal.h"
#include "tools/zqtool/text.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

namespace
{
    namespace fs = std::filesystem;

    constexpr char KIND_TABLE[] = "table";
    constexpr char KIND_SPREADSHEET[] = "spreadsheet";
    constexpr char KIND_PROPERTY_LIST[] = "propertylist";
    constexpr char KIND_SCRIPT[] = "script";
    std::map<std::string, TextKind_e> const KINDS = { { KIND_TABLE, TextKind_e::Table },
        { KIND_SPREADSHEET, TextKind_e::Spreadsheet }, { KIND_PROPERTY_LIST, TextKind_e::PropertyList },
        { KIND_SCRIPT, TextKind_e::Script } };

    struct Options_s
    {
        std::vector<std::string> dFiles;
        std::string sSchema;
        CheckOptions_t Check;
        bool bJson = false;
    };

    class Checker_c
    {
    public:
        explicit Checker_c(Options_s const & Options)
            : m_Options(Options)
            , m_Check(Options.Check)
        {}

        int Run()
        {
            if (!ReadSchemaFile())
            {
                return EXIT_FOUND;
            }
            for (std::string const & sName : m_Options.dFiles)
            {
                std::error_code Ignored;
                if (fs::is_directory(sName, Ignored))
                {
                    CheckFolder(sName);
                }
                else
                {
                    CheckFile(sName, true);
                }
            }
            if (m_Options.bJson)
            {
                PrintJson({ { "complaints", m_nComplaints }, { "files", m_Files } });
            }
            else if (m_nFiles != 1)
            {
                std::printf("%s, %s\n", Counted(m_nFiles, "file").c_str(), Counted(m_nComplaints, "complaint").c_str());
            }
            return m_nComplaints > 0 ? EXIT_FOUND : EXIT_DONE;
        }

    private:
        // Reads the schema, prints what is wrong with it, and returns whether it is sound. Returns true without a
        // schema.
        bool ReadSchemaFile()
        {
            if (m_Options.sSchema.empty())
            {
                return true;
            }
            std::string sBytes;
            std::vector<Complaint_t> dComplaints;
            if (std::string const sWhyNot = ReadInput(m_Options.sSchema, sBytes); !sWhyNot.empty())
            {
                dComplaints.push_back({ 0, 0, sWhyNot });
            }
            else
            {
                m_dSchema = ReadSchema(m_Options.sSchema, sBytes, dComplaints);
            }
            for (Complaint_t const & Complaint : dComplaints)
            {
                PrintProblem(m_Options.sSchema, Complaint.iLine, Complaint.iColumn, Complaint.sText);
            }
            return dComplaints.empty();
        }

        // Checks the files of a folder that have a text's ending, at any depth, in the order of their paths.
        void CheckFolder(std::string const & sFolder)
        {
            std::vector<std::string> dFiles;
            std::error_code Error;
            fs::recursive_directory_iterator itEntry(sFolder, Error);
            for (; !Error && itEntry != fs::end(itEntry); itEntry.increment(Error))
            {
                std::error_code Ignored;
                std::string const sFile = itEntry->path().string();
                if (HasTextEnding(sFile) && itEntry->is_regular_file(Ignored))
                {
                    dFiles.push_back(sFile);
                }
            }
            std::sort(dFiles.begin(), dFiles.end());
            for (std::string const & sFile : dFiles)
            {
                CheckFile(sFile, false);
            }
            if (Error)
            {
                ShowUnread(sFolder, Error.message());
            }
        }

        // Checks a file. If bNamed is false, skips a file of no known kind.
        void CheckFile(std::string const & sFile, bool bNamed)
        {
            std::string sBytes;
            if (std::string const sWhyNot = ReadInput(sFile, sBytes); !sWhyNot.empty())
            {
                ShowUnread(sFile, sWhyNot);
                return;
            }
            CheckOptions_t Options = m_Check;
            if (Options.eKind == TextKind_e::None)
            {
                Options.eKind = TextKindOf(sFile, sBytes, !Options.sHead.empty());
            }
            if (!m_Options.sSchema.empty())
            {
                Options.pSchema = &m_dSchema;
            }
            if (bNamed || Options.eKind != TextKind_e::None)
            {
                Show(sFile, CheckText(sFile, std::move(sBytes), Options));
            }
        }

        // Shows why a file, or the whole of a folder, can't be read.
        void ShowUnread(std::string const & sName, std::string const & sWhyNot)
        {
            CheckedText_t Checked;
            Checked.bWhole = false;
            Checked.dComplaints.push_back({ 0, 0, sWhyNot });
            Show(sName, Checked);
        }

        // Counts a file and its complaints, and prints them or keeps them for the JSON.
        void Show(std::string const & sFile, CheckedText_t const & Checked)
        {
            ++m_nFiles;
            m_nComplaints += Checked.dComplaints.size();
            if (m_Options.bJson)
            {
                m_Files.push_back(JsonOf(sFile, Checked));
                return;
            }
            for (Complaint_t const & Complaint : Checked.dComplaints)
            {
                PrintProblem(sFile, Complaint.iLine, Complaint.iColumn, Complaint.sText);
            }
            bool const bSound = Checked.dComplaints.empty();
            std::string const sComplaints = bSound ? "no complaint" : Counted(Checked.dComplaints.size(), "complaint");
            std::printf("%s: %s%s%s\n", Printable(sFile).c_str(), Contents(Checked).c_str(),
                Painted(sComplaints, bSound ? Colour_e::Good : Colour_e::Bad).c_str(),
                Checked.bWhole ? "" : "; the rest was not read");
            if (m_Check.bRows)
            {
                auto const nWidth = static_cast<std::size_t>(plat::TerminalColumns());
                std::fputs(AlignedColumns(Checked.dRows, nWidth).c_str(), stdout);
            }
        }

        // Returns what a text holds, for the line that counts its complaints. Returns an empty text for no known kind.
        static std::string Contents(CheckedText_t const & Checked)
        {
            if (Checked.eKind == TextKind_e::None)
            {
                return "";
            }
            std::string sText = TextKindName(Checked.eKind);
            if (Checked.bWhole)
            {
                bool const bScript = Checked.eKind == TextKind_e::Script;
                sText += ", " + Counted(static_cast<std::size_t>(Checked.nRows), bScript ? "word" : "row");
            }
            if (!Checked.dColumns.empty())
            {
                sText += ", " + Counted(Checked.dColumns.size(), "column");
            }
            return sText + ": ";
        }

        Json_t JsonOf(std::string const & sFile, CheckedText_t const & Checked) const
        {
            Json_t Complaints = Json_t::array();
            for (Complaint_t const & Complaint : Checked.dComplaints)
            {
                bool const bPlace = Complaint.iLine > 0;
                Complaints.push_back({ { "line", bPlace ? Json_t(Complaint.iLine) : Json_t() },
                    { "column", bPlace ? Json_t(Complaint.iColumn) : Json_t() }, { "text", Complaint.sText } });
            }
            Json_t Json = { { "file", sFile }, { "kind", TextKindName(Checked.eKind) }, { "whole", Checked.bWhole },
                { "rows", Checked.nRows }, { "columns", Checked.dColumns }, { "complaints", Complaints } };
            if (m_Check.bRows)
            {
                Json["cells"] = Checked.dRows;
            }
            return Json;
        }

        Options_s const & m_Options;
        CheckOptions_t m_Check;
        std::vector<SchemaColumn_t> m_dSchema;
        std::size_t m_nFiles = 0, m_nComplaints = 0;
        Json_t m_Files = Json_t::array();
    };
}

CommandRun_t PrepareCheck(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments
        .AddTexts("FILE", "", pOptions->dFiles,
            "tables, spreadsheets, property lists and scripts, or folders with *.csv, *.txt, *.prp and *.scr")
        .SetRequired();
    Arguments
        .AddRead("--as", "", "kind of the files; default: by their endings, and a table if a line begins with @head")
        .SetChoices({ KIND_TABLE, KIND_SPREADSHEET, KIND_PROPERTY_LIST, KIND_SCRIPT })
        .SetReader(
            [pOptions](std::string const & sKind)
            {
                pOptions->Check.eKind = KINDS.at(sKind);
                return std::string();
            });
    Arguments.AddText("--schema", "FILE", pOptions->sSchema,
        "table of what the columns must be; its columns are type, least, most and required");
    Arguments.AddText(
        "--head", "NAMES", pOptions->Check.sHead, "names of the columns of a table without @head, with blanks between");
    Arguments.AddText(
        "--separators", "CHARS", pOptions->Check.sSeparators, "characters between cells instead of the usual ones");
    Arguments.AddFlag("--show", pOptions->Check.bRows, "print the cells in aligned columns");
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool check --schema units.schema media/units.csv");
    Arguments.SetCheck(
        [pOptions]
        {
            bool const bFits = pOptions->sSchema.empty() || pOptions->Check.eKind <= TextKind_e::Spreadsheet;
            return std::string(bFits ? "" : "--schema is for tables and spreadsheets");
        });
    return [pOptions] { return Checker_c(*pOptions).Run(); };
}
