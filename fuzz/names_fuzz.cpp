// names_fuzz.cpp: texts of any bytes as paths, folded paths, wide text and names of the registry, compared with models.
//
// The first byte is the room for converted text, modulo the length of the text plus 1. The rest, up to a zero, is the
// text.
#include "fuzz/fuzz_support.h"
#include "platform/common/registryrecord.h"
#include "platform/text.h"
#include "zqcore/cfile_internal.h"

#include <climits>
#include <vector>

namespace
{
    void CheckParts(std::string const & sText)
    {
        constexpr std::size_t LIMIT = FOLDED_LENGTH;   // a FileName_c has the same one
        std::string const sPath = sText.substr(0, LIMIT);
        std::size_t const nDrive = sPath.size() > 1 && sPath[1] == ':' ? 2 : 0;
        std::size_t const iSeparator = sPath.substr(nDrive).find_last_of("/\\");
        std::size_t const iName = nDrive + iSeparator + 1;   // npos + 1 is 0
        std::string const sName = sPath.substr(iName);
        std::size_t const iDot = std::min(sName.rfind('.'), sName.size());
        FileName_c const Name(sText.c_str());
        Require(Name.GetDrive() == sPath.substr(0, nDrive).c_str());
        Require(Name.GetDir() == sPath.substr(nDrive, iName - nDrive).c_str());
        Require(Name.GetName() == sName.substr(0, iDot).c_str());
        Require(Name.GetExt() == sName.substr(iDot).c_str());
        Require(Name.GetFileName() == sName.c_str());

        std::string sFolded = Lower(sPath);
        std::replace(sFolded.begin(), sFolded.end(), '/', '\\');
        FoldedPath_c Folded(sText.c_str());
        Require(sFolded == static_cast<char const *>(Folded));
        Require(Folded.IsCut() == (sText.size() > LIMIT));
        Require(Folded.GetBare() == Lower(sName));
        Require(FoldedName_c(sText.c_str()).GetText() == Lower(sName));
        sFolded += sFolded.ends_with('\\') || sFolded.size() == LIMIT ? "" : "\\";
        Require(Folded.AppendSeparator() == sFolded.ends_with('\\'));
        Require(sFolded == static_cast<char const *>(Folded));
    }

    // Returns the number of bytes of the character at the start of a text, by the grammar of RFC 3629, or 0.
    std::size_t CharacterBytes(std::string_view sText)
    {
        auto const Is = [&](std::size_t i, int iFrom, int iTo)
        { return i < sText.size() && (sText[i] & 0xFF) >= iFrom && (sText[i] & 0xFF) <= iTo; };
        auto const IsTail = [&](std::size_t i) { return Is(i, 0x80, 0xBF); };
        bool const bThree = (Is(0, 0xE0, 0xE0) && Is(1, 0xA0, 0xBF)) || (Is(0, 0xED, 0xED) && Is(1, 0x80, 0x9F))
                            || ((Is(0, 0xE1, 0xEC) || Is(0, 0xEE, 0xEF)) && IsTail(1));
        bool const bFour = (Is(0, 0xF0, 0xF0) && Is(1, 0x90, 0xBF)) || (Is(0, 0xF1, 0xF3) && IsTail(1))
                           || (Is(0, 0xF4, 0xF4) && Is(1, 0x80, 0x8F));
        return Is(0, 0, 0x7F)                    ? 1
               : Is(0, 0xC2, 0xDF) && IsTail(1)  ? 2
               : bThree && IsTail(2)             ? 3
               : bFour && IsTail(2) && IsTail(3) ? 4
                                                 : 0;
    }

    void CheckWide(std::string const & sText, std::size_t nRoom)
    {
        std::vector<std::size_t> dBytes;   // of each wide character
        bool bUtf8 = true;
        for (std::string_view sRest = sText; !sRest.empty(); sRest.remove_prefix(dBytes.back()))
        {
            bUtf8 = bUtf8 && CharacterBytes(sRest) > 0;
            dBytes.push_back(std::max<std::size_t>(CharacterBytes(sRest), 1));
        }
        Require(plat::IsUtf8(sText.c_str()) == bUtf8);
        std::vector<wchar_t> dWide(sText.size() + 1), dCut(nRoom + 1);   // of exactly the room, for the checker
        std::vector<char> dBack(nRoom + 1);
        Require(plat::WideFromUtf8(dWide.data(), dWide.size(), sText.c_str()) == dBytes.size());
        Require(plat::WideFromUtf8(dCut.data(), nRoom + 1, sText.c_str()) == std::min(dBytes.size(), nRoom));
        std::size_t nFits = 0;
        for (std::size_t i = 0; i < dBytes.size() && nFits + dBytes[i] <= nRoom; ++i)
        {
            nFits += dBytes[i];
        }
        Require(plat::Utf8FromWide(dBack.data(), nRoom + 1, dWide.data()) == nFits);
        Require(sText.substr(0, nFits) == dBack.data());
    }

    void CheckRegistryNames(std::string const & sText)
    {
        constexpr char NEVER_FIRST[] = { plat::KEY_MARK, plat::VALUE_MARK, plat::BUSY_MARK, '.', '\0' };
        std::string sFile, sValue, sName, sSame;
        bool const bKey = plat::KeyNameToDisk(sText, sFile);
        Require(bKey == (sText.size() <= plat::NAME_LIMIT));
        Require(plat::ValueNameToDisk(sText, sValue) == bKey);
        Require(!bKey || sFile.size() <= NAME_MAX);
        Require(!bKey || sValue.size() <= NAME_MAX);
        Require(!bKey || sValue[0] == plat::VALUE_MARK);
        Require(sFile.find('/') == std::string::npos);
        Require(sFile.empty() || !std::strchr(NEVER_FIRST, sFile[0]));
        bool const bNamed =
            bKey && !plat::IsShortenedName(sFile) && !sText.empty() && sText.find('\\') == std::string::npos;
        Require(plat::KeyNameFromDisk(sFile.c_str(), sName) == bNamed);
        Require(!bNamed || sName == Lower(sText));
        bool const bOnDisk = plat::KeyNameFromDisk(sText.c_str(), sName);
        Require(!bOnDisk || plat::KeyNameToDisk(sName, sSame));
        Require(!bOnDisk || sSame == sText);
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    std::size_t const nRoom = Input.Get();
    std::string const sText = Input.Extract().c_str();
    CheckParts(sText);
    CheckWide(sText, nRoom % (sText.size() + 1));
    CheckRegistryNames(sText);
    return 0;
}
