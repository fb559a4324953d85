// zqtool help: what --help prints of a command, and the manual page zqtool(1), made of the same descriptions.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/help.h"
#include "tools/zqtool/json.h"

#include <cstdio>
#include <memory>
#include <sstream>

namespace
{
    // Returns a text of lines, escaped for the body of a page.
    std::string Roff(std::string_view sText)
    {
        std::string sOut;
        for (char const cText : sText)
        {
            bool const bFirst = sOut.empty() || sOut.back() == '\n';
            sOut += bFirst && (cText == '.' || cText == '\'') ? "\\&" : "";
            sOut += cText == '\\' ? "\\e" : cText == '-' ? "\\-" : std::string(1, cText);
        }
        return sOut;
    }

    // Returns the paragraph of an argument.
    std::string Entry(HelpOption_t const & Option)
    {
        return ".TP\n\\fB" + Roff(Option.Spelling()) + "\\fR\n" + Roff(Option.sPurpose) + "\n";
    }

    // Returns the lines of a footer, each that is not empty as a paragraph.
    std::string Paragraphs(std::string const & sText)
    {
        std::string sOut;
        std::istringstream Lines(sText);
        for (std::string sLine; std::getline(Lines, sLine);)
        {
            sOut += sLine.empty() ? "" : ".PP\n" + Roff(sLine) + "\n";
        }
        return sOut;
    }

    std::string ManualPage(HelpCommand_t const & Program)
    {
        std::string sOut = ".TH ZQTOOL 1 \"\" \"" + Program.sVersion + "\" \"User Commands\"\n.SH NAME\nzqtool \\- "
                           + Roff(Program.sPurpose) + "\n.SH SYNOPSIS\n" + Roff(Program.Usage()) + "\n.SH OPTIONS\n";
        for (HelpOption_t const & Option : Program.dOptions)
        {
            sOut += Entry(Option);
        }
        sOut += ".SH COMMANDS\n";
        for (HelpCommand_t const & Command : Program.dCommands)
        {
            sOut += ".SS " + Roff(Command.sName) + "\n" + Roff(Command.Usage()) + "\n.PP\n" + Roff(Command.Sentence())
                    + "\n";
            for (HelpOption_t const & Option : Command.dOptions)
            {
                sOut += Entry(Option);
            }
            sOut += Paragraphs(Command.sFooter);
        }
        return sOut + ".SH EXIT STATUS\n" + Roff(Program.sFooter)
               + "\n.SH ENVIRONMENT\n.TP\n\\fBNO_COLOR\\fR\nIf set and not empty, nothing is printed in colour.\n"
                 ".SH SEE ALSO\nzqtool.md in the documents of libzqcore\\-dev\n";
    }

    Json_t JsonOf(HelpCommand_t const & Command)
    {
        Json_t Options = Json_t::array();
        for (HelpOption_t const & Option : Command.dOptions)
        {
            Options.push_back({ { "names", Option.dNames }, { "value", Option.sValue }, { "purpose", Option.sPurpose },
                { "positional", Option.bPositional }, { "required", Option.bRequired }, { "many", Option.bMany } });
        }
        return { { "name", Command.sName }, { "purpose", Command.sPurpose }, { "usage", Command.Usage() },
            { "options", std::move(Options) } };
    }

    void PrintHelpJson(HelpCommand_t const & Wanted)
    {
        Json_t Json = JsonOf(Wanted);
        for (HelpCommand_t const & Sub : Wanted.dCommands)
        {
            Json["commands"].push_back(JsonOf(Sub));
        }
        PrintJson(Json);
    }
}

CommandRun_t PrepareHelp(Arguments_c & Arguments)
{
    struct Options_s
    {
        std::string sCommand;
        bool bManual = false;
        bool bJson = false;
    };
    auto const pOptions = std::make_shared<Options_s>();
    Arguments.AddText("COMMAND", "", pOptions->sCommand, "the command; without one all are listed");
    Arguments.AddFlag("--man", pOptions->bManual, "print the manual page, for man -l or to install it");
    Arguments.AddFlag("--json", pOptions->bJson, "print the arguments as one JSON document");
    Arguments.SetFooter("Example: zqtool help crash");
    return [pOptions, Arguments]
    {
        HelpCommand_t const Program = Arguments.DescribeProgram();
        std::vector<std::string> dNames;
        HelpCommand_t const * pWanted = pOptions->sCommand.empty() ? &Program : nullptr;
        for (HelpCommand_t const & Command : Program.dCommands)
        {
            dNames.push_back(Command.sName);
            pWanted = Command.sName == pOptions->sCommand ? &Command : pWanted;
        }
        if (pWanted == nullptr)
        {
            return ReportNoCommand(pOptions->sCommand, dNames);
        }
        if (pOptions->bJson)
        {
            PrintHelpJson(*pWanted);
            return EXIT_DONE;
        }
        std::fputs((pOptions->bManual ? ManualPage(Program) : HelpText(*pWanted)).c_str(), stdout);
        return EXIT_DONE;
    };
}
