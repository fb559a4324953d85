// registryrecord.h: the files of the registry's store.
//
// The files of the clipboard's formats are named as those of values are. registry.cpp explains the folder of a key.
#pragma once

#include "platform/common/storedisk.h"
#include "platform/registry.h"

#include <string>
#include <string_view>
#include <vector>

namespace plat
{
    inline constexpr std::size_t VALUE_LIMIT = 16 * 1024 * 1024;   // bytes of the largest value
    inline constexpr std::size_t NAME_LIMIT = 255;                 // bytes of the longest name
    inline constexpr char KEY_RECORD[] = "@key";                   // name of the file with a key's own record
    inline constexpr char KEY_MARK = KEY_RECORD[0];                // first character of that name
    inline constexpr char VALUE_MARK = '=';                        // first character of the name of a value's file
    inline constexpr char BUSY_MARK = '~';                         // first character of the name of an unfinished file

    /// Contents of a record's file.
    using RecordBytes_t = std::vector<char>;

    /// Record of a key or a value.
    struct Record_t
    {
        RegistryType_e eType = RegistryType_e::Untyped;
        std::string_view sName;
        std::string_view sData;
    };

    /// Reads a record's file and returns true. Returns false if the file can't be read, or holds no intact record
    /// (errno is EBADMSG). The record points into the bytes.
    bool LoadRecord(StoreHandle_t hFolder, char const * szFile, RecordBytes_t & dBytes, Record_t & Record);

    /// Replaces szFile by a record and returns true. With bAlone, requires that no one else writes to the folder. On
    /// failure returns false and keeps the previous record.
    bool StoreRecord(StoreHandle_t hFolder, char const * szFile, Record_t const & Record, bool bAlone);

    /// Make the name of a key's folder, or of a value's file, which begins with VALUE_MARK, and return true. The name
    /// is folded and escaped, and shortened if it gets longer than FILE_NAME_LIMIT. Return false if sName is longer
    /// than NAME_LIMIT. Set errno to ENAMETOOLONG, on success too.
    bool KeyNameToDisk(std::string_view sName, std::string & sFile);
    bool ValueNameToDisk(std::string_view sName, std::string & sFile);

    /// Returns whether a file's name is a shortened one. The full name can't be read from it.
    bool IsShortenedName(std::string_view sFile);

    /// Makes the folded name of the key whose folder is szFile, and returns true. Returns false if szFile is not the
    /// folder of a key, or is shortened.
    bool KeyNameFromDisk(char const * szFile, std::string & sName);
}
