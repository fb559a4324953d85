// cpropertylist.h: properties with several values each, in a text file.
//
// Each line holds a property's name and one of its values. A name may be on many lines. Lines are those of warehouse
// tables (cwarehousescan.h) with the usual separators of the format. There is no header. Text after the value is
// ignored. Names compare without regard to ASCII case. Names and values are returned in lower case. UTF-8's byte order
// mark is skipped.
//
// Texts are written to buffers by the rule of cstring.h, and to text objects (ctextvalue.h).
//
// Ownership: the file stays open until the next Open or the destructor. Requires that both come before ModuleFile_c
// shuts down. Texts are copied to the caller.
// Threads: one thread for each object. Open belongs to the main thread, as the table of files does (cfile.h).
// Cost: FindProp, StartProp and StartVal scan the file again, linear in its length, so they see a refreshed file. A
// walk allocates a copy of each text.
// Failure: calls return false. Only Open sets an error, which GetLastError returns.
//
//     PropertyList_c Levels;
//     if (Levels.Open("levels.txt") && Levels.StartVal("monsters"))
//     {
//         String_T<256> sMonster;
//         while (Levels.NextVal(sMonster)) { Log("%s", sMonster); }
//     }
#pragma once

#include "zqcore/cstring.h"
#include "zqcore/ctexterror.h"
#include "zqcore/ctextvalue.h"
#include "zqcore/cwarehousescan.h"

class File_c;

/// A property list on one file.
class PropertyList_c
{
public:
    /// Makes a closed list.
    PropertyList_c() = default;
    ZQ_API ~PropertyList_c();
    PropertyList_c(PropertyList_c const &) = delete;
    PropertyList_c & operator=(PropertyList_c const &) = delete;

    /// Closes what was open and opens a file by name. Asserts that the name is not null, and returns false otherwise.
    /// Returns false, without a message of its own, if there is no such file or if it is in UTF-16. Also returns false,
    /// with log lines, if it can't be read.
    ZQ_API bool Open(char const * sFileName, WarehouseFormat_e eFormat = WAREHOUSE_FORMAT_AUTO);

    /// Returns why the last Open failed. Searches and walks set no error.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// Write the key of the open file, and its folder with the key after it. Assert that the buffer is not null and
    /// that its size nMaxLength is above 1. Return false, with an empty text, if no file is open.
    ZQ_API bool GetFileName(char * sName, int nMaxLength) const;
    ZQ_API bool GetFileFullPath(char * sPath, int nMaxLength) const;
    template <TextObject_T TEXT>
    bool GetFileName(TEXT & sName) const
    {
        String_T<MAX_PATH_SIZE> sText;
        return TextPut(sName, GetFileName(sText.GetBuffer(), MAX_PATH_SIZE) ? sText.CStr() : nullptr);
    }
    template <TextObject_T TEXT>
    bool GetFileFullPath(TEXT & sPath) const
    {
        String_T<MAX_PATH_SIZE> sText;
        return TextPut(sPath, GetFileFullPath(sText.GetBuffer(), MAX_PATH_SIZE) ? sText.CStr() : nullptr);
    }

    /// Returns whether a line has this name, with or without a value. Asserts that the name is not null.
    ZQ_API bool FindProp(char const * sPropName) const;

    /// Starts a walk over the distinct names that have a value, in the order of their first lines with one. Returns
    /// false if there are none.
    ZQ_API bool StartProp();

    /// Write the next name. Assert as GetFileName does, and that the buffer or String_T can hold the name: a name that
    /// is cut is another name. Return false, with an empty text, after the last one.
    ZQ_API bool NextProp(char * sValue, int nMaxLength);
    template <TextObject_T TEXT>
    bool NextProp(TEXT & sValue)
    {
        return Extract(m_Names, sValue);
    }

    /// Start and continue a walk over the values of a property, in the order of the lines, repeated values included.
    /// This walk and that over the names do not disturb each other. Return and assert as StartProp and NextProp do.
    /// StartVal also asserts that the name is not null.
    ZQ_API bool StartVal(char const * sPropName);
    ZQ_API bool NextVal(char * sValue, int nMaxLength);
    template <TextObject_T TEXT>
    bool NextVal(TEXT & sValue)
    {
        return Extract(m_List, sValue);
    }

private:
    static constexpr int MAX_PATH_SIZE = 512;   // a path of at most 255 characters and a key

    template <TextObject_T TEXT>
    bool Extract(WarehouseLine_c & Queue, TEXT & sValue)
    {
        bool const bFound = TextPut(sValue, NextOf(Queue, TextMost<TEXT>()));
        Queue.DelLast();
        return bFound;
    }

    ZQ_API char const * NextOf(WarehouseLine_c const & Queue, int nMost) const;
    bool Extract(WarehouseLine_c & Queue, char * sValue, int nMaxLength);
    WarehouseScan_t Scan() const;

    /// Texts that the walks have yet to return, the next one last, so that removing it costs nothing.
    WarehouseLine_c m_Names;
    WarehouseLine_c m_List;
    File_c * m_pFile = nullptr;
    WarehouseFormat_e m_eFormat = WAREHOUSE_FORMAT_TEXT;
    TextErrors_c m_Errors;
};
