#include "platform/common/registryrecord.h"

#include "platform/bytes.h"
#include "platform/folding.h"
#include "platform/text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace plat
{
    namespace
    {
        // A record is "ZQRV" and then, as 32-bit words with the lowest byte first: the type, the length of the name,
        // the length of the data, and the checksum of all but itself. The name as the writer spelled it and the data
        // follow.
        constexpr char MAGIC[] = { 'Z', 'Q', 'R', 'V' };
        constexpr std::size_t TYPE_AT = 4;
        constexpr std::size_t NAME_SIZE_AT = 8;
        constexpr std::size_t DATA_SIZE_AT = 12;
        constexpr std::size_t CHECK_AT = 16;
        constexpr std::size_t HEADER_SIZE = 20;

        constexpr char SHORTENED_MARK = '~';   // before the hash in a shortened name

        // Returns the FNV-1a of 32 bits (RFC 9923) over a record without its checksum.
        std::uint32_t Checksum(RecordBytes_t const & dBytes)
        {
            std::uint32_t dwSum = 0x811C9DC5u;
            for (std::size_t iByte = 0; iByte < dBytes.size(); ++iByte)
            {
                if (iByte < CHECK_AT || iByte >= HEADER_SIZE)
                {
                    dwSum = (dwSum ^ static_cast<unsigned char>(dBytes[iByte])) * 0x01000193u;
                }
            }
            return dwSum;
        }

        RecordBytes_t PackRecord(Record_t const & Record)
        {
            RecordBytes_t dBytes(HEADER_SIZE);
            std::memcpy(dBytes.data(), MAGIC, sizeof(MAGIC));
            WordToLittle(dBytes.data() + TYPE_AT, static_cast<std::uint32_t>(Record.eType));
            WordToLittle(dBytes.data() + NAME_SIZE_AT, static_cast<std::uint32_t>(Record.sName.size()));
            WordToLittle(dBytes.data() + DATA_SIZE_AT, static_cast<std::uint32_t>(Record.sData.size()));
            dBytes.insert(dBytes.end(), Record.sName.begin(), Record.sName.end());
            dBytes.insert(dBytes.end(), Record.sData.begin(), Record.sData.end());
            WordToLittle(dBytes.data() + CHECK_AT, Checksum(dBytes));
            return dBytes;
        }

        // Returns whether a word of a file is an enumerator.
        bool IsType(RegistryType_e eType)
        {
            switch (eType)
            {
            case RegistryType_e::Untyped:
            case RegistryType_e::Text:
            case RegistryType_e::Binary:
            case RegistryType_e::Dword:
                return true;
            }
            return false;
        }

        // Unpacks a record, which points into the bytes. Returns false if they are damaged.
        bool UnpackRecord(RecordBytes_t const & dBytes, Record_t & Record)
        {
            if (dBytes.size() < HEADER_SIZE || std::memcmp(dBytes.data(), MAGIC, sizeof(MAGIC)) != 0)
            {
                return false;
            }
            auto const eType = static_cast<RegistryType_e>(WordFromLittle(dBytes.data() + TYPE_AT));
            std::uint64_t const nName = WordFromLittle(dBytes.data() + NAME_SIZE_AT);
            std::uint64_t const nData = WordFromLittle(dBytes.data() + DATA_SIZE_AT);
            if (!IsType(eType) || nName > NAME_LIMIT || nData > VALUE_LIMIT
                || nName + nData != dBytes.size() - HEADER_SIZE
                || WordFromLittle(dBytes.data() + CHECK_AT) != Checksum(dBytes))
            {
                return false;
            }
            std::string_view const sBody(dBytes.data() + HEADER_SIZE, dBytes.size() - HEADER_SIZE);
            Record.eType = eType;
            Record.sName = sBody.substr(0, static_cast<std::size_t>(nName));
            Record.sData = sBody.substr(static_cast<std::size_t>(nName));
            return true;
        }

        // Returns the FNV-1a of 64 bits (RFC 9923).
        std::uint64_t HashOf(std::string_view sText)
        {
            std::uint64_t nHash = 0xCBF29CE484222325u;
            for (char const cByte : sText)
            {
                nHash = (nHash ^ static_cast<unsigned char>(cByte)) * 0x100000001B3u;
            }
            return nHash;
        }

        // Ends a name that is too long for a file in the hash of all that follows the first nMark bytes.
        void Shorten(std::string & sFile, std::size_t nMark)
        {
            constexpr std::size_t HASH_SIZE = 17;   // characters, with its mark
            char szHash[HASH_SIZE + 1];
            std::snprintf(szHash, sizeof(szHash), "%c%016llX", SHORTENED_MARK,
                static_cast<unsigned long long>(HashOf(std::string_view(sFile).substr(nMark))));
            sFile.replace(FILE_NAME_LIMIT - HASH_SIZE, std::string::npos, szHash);
        }

        // Makes the name on disk after a mark: folded, with %XX for a leading dot and for bytes that are not plain. A
        // name that gets too long for a file is shortened. Returns false if sName is too long. Sets errno to
        // ENAMETOOLONG, on success too.
        bool NameToDisk(std::string_view sMark, std::string_view sName, std::string & sFile)
        {
            constexpr std::string_view PLAIN = "abcdefghijklmnopqrstuvwxyz0123456789_ .-";
            sFile = sMark;
            for (std::size_t iByte = 0; iByte < sName.size(); ++iByte)
            {
                char const cByte = Folded(sName[iByte]);
                if (PLAIN.find(cByte) != std::string_view::npos && (cByte != '.' || iByte > 0))
                {
                    sFile += cByte;
                }
                else
                {
                    sFile += { '%', HEX_DIGITS[static_cast<unsigned char>(cByte) >> 4], HEX_DIGITS[cByte & 15] };
                }
            }
            if (sFile.size() > FILE_NAME_LIMIT)
            {
                Shorten(sFile, sMark.size());
            }
            errno = ENAMETOOLONG;
            return sName.size() <= NAME_LIMIT;
        }
    }

    bool LoadRecord(StoreHandle_t hFolder, char const * szFile, RecordBytes_t & dBytes, Record_t & Record)
    {
        if (!StoreReadFile(hFolder, szFile, HEADER_SIZE + NAME_LIMIT + VALUE_LIMIT, dBytes))
        {
            return false;
        }
        errno = EBADMSG;
        return UnpackRecord(dBytes, Record);
    }

    // A writer that is alone always uses the same temporary name, so it replaces the file of a killed writer. Other
    // writers use names that no other call uses.
    bool StoreRecord(StoreHandle_t hFolder, char const * szFile, Record_t const & Record, bool bAlone)
    {
        char szBusy[STORE_UNIQUE_NAME_SIZE] = { BUSY_MARK };
        if (!bAlone)
        {
            StoreMakeUniqueName(BUSY_MARK, szBusy);
        }
        return StoreWriteFile(hFolder, szBusy, szFile, PackRecord(Record), StoreRights_e::AsFolder);
    }

    bool KeyNameToDisk(std::string_view sName, std::string & sFile)
    {
        return NameToDisk("", sName, sFile);
    }

    bool ValueNameToDisk(std::string_view sName, std::string & sFile)
    {
        return NameToDisk({ &VALUE_MARK, 1 }, sName, sFile);
    }

    bool IsShortenedName(std::string_view sFile)
    {
        return sFile.find(SHORTENED_MARK, 1) != std::string_view::npos;
    }

    bool KeyNameFromDisk(char const * szFile, std::string & sName)
    {
        sName.clear();
        for (char const * pByte = szFile; *pByte != 0; ++pByte)
        {
            if (*pByte == '%' && HexDigitValue(pByte[1]) >= 0 && HexDigitValue(pByte[2]) >= 0)
            {
                sName += static_cast<char>(HexDigitValue(pByte[1]) << 4 | HexDigitValue(pByte[2]));
                pByte += 2;
            }
            else
            {
                sName += *pByte;
            }
        }
        std::string sSame;
        bool const bName =
            !sName.empty() && sName.find('\\') == std::string::npos && sName.find('\0') == std::string::npos;
        return bName && KeyNameToDisk(sName, sSame) && sSame == szFile;
    }
}
