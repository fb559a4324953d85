// heldfile.h: a file of the media that stays resident while several readers take it.
#pragma once

#include "zqcore/cstring.h"

class File_c;

/// Why a file has nothing to read: there is none of that name, or, as bFault says, one that can't be read or is empty,
/// or the scan of the media has missed something. Empty if it can be read.
struct NoFile_s
{
    String_T<256> sWhy;
    bool bFault = false;
};

/// Reads the file once, so that the readers that follow meet what was found here.
class HeldFile_c
{
public:
    explicit HeldFile_c(char const * szFile);
    ~HeldFile_c();
    HeldFile_c(HeldFile_c const &) = delete;
    HeldFile_c & operator=(HeldFile_c const &) = delete;

    NoFile_s const & WhyNot() const { return m_WhyNot; }

private:
    File_c * m_pFile = nullptr;
    NoFile_s m_WhyNot;
};
