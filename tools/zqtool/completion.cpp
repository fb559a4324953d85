// zqtool completion: the scripts that complete arguments, made of the descriptions that --help prints.
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/help.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace
{
    using Commands_t = std::vector<HelpCommand_t>;

    std::string Joined(std::vector<std::string> const & dWords)
    {
        std::string sOut;
        for (std::string const & sWord : dWords)
        {
            sOut += (sOut.empty() ? "" : " ") + sWord;
        }
        return sOut;
    }

    std::vector<std::string> NamesOf(Commands_t const & dCommands)
    {
        std::vector<std::string> dNames;
        std::transform(dCommands.begin(), dCommands.end(), std::back_inserter(dNames),
            [](HelpCommand_t const & Command) { return Command.sName; });
        return dNames;
    }

    // Returns the words that a value can be, with blanks between them. Returns an empty text if there are none.
    std::string ChoicesOf(HelpOption_t const & Option, Commands_t const & dCommands)
    {
        if (Option.bPositional && Option.dNames[0] == "COMMAND")
        {
            return Joined(NamesOf(dCommands));
        }
        std::string sChoices = Option.sValue.find('|') == std::string::npos ? "" : Option.sValue;
        std::ranges::replace(sChoices, '|', ' ');
        return sChoices;
    }

    // Returns the branch for a command: its options, and what completes the values of each and the command's argument.
    std::string BashCase(HelpCommand_t const & Command, Commands_t const & dCommands)
    {
        std::string sValues, sArguments;
        for (HelpOption_t const & Option : Command.dOptions)
        {
            if (Option.bPositional)
            {
                sArguments = ChoicesOf(Option, dCommands);
            }
            else if (!Option.sValue.empty())
            {
                sValues += "            " + Option.dNames.back() + ") options= arguments='"
                           + ChoicesOf(Option, dCommands) + "' ;;\n";
            }
        }
        return "    " + Command.sName + ")\n        options='" + Joined(OptionNames(Command)) + "' arguments='"
               + sArguments + "'\n"
               + (sValues.empty() ? "" : "        case $previous in\n" + sValues + "        esac\n") + "        ;;\n";
    }

    // Returns the script for bash. If the script has no reply, bash itself completes names of files.
    std::string BashScript(HelpCommand_t const & Program)
    {
        Commands_t const & dCommands = Program.dCommands;
        std::string sOut = "# bash completion for zqtool\n"
                           "_zqtool()\n"
                           "{\n"
                           "    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
                           "    local command= options arguments i\n"
                           "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
                           "        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]}; break; }\n"
                           "    done\n"
                           "    case $command in\n"
                           "    '') options='"
                           + Joined(OptionNames(Program)) + "' arguments='" + Joined(NamesOf(dCommands)) + "' ;;\n";
        for (HelpCommand_t const & Command : dCommands)
        {
            sOut += BashCase(Command, dCommands);
        }
        return sOut
               + "    esac\n"
                 "    [[ $word == -* ]] && arguments=$options\n"
                 "    COMPREPLY=($(compgen -W \"$arguments\" -- \"$word\"))\n"
                 "}\n"
                 "complete -o bashdefault -o default -F _zqtool zqtool\n";
    }

    // Returns a text escaped for single quotes and, inside of them, for brackets or the place after a colon.
    std::string ZshText(std::string_view sText)
    {
        std::string sOut;
        for (char const cText : sText)
        {
            sOut += cText == '\''                                                   ? "'\\''"
                    : cText == '[' || cText == ']' || cText == ':' || cText == '\\' ? std::string("\\") + cText
                                                                                    : std::string(1, cText);
        }
        return sOut;
    }

    std::string ZshAction(HelpOption_t const & Option, Commands_t const & dCommands)
    {
        std::string const sChoices = ChoicesOf(Option, dCommands);
        return sChoices.empty() ? "_files" : "(" + sChoices + ")";
    }

    // Returns the specifications of a command's options and arguments, as _arguments of zsh expects them.
    std::string ZshArguments(HelpCommand_t const & Command, Commands_t const & dCommands)
    {
        std::string sOut;
        for (HelpOption_t const & Option : Command.dOptions)
        {
            std::string const sAction = ":" + ZshAction(Option, dCommands);
            if (Option.bPositional)
            {
                sOut += std::string(" \\\n            '")
                        + (Option.bMany        ? "*"
                            : Option.bRequired ? ""
                                               : ":")
                        + ":" + Option.dNames[0] + sAction + "'";
                continue;
            }
            for (std::string const & sName : Option.dNames)
            {
                sOut += std::string(" \\\n            '") + (Option.bMany ? "*" : "") + sName + "["
                        + ZshText(Option.sPurpose) + "]"
                        + (Option.sValue.empty() ? "" : ":" + ZshText(Option.sValue) + sAction) + "'";
            }
        }
        return sOut;
    }

    // Returns the script for zsh, which zsh loads as a function or sources.
    std::string ZshScript(HelpCommand_t const & Program)
    {
        Commands_t const & dCommands = Program.dCommands;
        std::string sOut = "#compdef zqtool\n"
                           "_zqtool()\n"
                           "{\n"
                           "    local curcontext=$curcontext state line\n"
                           "    local -a commands=(\n";
        for (HelpCommand_t const & Command : dCommands)
        {
            sOut += "        '" + Command.sName + ":" + ZshText(Command.sPurpose) + "'\n";
        }
        sOut += "    )\n"
                "    _arguments -C"
                + ZshArguments(Program, dCommands)
                + " \\\n            '1:command:->command' '*::argument:->argument'\n"
                  "    case $state in\n"
                  "    command) _describe command commands ;;\n"
                  "    argument)\n"
                  "        case $words[1] in\n";
        for (HelpCommand_t const & Command : dCommands)
        {
            sOut += "        " + Command.sName + ") _arguments" + ZshArguments(Command, dCommands) + " ;;\n";
        }
        return sOut
               + "        esac\n"
                 "        ;;\n"
                 "    esac\n"
                 "}\n"
                 "if [ \"$funcstack[1]\" = _zqtool ]; then\n"
                 "    _zqtool \"$@\"\n"
                 "else\n"
                 "    compdef _zqtool zqtool\n"
                 "fi\n";
    }
}

CommandRun_t PrepareCompletion(Arguments_c & Arguments)
{
    auto const pShell = std::make_shared<std::string>();
    Arguments.AddText("SHELL", "", *pShell, "bash or zsh").SetRequired().SetChoices({ "bash", "zsh" });
    Arguments.SetFooter("Example: source <(zqtool completion bash)\n"
                        "An installed zqtool has both scripts where the shells look for them.");
    return [pShell, Arguments]
    {
        HelpCommand_t const Program = Arguments.DescribeProgram();
        std::fputs((*pShell == "zsh" ? ZshScript(Program) : BashScript(Program)).c_str(), stdout);
        return EXIT_DONE;
    };
}
