// cfilename.h: a path and its parts.
//
// Both `/` and `\` are separators.
//
// Ownership: a FileName_c is a plain value of up to 255 characters. Longer paths are cut.
// Threads: any thread.
// Cost: a scan of the path. Nothing allocates.
// Failure: the constructor of FileName_c asserts that its path is not null. PathFileName requires a path that is not
// null. A part that a path lacks is an empty text.
//
//     FileName_c const sPath("media\\levels/harbour.lvl");
//     String_T<256> const sBare = sPath.GetFileName();                    // "harbour.lvl"
//     String_T<256> const sMap = sPath.GetDir() + sPath.GetName() + ".map";   // "media\levels/harbour.map"
//     char const * const szBare = PathFileName(sPath);                    // "harbour.lvl", a part of sPath
#pragma once

#include "zqcore/cstring.h"

/// Returns a pointer to the last component of a path. Without a separator that is all after the drive, or the whole
/// path. The component is empty if the path ends in a separator or is only a drive.
ZQ_API char const * PathFileName(char const * szPath);

/// Returns the last component of a path of nLength characters, which needs no terminator.
ZQ_API char const * PathFileName(char const * sPath, std::size_t nLength);

/// A path with functions that return its parts.
class FileName_c : public String_T<256>
{
public:
    FileName_c() = default;

    /// Copies a path as String_T does.
    FileName_c(char const * szPath)
        : String_T<256>(szPath)
    {}
    using String_T<256>::operator=;

    /// Returns the drive with its colon.
    ZQ_API String_T<256> GetDrive() const;

    /// Returns the folder between drive and last component, with the separator at its end.
    ZQ_API String_T<256> GetDir() const;

    /// Returns the last component without its extension.
    ZQ_API String_T<256> GetName() const;

    /// Returns the extension with its dot. It begins at the last dot of the last component.
    ZQ_API String_T<256> GetExt() const;

    /// Returns the last component: name and extension.
    ZQ_API String_T<256> GetFileName() const;

private:
    String_T<256> Piece(char const * pFrom, char const * pTo) const;
    char const * DriveEnd() const;
};
