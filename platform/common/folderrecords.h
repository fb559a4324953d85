// folderrecords.h: the records of a batch of changes (folderwatch.h).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace plat
{
    /// Appends a name in UTF-8, cut at FILE_NAME_LIMIT characters, as UTF-16 units. A byte that is not UTF-8 becomes
    /// the unit WIDE_OF_BYTE + byte (text.h).
    void AppendUnits(std::u16string & sUnits, std::string const & sName);

    /// Writes a record for each name to a buffer of nBytes. Leaves the padding between records unchanged. Writes
    /// nothing if the records do not all fit.
    void WriteRecords(std::vector<std::u16string> const & dNames, char * pBuffer, std::size_t nBytes);
}
