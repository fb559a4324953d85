#include "tools/opcodetable/rows.h"

#include "platform/text.h"
#include "zqcore/copcode_internal.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace
{
    // A row before its translation.
    struct Line_t
    {
        std::string sPlace;   // file and line, for errors
        std::string sPattern;
        std::string sFormat;
    };

    // A group before its translation.
    struct Source_t
    {
        std::string sName;
        std::vector<Line_t> dLines;
    };

    // Form in which fields are written.
    struct Kind_t
    {
        unsigned char eKind;   // an OpcodeKind_e
        int nFields;           // fields that it reads
    };

    std::map<std::string, Kind_t> const KINDS = {
        { "r32", { OPCODE_KIND_R32, 1 } },
        { "r16", { OPCODE_KIND_R16, 1 } },
        { "r8", { OPCODE_KIND_R8, 1 } },
        { "mm", { OPCODE_KIND_MM, 1 } },
        { "xmm", { OPCODE_KIND_XMM, 1 } },
        { "cr", { OPCODE_KIND_CR, 1 } },
        { "dr", { OPCODE_KIND_DR, 1 } },
        { "sr", { OPCODE_KIND_SEGMENT, 1 } },
        { "st", { OPCODE_KIND_ST, 1 } },
        { "ra", { OPCODE_KIND_ADDRESS, 1 } },
        { "rx", { OPCODE_KIND_INDEX, 1 } },
        { "y", { OPCODE_KIND_R32_OR_64, 1 } },
        { "rs", { OPCODE_KIND_STACK, 1 } },
        { "rq", { OPCODE_KIND_R64, 1 } },
        { "v", { OPCODE_KIND_BY_SIZE, 1 } },
        { "p", { OPCODE_KIND_MM_OR_XMM, 1 } },
        { "b", { OPCODE_KIND_BYTE, 1 } },
        { "w", { OPCODE_KIND_NUMBER16, 2 } },
        { "d", { OPCODE_KIND_NUMBER32, 4 } },
        { "dq", { OPCODE_KIND_EXTENDED, 4 } },
        { "q", { OPCODE_KIND_NUMBER64, 8 } },
        { "", { OPCODE_KIND_TEXT, 1 } },
        { "sb", { OPCODE_KIND_SIGNED8, 1 } },
        { "sw", { OPCODE_KIND_SIGNED16, 2 } },
        { "sd", { OPCODE_KIND_SIGNED32, 4 } },
        { "jb", { OPCODE_KIND_JUMP8, 1 } },
        { "jw", { OPCODE_KIND_JUMP16, 2 } },
        { "jd", { OPCODE_KIND_JUMP32, 4 } },
        { "rip", { OPCODE_KIND_RELATIVE, 4 } },
    };

    std::map<std::string, unsigned char> const CONDITIONS = {
        { "66?", OPCODE_IF_OPERAND_SIZE },
        { "67?", OPCODE_IF_ADDRESS_SIZE },
        { "F2?", OPCODE_IF_F2 },
        { "F3?", OPCODE_IF_F3 },
        { "noseg?", OPCODE_IF_NO_SEGMENT },
        { "W?", OPCODE_IF_REX_W },
        { "B?", OPCODE_IF_REX_B },
        { "noX?", OPCODE_IF_NO_REX_X },
        { "plain?", OPCODE_IF_NO_PREFIX },
        { "vex", OPCODE_TAKE_VEX },
        { "evex?", OPCODE_IF_EVEX },
        { "vex?", OPCODE_IF_NOT_EVEX },
        { "noW?", OPCODE_IF_NOT_W },
        { "L0?", OPCODE_IF_LENGTH },
        { "L1?", OPCODE_IF_LENGTH + 1 },
        { "L2?", OPCODE_IF_LENGTH + 2 },
        { "noL0?", OPCODE_IF_NOT_LENGTH_16 },
        { "eW?", OPCODE_IF_W_OR_NOT_EVEX },
        { "enoW?", OPCODE_IF_NOT_W_OR_NOT_EVEX },
        { "np?", OPCODE_IF_NO_MANDATORY },
        { "noF?", OPCODE_IF_NO_F2_F3 },
        { "66!", OPCODE_IF_66_ALONE },
        { "F2!", OPCODE_IF_F2_ALONE },
        { "F3!", OPCODE_IF_F3_ALONE },
    };

    std::map<std::string, unsigned char> const SIZES = {
        { "v", OPCODE_SIZE_VECTOR },
        { "v/2", OPCODE_SIZE_HALF },
        { "v/4", OPCODE_SIZE_QUARTER },
        { "v/8", OPCODE_SIZE_EIGHTH },
        { "1", OPCODE_SIZE_1 },
        { "2", OPCODE_SIZE_1 + 1 },
        { "4", OPCODE_SIZE_1 + 2 },
        { "8", OPCODE_SIZE_1 + 3 },
        { "16", OPCODE_SIZE_1 + 4 },
        { "32", OPCODE_SIZE_1 + 5 },
        { "64", OPCODE_SIZE_64 },
    };

    std::map<std::string, unsigned char> const CLASSES = {
        { "x", OPCODE_CLASS_XMM },
        { "vl", OPCODE_CLASS_LENGTH },
        { "vl2", OPCODE_CLASS_HALF },
        { "k", OPCODE_CLASS_MASK },
        { "y", OPCODE_CLASS_R32_OR_64 },
        { "t", OPCODE_CLASS_TILE },
    };

    std::map<std::string, unsigned char> const PLACES = {
        { "reg", OPCODE_PLACE_REG },
        { "lo", OPCODE_PLACE_RM },
        { "vvvv", OPCODE_PLACE_VVVV },
        { "is4", OPCODE_PLACE_IMMEDIATE },
        { "idx", OPCODE_PLACE_INDEX },
    };

    std::map<std::string, unsigned char> const CODES = {
        { "seg", OPCODE_PRINT_SEGMENT },
        { "=cs", OPCODE_SET_SEGMENT },
        { "=ss", OPCODE_SET_SEGMENT + 1 },
        { "=ds", OPCODE_SET_SEGMENT + 2 },
        { "=es", OPCODE_SET_SEGMENT + 3 },
        { "=fs", OPCODE_SET_SEGMENT + 4 },
        { "=gs", OPCODE_SET_SEGMENT + 5 },
        { "=66", OPCODE_SET_OPERAND_SIZE },
        { "=67", OPCODE_SET_ADDRESS_SIZE },
        { "=F2", OPCODE_SET_F2 },
        { "=F3", OPCODE_SET_F3 },
        { "=rex", OPCODE_SET_REX },
        { "=none", OPCODE_SET_NONE },
        { "size", OPCODE_PRINT_SIZE },
        { "vsize", OPCODE_PRINT_VECTOR_SIZE },
        { "1to", OPCODE_PRINT_BROADCAST },
        { "mask", OPCODE_PRINT_MASK },
        { "er", OPCODE_PRINT_ROUNDING },
        { "sae", OPCODE_PRINT_SAE },
    };

    // Translator of the rows of one mode. It knows the names of the groups.
    class Translator_c
    {
    public:
        explicit Translator_c(std::vector<Source_t> const & dSources)
            : m_dSources(dSources)
        {}

        // Returns the translation of a line. Throws RowError_c if the line is wrong.
        Row_t Translate(Line_t const & Line)
        {
            m_pLine = &Line;
            m_nFields = 0;
            Row_t Row;
            std::istringstream Words(Line.sPattern);
            for (std::string sWord; Words >> sWord;)
            {
                AddWord(Row.sPattern, sWord);
            }
            AddFormat(Row.sFormat, Line.sFormat);
            constexpr std::size_t MAX_SIZE = 255;   // bytes that a length byte can count
            bool const bEmpty = Row.sPattern.empty() || Row.sFormat.empty();
            if (bEmpty || Row.sPattern.size() > MAX_SIZE || Row.sFormat.size() > MAX_SIZE)
            {
                Fail("a row needs a pattern and a format of at most " + std::to_string(MAX_SIZE) + " bytes");
            }
            return Row;
        }

    private:
        [[noreturn]] void Fail(std::string const & sWhat) const { throw RowError_c(m_pLine->sPlace + ": " + sWhat); }

        unsigned char Number(std::string const & sText, int nBase) const
        {
            char const * const szDigits = nBase == 16 ? plat::HEX_DIGITS : plat::DECIMAL_DIGITS;
            if (sText.empty() || sText.size() > 2 || sText.find_first_not_of(szDigits) != std::string::npos)
            {
                Fail("no number: '" + sText + "'");
            }
            return static_cast<unsigned char>(std::stoi(sText, nullptr, nBase));
        }

        unsigned char GroupIndex(std::string const & sName) const
        {
            auto const itSource = std::find_if(
                m_dSources.begin(), m_dSources.end(), [&](Source_t const & Source) { return Source.sName == sName; });
            if (itSource == m_dSources.end())
            {
                Fail("no group '" + sName + "' in this mode");
            }
            return static_cast<unsigned char>(itSource - m_dSources.begin());
        }

        // Adds a unit that makes nFields fields. Throws RowError_c if the row then has more than OPCODE_FIELD_LAST.
        void AddUnit(std::string & sPattern, int nFirst, int nMask, int nFields)
        {
            sPattern += static_cast<char>(nFirst);
            sPattern += static_cast<char>(nMask);
            m_nFields += nFields;
            if (m_nFields > OPCODE_FIELD_LAST)
            {
                Fail("too many fields");
            }
        }

        // Adds a word of a pattern. Throws RowError_c if the word is wrong or the row then has too many fields.
        void AddWord(std::string & sPattern, std::string const & sWord)
        {
            auto const itCondition = CONDITIONS.find(sWord);
            if (itCondition != CONDITIONS.end())
            {
                AddUnit(sPattern, itCondition->second, 0, 0);
            }
            else if (sWord[0] == '=')
            {
                AddSize(sPattern, sWord.substr(1));
            }
            else if (sWord == "..")
            {
                AddUnit(sPattern, OPCODE_ANY_BYTE, 0, 1);
            }
            else if (sWord[0] == '@' || sWord[0] == '^')
            {
                int const nBack = sWord[0] == '^' ? OPCODE_STEP_BACK : 0;
                AddUnit(sPattern, OPCODE_SUBTABLE | nBack | GroupIndex(sWord.substr(1)), 0, 2);
            }
            else if (sWord[0] == '+')
            {
                int const nBytes = Number(sWord.substr(1), 10);
                if (nBytes < 1 || nBytes > OPCODE_RAW_LAST)
                {
                    Fail("1 to " + std::to_string(OPCODE_RAW_LAST) + " bytes are taken at once");
                }
                AddUnit(sPattern, nBytes, 0, nBytes);
            }
            else if (sWord[0] == '/')
            {
                int const iField = Number(sWord.substr(1), 10);
                if (iField > 7)
                {
                    Fail("a field of ModRM is 0 to 7");
                }
                AddUnit(sPattern, iField << 3, 7 << 3, 1);
            }
            else
            {
                AddByte(sPattern, sWord);
            }
        }

        // Adds a size like v/2, or v:4 with the bytes of a broadcast element. Throws RowError_c for any other.
        void AddSize(std::string & sPattern, std::string const & sText)
        {
            std::size_t const iColon = std::min(sText.find(':'), sText.size());
            std::string const sElement = iColon == sText.size() ? "1" : sText.substr(iColon + 1);
            auto const itSize = SIZES.find(sText.substr(0, iColon));
            auto const itElement = SIZES.find(sElement);
            if (itSize == SIZES.end() || itElement == SIZES.end() || itElement->second < OPCODE_SIZE_1
                || itElement->second > OPCODE_SIZE_1 + 3)
            {
                Fail("no such size: '" + sText + "'");
            }
            AddUnit(sPattern, OPCODE_MEMORY_SIZE | (itElement->second - OPCODE_SIZE_1) << 4 | itSize->second, 0, 0);
        }

        // Adds a byte like 8B or 50/F8. Throws RowError_c in these cases:
        // - the word has another form.
        // - the mask is 0.
        // - a bit lies outside of the mask.
        // - the row then has too many fields.
        void AddByte(std::string & sPattern, std::string const & sWord)
        {
            std::size_t const iSlash = sWord.find('/');
            int const nByte = Number(sWord.substr(0, iSlash), 16);
            int const nMask = iSlash == std::string::npos ? 0xFF : Number(sWord.substr(iSlash + 1), 16);
            if (nMask == 0 || (nByte & ~nMask) != 0)
            {
                Fail("bits outside of the mask: '" + sWord + "'");
            }
            AddUnit(sPattern, nByte, nMask, 1);
        }

        void AddFormat(std::string & sFormat, std::string const & sText) const
        {
            for (std::size_t i = 0; i != sText.size(); ++i)
            {
                if (sText[i] != '{')
                {
                    sFormat += sText[i];
                    continue;
                }
                std::size_t const iEnd = sText.find('}', i);
                if (iEnd == std::string::npos)
                {
                    Fail("a '{' without '}'");
                }
                AddReference(sFormat, sText.substr(i + 1, iEnd - i - 1));
                i = iEnd;
            }
        }

        // Adds a reference like 3, 3:b, 2.reg:v, 1.w4s2:b, or one of CODES. A blank before a field joins it. Throws
        // RowError_c if there is no such field, kind or slice.
        void AddReference(std::string & sFormat, std::string const & sText) const
        {
            auto const itCode = CODES.find(sText);
            if (itCode != CODES.end())
            {
                sFormat += static_cast<char>(itCode->second);
                return;
            }
            std::size_t const iColon = std::min(sText.find(':'), sText.size());
            std::size_t const iDot = std::min(sText.find('.'), iColon);
            int iField = Number(sText.substr(0, iDot), 10);
            std::string const sSlice = iDot == iColon ? "" : sText.substr(iDot + 1, iColon - iDot - 1);
            std::string const sKind = iColon == sText.size() ? "" : sText.substr(iColon + 1);
            auto const itPlace = PLACES.find(sSlice);
            auto const itClass = CLASSES.find(sKind);
            // "y" is a class in vvvv, elsewhere a kind.
            bool const bVector =
                itPlace != PLACES.end() && itClass != CLASSES.end() && !(sKind == "y" && sSlice != "vvvv");
            auto const itKind = KINDS.find(sKind);
            int const nFields = bVector ? 1 : itKind == KINDS.end() ? m_nFields + 1 : itKind->second.nFields;
            if (iField < 1 || iField + nFields - 1 > m_nFields)
            {
                Fail("no such field or kind: '" + sText + "'");
            }
            if (!sFormat.empty() && sFormat.back() == ' ')
            {
                sFormat.pop_back();
                iField |= OPCODE_BLANK;
            }
            sFormat += static_cast<char>(iField);
            if (bVector)
            {
                sFormat += static_cast<char>(OPCODE_SLICE_EXPLICIT << OPCODE_SLICE_SHIFT | OPCODE_KIND_VECTOR);
                sFormat += static_cast<char>(itClass->second << 4 | itPlace->second);
                return;
            }
            AddSelector(sFormat, sSlice, itKind->second.eKind);
        }

        // Adds the selector of a field, and the byte of an explicit slice like w4s2. Throws RowError_c if there is no
        // such slice.
        void AddSelector(std::string & sFormat, std::string const & sSlice, int eKind) const
        {
            if (sSlice.empty() || sSlice == "lo" || sSlice == "reg")
            {
                int const eSlice = sSlice.empty()   ? OPCODE_SLICE_BYTE
                                   : sSlice == "lo" ? OPCODE_SLICE_LOW
                                                    : OPCODE_SLICE_REGISTER;
                sFormat += static_cast<char>(eSlice << OPCODE_SLICE_SHIFT | eKind);
                return;
            }
            if (sSlice.size() != 4 || sSlice[0] != 'w' || sSlice[2] != 's')
            {
                Fail("no such slice: '" + sSlice + "'");
            }
            sFormat += static_cast<char>(OPCODE_SLICE_EXPLICIT << OPCODE_SLICE_SHIFT | eKind);
            sFormat += static_cast<char>(Number(sSlice.substr(1, 1), 10) << 4 | Number(sSlice.substr(3, 1), 10));
        }

        std::vector<Source_t> const & m_dSources;
        Line_t const * m_pLine = nullptr;
        int m_nFields = 0;   // fields of the row's pattern
    };

    // Removes the mode that a line starts with. Returns false for a line of the other mode.
    bool TakeMode(std::string & sLine, std::string const & sMode)
    {
        bool const bMarked = sLine.compare(0, 3, "32:") == 0 || sLine.compare(0, 3, "64:") == 0;
        bool const bOurs = !bMarked || sLine.compare(0, 2, sMode) == 0;
        sLine.erase(0, bMarked ? 3 : 0);
        return bOurs;
    }

    // Adds the group that a line begins. Throws RowError_c if the line begins none, or one whose name is known.
    void AddGroup(std::string const & sLine, std::string const & sPlace, std::vector<Source_t> & dSources)
    {
        std::istringstream Words(sLine);
        std::string sWord, sName;
        if (!(Words >> sWord >> sName) || sWord != "group")
        {
            throw RowError_c(sPlace + ": neither a row nor a group");
        }
        auto const HasName = [&sName](Source_t const & Source) { return Source.sName == sName; };
        if (std::any_of(dSources.begin(), dSources.end(), HasName))
        {
            throw RowError_c(sPlace + ": a second group of this name");
        }
        dSources.push_back({ sName, {} });
    }

    // Appends the groups of a file, without the lines of the other mode. Throws RowError_c if the file can't be opened
    // or is wrong.
    void ReadFile(std::string const & sFile, std::string const & sMode, std::vector<Source_t> & dSources)
    {
        std::ifstream Stream(sFile);
        if (!Stream)
        {
            throw RowError_c(sFile + ": can't be opened");
        }
        std::string sText;
        for (int iLine = 1; std::getline(Stream, sText); ++iLine)
        {
            std::string const sPlace = sFile + "(" + std::to_string(iLine) + ")";
            sText = sText.substr(0, sText.find('#'));
            bool const bBlank = sText.find_first_not_of(' ') == std::string::npos;
            if (bBlank || !TakeMode(sText, sMode))
            {
                continue;
            }
            std::size_t const iBar = sText.find('|');
            if (iBar == std::string::npos)
            {
                AddGroup(sText, sPlace, dSources);
                continue;
            }
            if (dSources.empty())
            {
                throw RowError_c(sPlace + ": a row before the first group");
            }
            std::size_t const iEnd =
                sText.find_last_not_of(' ') + 1;   // a comment is cut off, the blanks before it not
            if (iEnd > iBar + 1 && sText[iBar + 1] != ' ')
            {
                throw RowError_c(sPlace + ": no blank after the bar");
            }
            std::string const sFormat = iEnd > iBar + 2 ? sText.substr(iBar + 2, iEnd - iBar - 2) : "";
            dSources.back().dLines.push_back({ sPlace, sText.substr(0, iBar), sFormat });
        }
    }
}

std::vector<Group_t> ReadGroups(std::vector<std::string> const & dFiles, std::string const & sMode)
{
    std::vector<Source_t> dSources;
    for (std::string const & sFile : dFiles)
    {
        ReadFile(sFile, sMode, dSources);
    }
    if (dSources.empty() || dSources.size() > OPCODE_MAX_GROUPS)
    {
        throw RowError_c("1 to " + std::to_string(OPCODE_MAX_GROUPS) + " groups make a table");
    }
    Translator_c Translator(dSources);
    std::vector<Group_t> dGroups;
    for (Source_t const & Source : dSources)
    {
        Group_t & Group = dGroups.emplace_back(Group_t{ Source.sName, {} });
        for (Line_t const & Line : Source.dLines)
        {
            Group.dRows.push_back(Translator.Translate(Line));
        }
    }
    return dGroups;
}
