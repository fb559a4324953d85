#include "platform/common/folderrecords.h"

#include "platform/folderwatch.h"
#include "platform/text.h"

#include <cstring>
#include <iterator>

namespace plat
{
    namespace
    {
        constexpr std::size_t NAME_BYTES = 255;   // most bytes of a file's name

        // Returns the size of a record in bytes, without the padding before the next one.
        std::size_t RecordBytes(std::u16string const & sName)
        {
            return sizeof(FolderChange_t) + sName.size() * sizeof(char16_t);
        }

        // Rounds a size up to a multiple of 4 bytes, where the next record begins.
        std::size_t RoundUp(std::size_t nBytes)
        {
            return (nBytes + 3) & ~std::size_t(3);
        }
    }

    void AppendUnits(std::u16string & sUnits, std::string const & sName)
    {
        wchar_t wszWide[NAME_BYTES + 1];
        std::size_t const nWide = WideFromUtf8(wszWide, std::size(wszWide), sName.c_str());
        for (std::size_t i = 0; i < nWide; ++i)
        {
            auto const cText = static_cast<char32_t>(wszWide[i]);
            bool const bTwo = cText >= 0x10000;   // surrogates of UTF-16 (RFC 2781)
            if (bTwo)
            {
                sUnits += static_cast<char16_t>(0xD7C0 + (cText >> 10));
            }
            sUnits += static_cast<char16_t>(bTwo ? 0xDC00 + (cText & 0x3FF) : cText);
        }
    }

    void WriteRecords(std::vector<std::u16string> const & dNames, char * pBuffer, std::size_t nBytes)
    {
        std::size_t nAll = 0;
        for (std::u16string const & sName : dNames)
        {
            nAll = RoundUp(nAll) + RecordBytes(sName);
        }
        if (nAll > nBytes)
        {
            return;
        }
        for (std::u16string const & sName : dNames)
        {
            std::size_t const nRecord = RecordBytes(sName);
            std::size_t const nNext = &sName == &dNames.back() ? 0 : RoundUp(nRecord);
            FolderChange_t const Head{ static_cast<std::uint32_t>(nNext), FOLDER_CHANGE_MODIFIED,
                static_cast<std::uint32_t>(nRecord - sizeof(FolderChange_t)) };
            std::memcpy(pBuffer, &Head, sizeof Head);
            std::memcpy(pBuffer + sizeof Head, sName.data(), nRecord - sizeof Head);
            pBuffer += nNext;
        }
    }
}
