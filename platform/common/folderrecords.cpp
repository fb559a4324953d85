#include "platform/common/folderrecords.h"

#include "platform/files.h"
#include "platform/folderwatch.h"
#include "platform/text.h"

#include <cstring>
#include <iterator>

namespace plat
{
    namespace
    {
        // Returns the size of a record in bytes, without the padding before the next one.
        std::size_t RecordBytes(std::u16string const & sName)
        {
            return sizeof(FolderChange_t) + sName.size() * sizeof(char16_t);
        }

        // Returns a size rounded up to a multiple of 4 bytes, where the next record begins.
        std::size_t RoundUp(std::size_t nBytes)
        {
            return (nBytes + 3) & ~std::size_t(3);
        }
    }

    void AppendUnits(std::u16string & sUnits, std::string const & sName)
    {
        wchar_t wszWide[FILE_NAME_LIMIT + 1];
        std::size_t const nWide = WideFromUtf8(wszWide, std::size(wszWide), sName.c_str());
        for (std::size_t i = 0; i < nWide; ++i)
        {
            char16_t dUnits[2];
            sUnits.append(dUnits, PutUtf16(dUnits, static_cast<char32_t>(wszWide[i])));
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
