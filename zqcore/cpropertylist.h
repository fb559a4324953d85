// cpropertylist.h: properties of several values each in a text file.
//
// Each line holds a property's name and one of its values; a name may stand on many lines. Lines are those of warehouse
// tables (cwarehousescan.h) with the usual separators of the format; there is no header, and what follows the value is
// ignored. Names compare without regard to ASCII case; names and values come out in lower case. The file stays open and
// is scanned anew by each FindProp, StartProp and StartVal, which see the contents of the moment if it is refreshed.
// UTF-8's byte order mark is skipped; a file in UTF-16 is refused. One thread.
#pragma once

#include "zqcore/ctexterror.h"
#include "zqcore/cwarehousescan.h"

class File_c;

class PropertyList_c
{
public:
    /// Closed, text format.
    PropertyList_c() = default;
    ZQ_API ~PropertyList_c();
    PropertyList_c(PropertyList_c const &) = delete;
    PropertyList_c & operator=(PropertyList_c const &) = delete;

    /// Closes what was open and opens a file by name; false, without a message, if there is no such file or it can't be
    /// read.
    ZQ_API bool Open(char const * sFileName, WarehouseFormat_e eFormat = WAREHOUSE_FORMAT_AUTO);

    /// Why the last Open failed. Searches and walks set no error.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// The key of the open file, and its place on disk. False, with the buffer emptied, when none is open. A buffer has
    /// nMaxLength > 1 bytes, and the text is cut to fit.
    ZQ_API bool GetFileName(char * sName, int nMaxLength) const;
    bool GetFileName(String_T<256> & sName) const { return GetFileName(sName.GetBuffer(), 256); }
    ZQ_API bool GetFileFullPath(char * sPath, int nMaxLength) const;
    bool GetFileFullPath(String_T<256> & sPath) const { return GetFileFullPath(sPath.GetBuffer(), 256); }

    /// Whether a line has this name, be it without a value.
    ZQ_API bool FindProp(char const * sPropName) const;

    /// Starts a walk over the distinct names that have a value, in the order of their first lines; false if there are
    /// none. Linear in the file's length.
    ZQ_API bool StartProp();

    /// The next name; false, with the buffer emptied, behind the last one. The buffer must hold it.
    ZQ_API bool NextProp(char * sValue, int nMaxLength);
    bool NextProp(String_T<256> & sValue) { return NextProp(sValue.GetBuffer(), 256); }

    /// The same for the values of a property, in the order of the lines, as often as each stands there. The two walks do
    /// not disturb each other.
    ZQ_API bool StartVal(char const * sPropName);
    ZQ_API bool NextVal(char * sValue, int nMaxLength);
    bool NextVal(String_T<256> & sValue) { return NextVal(sValue.GetBuffer(), 256); }

private:
    WarehouseScan_t Scan() const;

    // What is left to hand out, the next one last, where taking it away costs nothing.
    WarehouseLine_c m_Names;
    WarehouseLine_c m_List;
    File_c * m_pFile = nullptr;
    WarehouseFormat_e m_eFormat = WAREHOUSE_FORMAT_TEXT;
    TextErrors_c m_Errors;
};
