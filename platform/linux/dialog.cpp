#include "platform/dialog.h"

#include "platform/folding.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/faultguard.h"
#include "platform/text.h"

#include <atomic>
#include <csignal>
#include <iterator>
#include <optional>

namespace plat
{
    namespace
    {
        struct Choice_t
        {
            char cKey;   // letter that the user types
            char const * szLabel;
            DialogAnswer_e eAnswer;
        };

        struct Choices_t
        {
            int nChoices;
            Choice_t dChoices[3];
            DialogAnswer_e eGoOn;   // answer that lets the program continue
        };

        constexpr Choice_t CHOICE_OK = { 'o', "(O)k", DialogAnswer_e::Ok };
        constexpr Choice_t CHOICE_CANCEL = { 'c', "(C)ancel", DialogAnswer_e::Cancel };

        // Choices in the order of DialogButtons_e.
        constexpr Choices_t CHOICES[] = {
            { 1, { CHOICE_OK }, DialogAnswer_e::Ok },
            { 2, { CHOICE_OK, CHOICE_CANCEL }, DialogAnswer_e::Ok },
            { 3,
                { { 'a', "(A)bort", DialogAnswer_e::Abort }, { 'r', "(R)etry", DialogAnswer_e::Retry },
                    { 'i', "(I)gnore", DialogAnswer_e::Ignore } },
                DialogAnswer_e::Ignore },
            { 3, { { 'y', "(Y)es", DialogAnswer_e::Yes }, { 'n', "(N)o", DialogAnswer_e::No }, CHOICE_CANCEL },
                DialogAnswer_e::No },
        };

        std::atomic<DialogHandler_t> g_fnHandler{ nullptr };

        // Prints a text on standard error, escaped so that the terminal obeys only its tabs and line ends.
        void Print(char const * szText)
        {
            char szShown[1024];
            while (*szText != 0)
            {
                WriteFully(STDERR_FILENO, szShown, TextEscape(szShown, sizeof(szShown), szText, Controls_e::Layout));
            }
        }

        // Returns whether this process may ask at a terminal. A process in the background would be stopped for trying.
        bool HasTerminal()
        {
            return isatty(STDIN_FILENO) && isatty(STDERR_FILENO) && tcgetpgrp(STDIN_FILENO) == getpgrp();
        }

        void PrintChoices(Choices_t const & Choices)
        {
            for (int iChoice = 0; iChoice < Choices.nChoices; ++iChoice)
            {
                Print(Choices.dChoices[iChoice].szLabel);
                Print(Choices.dChoices[iChoice].eAnswer == Choices.eGoOn ? "* " : " ");
            }
            Print("? ");
        }

        // Scope in which SIGTERM, SIGTTIN and the keys that end or stop a process have their default effect. A fault
        // filter blocks these signals. A handler of the host may wait for the thread that crashed. SIGTTIN stops a
        // process that was moved to the background.
        class KeysAct_c
        {
        public:
            KeysAct_c()
            {
                struct sigaction Default = {};
                sigset_t Set;
                sigemptyset(&Set);
                for (std::size_t i = 0; i < std::size(SIGNALS); ++i)
                {
                    sigaction(SIGNALS[i], &Default, &m_dPrevious[i]);
                    sigaddset(&Set, SIGNALS[i]);
                }
                pthread_sigmask(SIG_UNBLOCK, &Set, &m_Mask);
            }
            ~KeysAct_c()
            {
                pthread_sigmask(SIG_SETMASK, &m_Mask, nullptr);
                for (std::size_t i = 0; i < std::size(SIGNALS); ++i)
                {
                    sigaction(SIGNALS[i], &m_dPrevious[i], nullptr);
                }
            }
            KeysAct_c(KeysAct_c const &) = delete;
            KeysAct_c & operator=(KeysAct_c const &) = delete;

        private:
            static constexpr int SIGNALS[] = { SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGTTIN };
            struct sigaction m_dPrevious[std::size(SIGNALS)];
            sigset_t m_Mask;
        };

        // Reads one whole line and returns its first byte that is not 0, folded. Returns a line end for an empty line,
        // and 0 at the end of the input.
        char ReadKey()
        {
            char cFirst = 0;
            char cByte = 0;
            while (cByte != '\n' && ReadFully(STDIN_FILENO, &cByte, 1) == 1)
            {
                cFirst = cFirst == 0 ? cByte : cFirst;
            }
            return Folded(cFirst);
        }

        // Asks until a line begins with a key, and returns its answer. An empty line, or the end of the input, selects
        // eGoOn.
        DialogAnswer_e AskTerminal(Choices_t const & Choices)
        {
            for (;;)
            {
                PrintChoices(Choices);
                char const cKey = ReadKey();
                if (cKey == 0 || cKey == '\n')
                {
                    return Choices.eGoOn;
                }
                for (int iChoice = 0; iChoice < Choices.nChoices; ++iChoice)
                {
                    if (cKey == Choices.dChoices[iChoice].cKey)
                    {
                        return Choices.dChoices[iChoice].eAnswer;
                    }
                }
            }
        }

        // Prints the texts, asks at a terminal if there is one, and returns the answer. Uses no heap, because dialogs
        // are shown during a crash too.
        DialogAnswer_e ShowOnTerminal(Dialog_t const & Dialog)
        {
            DialogPrint(Dialog.szCaption, Dialog.szText);
            Choices_t const & Choices = CHOICES[static_cast<int>(Dialog.eButtons)];
            if (!HasTerminal())
            {
                return Choices.eGoOn;
            }
            std::optional<KeysAct_c> KeysAct;
            if (FaultFilterIsMine())
            {
                KeysAct.emplace();
            }
            return AskTerminal(Choices);
        }
    }

    void DialogPrint(char const * szCaption, char const * szText)
    {
        DialogPrintLine(szCaption);
        DialogPrintLine(szText);
    }

    void DialogPrintLine(char const * szLine)
    {
        Print(szLine);
        Print("\n");
    }

    DialogAnswer_e DialogShow(Dialog_t const & Dialog)
    {
        DialogHandler_t const fnHandler = g_fnHandler.load();
        return fnHandler != nullptr ? fnHandler(Dialog) : ShowOnTerminal(Dialog);
    }

    bool DialogIsAttended()
    {
        return g_fnHandler.load() != nullptr || HasTerminal();
    }

    DialogHandler_t DialogSetHandler(DialogHandler_t fnHandler)
    {
        return g_fnHandler.exchange(fnHandler);
    }
}
