#include "tools/zqtool/text.h"

#include "platform/text.h"
#include "zqcore/cserialize_internal.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{
    // Returns the number of bytes of the UTF-8 character (RFC 3629) that a non-empty text begins with. Returns 0 if the
    // character is invalid or controls a terminal: a control character, a line end or a change of writing direction.
    std::size_t CharacterLength(std::string_view sText)
    {
        auto const cLead = static_cast<unsigned char>(sText[0]);
        if (cLead < 0x80)
        {
            return cLead >= ' ' && cLead != 0x7F ? 1 : 0;
        }
        std::size_t const nBytes = cLead >= 0xF0 ? 4 : cLead >= 0xE0 ? 3 : 2;
        char szCharacter[5] = {};
        char szShown[8];   // has room for one escape
        sText.copy(szCharacter, nBytes);
        char const * szRest = szCharacter;
        plat::TextEscape(szShown, sizeof szShown, szRest, plat::Controls_e::None);
        return std::strcmp(szShown, szCharacter) == 0 ? nBytes : 0;
    }
}

std::string Printable(std::string_view sText)
{
    std::string sOut;
    while (!sText.empty())
    {
        std::size_t const nBytes = CharacterLength(sText);
        sOut += nBytes ? sText.substr(0, nBytes) : "\xEF\xBF\xBD";   // U+FFFD
        sText.remove_prefix(nBytes ? nBytes : 1);
    }
    return sOut;
}

std::string PrintableLine(std::string_view sText)
{
    std::string sOut;
    for (char const cByte : sText)
    {
        sOut += cByte == '\t' ? std::string_view("    ") : std::string_view(&cByte, 1);
    }
    return Printable(sOut);
}

std::string HtmlEscaped(std::string_view sText)
{
    std::string sOut;
    for (char const cByte : sText)
    {
        switch (cByte)
        {
        case '&':
            sOut += "&amp;";
            break;
        case '<':
            sOut += "&lt;";
            break;
        case '>':
            sOut += "&gt;";
            break;
        case '"':
            sOut += "&quot;";
            break;
        default:
            sOut += cByte;
        }
    }
    return sOut;
}

std::string JsonQuoted(std::string_view sText)
{
    std::string sOut = "\"";
    for (char const cByte : sText)
    {
        if (static_cast<unsigned char>(cByte) < 0x20 || cByte == '<' || cByte == '"' || cByte == '\\')
        {
            char szCode[8];
            std::snprintf(szCode, sizeof szCode, "\\u%04X", static_cast<unsigned>(cByte));
            sOut += szCode;
        }
        else
        {
            sOut += cByte;
        }
    }
    return sOut + '"';
}

std::string Quoted(std::string_view sText)
{
    return std::string("\"").append(sText).append("\"");
}

std::string ArchiveVersionText(std::uint32_t dwVersion)
{
    return std::to_string(VersionMajor(dwVersion)) + "." + std::to_string(VersionMinor(dwVersion));
}

bool IsFirstByte(char cByte)
{
    return !plat::ContinuesUtf8(cByte);
}

std::size_t WidthOf(std::string_view sText)
{
    return static_cast<std::size_t>(std::count_if(sText.begin(), sText.end(), IsFirstByte));
}

std::string HexWord(std::uint32_t nNumber)
{
    char szNumber[16];
    std::snprintf(szNumber, sizeof szNumber, "%08X", static_cast<unsigned>(nNumber));
    return szNumber;
}

std::string Counted(std::uint64_t nCount, std::string const & sNoun)
{
    return std::to_string(nCount) + " " + sNoun + (nCount == 1 ? "" : "s");
}

std::string Coloured(std::string_view sText, Colour_e eColour)
{
    // Parameters of SGR (ECMA-48), by Colour_e.
    static constexpr char const * COLOURS[] = { "1", "1;36", "1;33", "2", "1;31", "32" };
    return std::string("\x1B[") + COLOURS[static_cast<std::size_t>(eColour)] + "m" + std::string(sText) + "\x1B[0m";
}
