// arguments.h: how a command declares its arguments.
//
// Only arguments.cpp and main.cpp include the parser, which compiles slowly.
#pragma once

#include "tools/zqtool/help.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
    class App;
    class Option;
}

/// Argument of a command: an option, a flag or a positional one. It is a handle that is valid while the parser lives.
/// The setters return the argument itself.
class Argument_c
{
public:
    /// Makes the handle of a parser's option.
    explicit Argument_c(CLI::Option & Option);

    /// Makes it an error to omit the argument.
    Argument_c & SetRequired();

    /// Lets an option occur any number of times with one value each. The word after the value does not belong to it.
    Argument_c & SetOneValue();

    /// Restricts the values to a few words, which also replace the word of the help texts.
    Argument_c & SetChoices(std::vector<std::string> const & dChoices);

    /// Restrict a number to a range that includes its ends.
    Argument_c & SetRange(int iLeast, int iMost);
    Argument_c & SetRange(double fLeast, double fMost);

    /// Sets a function that the parser calls with each value that the choices and ranges set before allow. It returns
    /// what is wrong with the value, or an empty text.
    Argument_c & SetReader(std::function<std::string(std::string const &)> fnRead);

    /// Makes it an error to use this argument without the other one.
    Argument_c & SetNeeds(Argument_c const & Other);

    /// Makes it an error to use this argument beside the other one.
    Argument_c & SetExcludes(Argument_c const & Other);

    /// Returns whether the command line has the argument. Requires that the command line was read.
    bool IsGiven() const;

private:
    CLI::Option * m_pOption;
};

/// Arguments of one command. It is a handle that is valid while the parser lives.
class Arguments_c
{
public:
    /// Makes the handle of a command's parser.
    explicit Arguments_c(CLI::App & App);

    /// Add an argument that stores its value, and return it. szName is spelled as on the command line, a positional
    /// one without hyphens. szWord names an option's value in help texts, unless SetChoices does. Require that the
    /// variable lives as long as the parser.
    Argument_c AddText(char const * szName, char const * szWord, std::string & sText, char const * szPurpose);
    Argument_c AddTexts(
        char const * szName, char const * szWord, std::vector<std::string> & dTexts, char const * szPurpose);
    Argument_c AddNumber(char const * szName, char const * szWord, int & iNumber, char const * szPurpose);
    Argument_c AddNumber(char const * szName, char const * szWord, double & fNumber, char const * szPurpose);
    Argument_c AddFlag(char const * szName, bool & bFlag, char const * szPurpose);

    /// Adds the flag by which a command prints one JSON document, and returns it.
    Argument_c AddJson(bool & bFlag) { return AddFlag("--json", bFlag, "print one JSON document"); }

    /// Adds an option of which only a reader stores the value, and returns it.
    Argument_c AddRead(char const * szName, char const * szWord, char const * szPurpose);

    /// Sets the lines after the arguments in help texts.
    void SetFooter(char const * szText);

    /// Sets a function that runs after all arguments are read. It returns what is wrong with them together, or an
    /// empty text.
    void SetCheck(std::function<std::string()> fnCheck);

    /// Returns the description of the whole program that has the command.
    HelpCommand_t DescribeProgram() const;

private:
    CLI::App * m_pApp;
};

/// Returns the description of a parser and of its subcommands.
HelpCommand_t DescribeParser(CLI::App const & App);
