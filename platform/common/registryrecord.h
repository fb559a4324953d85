// registryrecord.h: the files of the registry's store. See registry.cpp for what stands in the folder of a key.
#pragma once

#include "platform/common/storedisk.h"
#include "platform/registry.h"

#include <string>
#include <string_view>
#include <vector>

namespace plat
{
    constexpr std::size_t VALUE_LIMIT = 16 * 1024 * 1024;   // bytes of a value; more is refused
    constexpr std::size_t NAME_LIMIT = 255;                 // bytes of a name; more are refused
    constexpr char KEY_RECORD[] = "@key";
    constexpr char KEY_MARK = '@';
    constexpr char VALUE_MARK = '=';
    constexpr char BUSY_MARK = '~';

    using RecordBytes_t = std::vector<char>;

    struct Record_t
    {
        RegistryType_e eType = RegistryType_e::Untyped;
        std::string_view sName;
        std::string_view sData;
    };

    /// Reads a file of records; false if it is none, or damaged. The record points into the bytes.
    bool LoadRecord(StoreHandle_t hFolder, char const * szFile, RecordBytes_t & aBytes, Record_t & Record);

    /// Replaces szFile by a record. Returns false on failure, with the previous one in place. With bAlone the caller is
    /// the only writer to the folder.
    bool StoreRecord(StoreHandle_t hFolder, char const * szFile, Record_t const & Record, bool bAlone);

    /// The file's name for the name of a key, or after VALUE_MARK of a value: escaped, and shortened if that gets too
    /// long. False if the name itself is too long.
    bool KeyNameOnDisk(std::string_view sName, std::string & sFile);
    bool ValueNameOnDisk(std::string_view sName, std::string & sFile);

    /// Whether a file's name is a shortened one, from which the name can't be read.
    bool IsShortenedName(std::string_view sFile);

    /// The folded name of the key that has szFile for its folder; false if it is the folder of none, or a shortened name.
    bool KeyNameFromDisk(char const * szFile, std::string & sName);
}
