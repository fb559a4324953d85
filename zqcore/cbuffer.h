// cbuffer.h: a run of bytes seen through one interface, whether it comes from a growing array, a file or a text.
//
// A consumer takes a Buffer_c and asks for the first byte and the length; both hold until the buffer is changed or
// destroyed. Looking costs nothing; only the array takes memory. A buffer belongs to one thread at a time.
#pragma once

#include "zqcore/carray.h"

class File_c;

class ZQ_API Buffer_c
{
public:
    Buffer_c() = default;
    virtual ~Buffer_c();

    /// The first byte; may be null when there is none.
    virtual void * GetBufferData() const = 0;

    /// The number of bytes.
    virtual unsigned int GetBufferDataLength() const = 0;
};

/// Bytes that are appended one run after the other. Owns its storage: none at first, then 1024 bytes, doubled at need.
class ZQ_API ArrayBuffer_c : public Buffer_c, public Array_T<char, 1024, 0>
{
public:
    static constexpr unsigned int MAX_BYTES = 0x3FFFFFFF;   // the longest buffer

    /// Appends a copy of nBytes bytes, which may be the buffer's own. False, with no change, if nBytes is 0, pBytes null
    /// or the whole would exceed MAX_BYTES; the latter two fail an assertion. Earlier data pointers become invalid.
    bool ExpandBuffer(void const * pBytes, unsigned int nBytes);

    void * GetBufferData() const override;
    unsigned int GetBufferDataLength() const override;
};

/// The contents of a file. Holds a reference to them, not to the file object, from its construction to its end.
class ZQ_API FileBuffer_c : public Buffer_c
{
public:
    /// Opens the file, which must succeed; a buffer whose file can't be opened is empty.
    explicit FileBuffer_c(File_c * pFile);
    ~FileBuffer_c() override;
    FileBuffer_c(FileBuffer_c const &) = delete;
    FileBuffer_c & operator=(FileBuffer_c const &) = delete;

    /// The file's block. Null, and then of length 0, if a refresh could not read it again.
    void * GetBufferData() const override;
    unsigned int GetBufferDataLength() const override;

private:
    File_c * m_pFile;
};

/// A terminated text without its terminator. Owns nothing: the text must outlive the buffer and is not to be written.
class ZQ_API StringBuffer_c : public Buffer_c
{
public:
    /// sText must not be null.
    explicit StringBuffer_c(char const * sText);

    void * GetBufferData() const override;
    unsigned int GetBufferDataLength() const override;

private:
    char const * m_sText;
    unsigned int m_nLength;
};
