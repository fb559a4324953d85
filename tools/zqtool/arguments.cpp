#include "tools/zqtool/arguments.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace
{
    HelpOption_t DescribeOption(CLI::Option const & Option)
    {
        HelpOption_t Described;
        std::string const sType = Option.get_type_name();   // with the text of each check after a colon
        Described.sValue = Option.get_type_size() == 0 ? "" : sType.substr(0, sType.find(':'));
        Described.sPurpose = Option.get_description();
        Described.bPositional = Option.get_positional();
        Described.bRequired = Option.get_required();
        Described.bMany = Option.get_expected_max() >= CLI::detail::expected_max_vector_size;
        for (std::string const & sName : Option.get_snames())
        {
            Described.dNames.push_back("-" + sName);
        }
        for (std::string const & sName : Option.get_lnames())
        {
            Described.dNames.push_back("--" + sName);
        }
        if (Described.bPositional)
        {
            Described.dNames = { Option.get_single_name() };
        }
        return Described;
    }

    // Adds an option with a variable or without one, and returns it.
    template <typename... VARIABLES>
    Argument_c Add(
        CLI::App & App, char const * szName, char const * szWord, char const * szPurpose, VARIABLES &... Variables)
    {
        std::string const sPurpose = szPurpose;
        return Argument_c(*App.add_option(szName, Variables..., sPurpose)->type_name(szWord));
    }
}

Argument_c::Argument_c(CLI::Option & Option)
    : m_pOption(&Option)
{}

Argument_c & Argument_c::SetRequired()
{
    m_pOption->required();
    return *this;
}

Argument_c & Argument_c::SetOneValue()
{
    m_pOption->allow_extra_args(false)->take_all();
    return *this;
}

Argument_c & Argument_c::SetChoices(std::vector<std::string> const & dChoices)
{
    m_pOption->type_name(CLI::detail::join(dChoices, "|"))->check(CLI::IsMember(dChoices));
    return *this;
}

Argument_c & Argument_c::SetRange(int iLeast, int iMost)
{
    m_pOption->check(CLI::Range(iLeast, iMost));
    return *this;
}

Argument_c & Argument_c::SetRange(double fLeast, double fMost)
{
    m_pOption->check(CLI::Range(fLeast, fMost));
    return *this;
}

Argument_c & Argument_c::SetReader(std::function<std::string(std::string const &)> fnRead)
{
    m_pOption->check(std::move(fnRead));
    return *this;
}

Argument_c & Argument_c::SetNeeds(Argument_c const & Other)
{
    m_pOption->needs(Other.m_pOption);
    return *this;
}

Argument_c & Argument_c::SetExcludes(Argument_c const & Other)
{
    m_pOption->excludes(Other.m_pOption);
    return *this;
}

bool Argument_c::IsGiven() const
{
    return m_pOption->count() > 0;
}

Arguments_c::Arguments_c(CLI::App & App)
    : m_pApp(&App)
{}

Argument_c Arguments_c::AddText(char const * szName, char const * szWord, std::string & sText, char const * szPurpose)
{
    return Add(*m_pApp, szName, szWord, szPurpose, sText);
}

Argument_c Arguments_c::AddTexts(
    char const * szName, char const * szWord, std::vector<std::string> & dTexts, char const * szPurpose)
{
    return Add(*m_pApp, szName, szWord, szPurpose, dTexts);
}

Argument_c Arguments_c::AddNumber(char const * szName, char const * szWord, int & iNumber, char const * szPurpose)
{
    return Add(*m_pApp, szName, szWord, szPurpose, iNumber);
}

Argument_c Arguments_c::AddNumber(char const * szName, char const * szWord, double & fNumber, char const * szPurpose)
{
    return Add(*m_pApp, szName, szWord, szPurpose, fNumber);
}

Argument_c Arguments_c::AddFlag(char const * szName, bool & bFlag, char const * szPurpose)
{
    return Argument_c(*m_pApp->add_flag(szName, bFlag, szPurpose));
}

Argument_c Arguments_c::AddRead(char const * szName, char const * szWord, char const * szPurpose)
{
    return Add(*m_pApp, szName, szWord, szPurpose);
}

void Arguments_c::SetFooter(char const * szText)
{
    m_pApp->footer(szText);
}

void Arguments_c::SetCheck(std::function<std::string()> fnCheck)
{
    m_pApp->parse_complete_callback(
        [fnCheck = std::move(fnCheck)]
        {
            if (std::string const sWrong = fnCheck(); !sWrong.empty())
            {
                throw CLI::ValidationError(sWrong);
            }
        });
}

HelpCommand_t Arguments_c::DescribeProgram() const
{
    return DescribeParser(*m_pApp->get_parent());
}

HelpCommand_t DescribeParser(CLI::App const & App)
{
    HelpCommand_t Command;
    Command.sName = App.get_parent() == nullptr ? "" : App.get_name();
    Command.sPurpose = App.get_description();
    Command.sFooter = App.get_footer();
    Command.sVersion = App.version();
    for (CLI::Option const * pOption : App.get_options())
    {
        Command.dOptions.push_back(DescribeOption(*pOption));
    }
    std::stable_partition(Command.dOptions.begin(), Command.dOptions.end(),
        [](HelpOption_t const & Option) { return Option.bPositional; });
    for (CLI::App const * pSub : App.get_subcommands({}))
    {
        Command.dCommands.push_back(DescribeParser(*pSub));
    }
    return Command;
}
