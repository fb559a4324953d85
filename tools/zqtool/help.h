// help.h: descriptions of commands and arguments, and the texts made of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Description of an option or a positional argument.
struct HelpOption_t
{
    std::vector<std::string> dNames;   // "-h", "--help"; of a positional argument its word, such as FILE
    std::string sValue;                // word for its value, or the choices, as "32|64"; empty for a flag, and for a
                                       // positional argument without choices
    std::string sPurpose;
    bool bPositional = false, bRequired = false, bMany = false;   // bMany: whether it accepts any number of values

    /// Returns how --help spells it: "-h, --help", "--html OUT", "FILE...".
    std::string Spelling() const;
};

/// Description of a command or of the program.
struct HelpCommand_t
{
    std::string sName;   // empty for the program itself
    std::string sPurpose;
    std::string sVersion;                   // of the program, with its name
    std::string sFooter;                    // lines of text; empty ones divide paragraphs
    std::vector<HelpOption_t> dOptions;     // the positional ones first
    std::vector<HelpCommand_t> dCommands;   // of the program, in order

    /// Returns the line of usage: the command, [OPTION...] and the positional arguments.
    std::string Usage() const;

    /// Returns the purpose as a sentence, with a capital and a full stop.
    std::string Sentence() const;
};

/// Returns all spellings of a command's options, as "-h" and "--help".
std::vector<std::string> OptionNames(HelpCommand_t const & Command);

/// Returns what --help prints: usage, purpose, subcommands, arguments, options and footer.
std::string HelpText(HelpCommand_t const & Command);

/// Returns "; did you mean X?" with the most similar of the known words, or an empty text if none is similar.
std::string Suggestion(std::string_view sWord, std::vector<std::string> const & dKnown);

/// Reports a command that is none of the known ones, with its Suggestion, and returns EXIT_USAGE.
int ReportNoCommand(std::string const & sCommand, std::vector<std::string> const & dKnown);

/// Prints a line about wrong arguments on standard error, with where to read more, and returns EXIT_USAGE. sCommand is
/// empty for the program itself.
int ReportMisuse(std::string_view sText, std::string_view sCommand);
