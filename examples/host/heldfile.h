// heldfile.h: a file of the media that stays resident while several readers use it.
#pragma once

#include "zqcore/cfile.h"
#include "zqcore/cstring.h"

/// Reason why a file can't be used. The text is empty if it can. Otherwise, without bFault, the media have no such
/// file, or no acceptable row in it. With bFault the media have a fault:
/// - the file is empty or can't be read
/// - the file is not of the expected kind
/// - the scan of the media is not whole, and may have missed the file
struct NoFile_t
{
    String_T<256> sWhy;
    bool bFault = false;
};

/// A file that is read once, so that all later readers see the same contents.
class HeldFile_c
{
public:
    /// Reads a file by its bare name and holds the contents until the destructor. On failure GetWhyNot returns the
    /// reason.
    explicit HeldFile_c(char const * szFile);
    HeldFile_c(HeldFile_c const &) = delete;
    HeldFile_c & operator=(HeldFile_c const &) = delete;

    /// Returns why the file can't be used, with an empty text if it can.
    NoFile_t const & GetWhyNot() const { return m_WhyNot; }

private:
    FileReference_c m_File;
    NoFile_t m_WhyNot;
};
