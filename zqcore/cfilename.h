// cfilename.h: a path and its parts. `/` and `\` both separate.
#pragma once

#include "zqcore/cstring.h"

/// The last component of a path, as a pointer into it; the whole text if nothing separates.
ZQ_API char const * PathFileName(char const * szPath);

/// The same for a path of nLength characters, which need not be terminated.
ZQ_API char const * PathFileName(char const * szPath, std::size_t nLength);

class FileName_c : public String_T<256>
{
public:
    FileName_c() = default;
    FileName_c(char const * szPath)
        : String_T<256>(szPath)
    {}
    using String_T<256>::operator=;

    /// The drive with its colon, or empty.
    ZQ_API String_T<256> GetDrive() const;

    /// The folder between drive and name, with its trailing separator, or empty.
    ZQ_API String_T<256> GetDir() const;

    /// The last component without its extension.
    ZQ_API String_T<256> GetName() const;

    /// The extension with its dot, or empty. It begins at the last dot of the last component.
    ZQ_API String_T<256> GetExt() const;

    /// The last component: name and extension.
    ZQ_API String_T<256> GetFileName() const;

private:
    String_T<256> Piece(char const * pFrom, char const * pTo) const;
    char const * AfterDrive() const;
};
